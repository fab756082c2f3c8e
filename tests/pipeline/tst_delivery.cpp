#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/ScriptedDialogService.h"
#include "foundation/Workspace.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"
#include "pipeline/OpenFileProcessor.h"
#include "pipeline/PluginFileProcessor.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;
using namespace quirepad::test;

namespace {

// Remembers what would have been opened or revealed.
class RecordingWorkspace : public Workspace
{
public:
    QList<QUrl> opened;
    bool refuses = false; // as when no handler can be started
    bool openUrl(const QUrl& url) override
    {
        opened.append(url);
        return !refuses;
    }
    bool revealFile(const QString& path) override { return openUrl(QUrl::fromLocalFile(path)); }
};

// Writes the file, making its folder first.
bool install(const QString& path, const QByteArray& contents, QFile::Permissions permissions = kExecutable)
{
    return QDir().mkpath(path_dirname(path)) && writeFile(path, contents, permissions);
}

} // namespace

class DeliveryTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    ScriptedDialogService* m_dialogs = nullptr;
    RecordingWorkspace* m_workspace = nullptr;
    int m_case = 0;

    QString source(const QByteArray& contents = "%PDF-1.4 job")
    {
        const QString path = m_root.filePath(QStringLiteral("spool/alice-D3F2UG-job %1.pdf").arg(++m_case));
        writeFile(path, contents);
        return path;
    }
    QString folder() { return m_root.filePath(QStringLiteral("out%1").arg(++m_case)); }
    static QString urlText(const QString& path) { return QUrl::fromLocalFile(path + "/").toString(QUrl::FullyEncoded); }
    // Names the result after the title, in the folder.
    static void prepare(CopyFileProcessor& processor, const QString& title, const QString& folder)
    {
        processor.name_pattern = "%t.pdf";
        processor.setContext({{"TITLE", title}});
        processor.config.insert("output_dir", urlText(folder));
    }
    // The dialogs shown so far, one "kind: message" each.
    QStringList shown() const
    {
        QStringList lines;
        for (const auto& interaction : m_dialogs->interactions())
            lines << ScriptedDialogService::kindName(interaction.kind) + ": " + interaction.message;
        return lines;
    }

private slots:
    void initTestCase()
    {
        const char* const places[][2] = {{"HOME", "home"}, {"XDG_DATA_HOME", "data"}, {"XDG_DATA_DIRS", "system"},
                                         {"XDG_CONFIG_HOME", "config"}, {"XDG_CONFIG_DIRS", "config-system"}};
        for (const auto& place : places)
            qputenv(place[0], m_root.filePath(place[1]).toUtf8());
        QVERIFY(QDir().mkpath(m_root.filePath("spool")) && QDir().mkpath(m_root.filePath("home")));
    }

    void init()
    {
        auto dialogs = std::make_unique<ScriptedDialogService>();
        m_dialogs = dialogs.get();
        DialogService::setCurrent(std::move(dialogs));
        auto workspace = std::make_unique<RecordingWorkspace>();
        m_workspace = workspace.get();
        Workspace::setCurrent(std::move(workspace));
    }

    void cleanup() { Workspace::setCurrent(nullptr); }

    void uniqueNamesUnlessOverwriting()
    {
        const QString out = folder();
        for (const QByteArray round : {"first", "second", "over 1", "over 2"}) {
            CopyFileProcessor processor;
            processor.do_overwrite = round.startsWith("over");
            prepare(processor, "Same", out);
            QVERIFY(processor.processFile(source(round)));
        }
        // The second is named uniquely; both overwriting rounds replaced "Same.pdf" and left no temporary files.
        QCOMPARE(QDir(out).entryList(QDir::Files | QDir::Hidden), (QStringList{"Same 1.pdf", "Same.pdf"}));
        QCOMPARE(readFile(out + "/Same.pdf"), QByteArray("over 2"));
        QCOMPARE(readFile(out + "/Same 1.pdf"), QByteArray("second"));
    }

    // A link planted under the name the delivery wants is never followed
    // nor replaced: the delivery takes the next free name.
    void plantedLinkIsLeftAlone()
    {
        const QString out = folder();
        QVERIFY(QDir().mkpath(out));
        const QString elsewhere = m_root.filePath("elsewhere.pdf");
        QVERIFY(QFile::link(elsewhere, out + "/Same.pdf"));
        CopyFileProcessor processor;
        prepare(processor, "Same", out);
        QVERIFY(processor.processFile(source("content")));
        QCOMPARE(processor.resultFile, out + "/Same 1.pdf");
        QCOMPARE(readFile(out + "/Same 1.pdf"), QByteArray("content"));
        QVERIFY(!QFileInfo::exists(elsewhere));
        QCOMPARE(QFileInfo(out + "/Same.pdf").symLinkTarget(), elsewhere);
    }

    // What is delivered keeps what it is: the extension follows the
    // content, PostScript becomes PDF only when compression asks for it,
    // and an empty file is refused (the job stays).
    void deliveredAsWhatItIs_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<bool>("compress");
        QTest::addColumn<QString>("delivered"); // empty: refused
        QTest::addColumn<QByteArray>("startsWith");
        const QByteArray ps = "%!PS-Adobe-3.0\n/Helvetica findfont 20 scalefont setfont 72 700 moveto (PS) show showpage\n";
        QTest::newRow("PDF") << QByteArray("%PDF-1.4 job") << false << "Doc.pdf" << QByteArray("%PDF-1.4 job");
        QTest::newRow("PostScript as it is") << ps << false << "Doc.ps" << ps;
        QTest::newRow("PostScript made PDF to compress") << ps << true << "Doc.pdf" << QByteArray("%PDF-");
        QTest::newRow("empty") << QByteArray() << false << QString() << QByteArray();
    }

    void deliveredAsWhatItIs()
    {
        QFETCH(QByteArray, contents);
        QFETCH(bool, compress);
        QFETCH(QString, delivered);
        QFETCH(QByteArray, startsWith);
        const QString out = folder();
        CopyFileProcessor processor;
        prepare(processor, "Doc", out);
        processor.do_compress = compress;
        QCOMPARE(processor.processFile(source(contents)), !delivered.isEmpty());
        QCOMPARE(QDir(out).entryList(QDir::Files | QDir::Hidden), delivered.isEmpty() ? QStringList() : QStringList{delivered});
        if (delivered.isEmpty())
            QCOMPARE(processor.failureReason(), QStringLiteral("“Doc” is empty (0 bytes): there is nothing to deliver."));
        else
            QVERIFY(readFile(out + "/" + delivered).startsWith(startsWith));
    }

    // Titles up to any length are delivered under a name the file system
    // takes, cut at a character, the extension kept; twice without
    // overwriting, the second still fits beside the first.
    void longTitlesFit_data()
    {
        QTest::addColumn<QString>("title");
        QTest::newRow("250 ASCII") << QString(250, u'a');
        QTest::newRow("300 bytes of 2-byte letters") << QString(150, QChar(0xe9));
        QTest::newRow("emoji across the cut") << QString(60, u'b') + QString::fromUtf8("😀").repeated(60);
    }

    void longTitlesFit()
    {
        QFETCH(QString, title);
        const QString out = folder();
        for (int round = 0; round < 2; ++round) {
            CopyFileProcessor processor;
            prepare(processor, title, out);
            QVERIFY2(processor.processFile(source()), qPrintable(processor.failureReason()));
        }
        const QStringList names = QDir(out).entryList(QDir::Files | QDir::Hidden);
        QCOMPARE(names.size(), 2);
        for (const QString& name : names) {
            QVERIFY(QFile::encodeName(name).size() <= 255);
            QVERIFY(name.endsWith(".pdf") && !name.contains(QChar(0xfffd)));
            QVERIFY(title.startsWith(name.left(40)));
        }
    }

    void plainFolderProcessorNotifiesFileCopied()
    {
        CopyFileProcessor processor;
        processor.config.insert("output_dir", urlText(folder()));
        QVERIFY(processor.processFile(source()));
        QVERIFY(file_exists(processor.resultFile));
        QVERIFY(path_basename(processor.resultFile).startsWith("job ")); // the owner prefix is gone
        QCOMPARE(shown(), QStringList{"notification: Quirepad"});
        QCOMPARE(m_dialogs->interactions()[0].informative, QStringLiteral("File Copied"));
        QCOMPARE(m_dialogs->interactions()[0].revealPath, processor.resultFile);
    }

    void savePanelChoosesOrCancels()
    {
        const QString out = folder(), chosen = out + "/chosen.pdf";
        QVERIFY(install(chosen, "old", {}));
        CopyFileProcessor processor;
        processor.config = {{"output_dir", urlText(out)}, {"ask_to_confim", true}};
        m_dialogs->enqueueAnswer(chosen);
        QVERIFY(processor.processFile(source("new")));
        QCOMPARE(readFile(chosen), QByteArray("new"));
        QCOMPARE(processor.resultFile, chosen);
        QVERIFY(shown().first().startsWith("save panel: " + out + "/"));

        CopyFileProcessor cancelled;
        cancelled.config = processor.config;
        m_dialogs->enqueueAnswer(QVariant()); // cancel
        QVERIFY(cancelled.processFile(source("never"))); // a cancel is an answer: the job may go
        QVERIFY(!cancelled.failed());
        QCOMPARE(QDir(out).entryList(QDir::Files), QStringList{"chosen.pdf"});
    }

    void failuresKeepTheJobAndTellTheUser_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<bool>("overwrite"); // written under a hidden name and renamed, or unnamed and linked
        QTest::newRow("folder blocked by a file") << "blocked" << true;
        QTest::newRow("folder blocked by a file, new name") << "blocked" << false;
        QTest::newRow("target is a folder") << "target-folder" << true;
        QTest::newRow("unreadable source") << "missing-source" << true;
        QTest::newRow("unreadable source, new name") << "missing-source" << false;
    }

    void failuresKeepTheJobAndTellTheUser()
    {
        QFETCH(QString, situation);
        QFETCH(bool, overwrite);
        const QString out = folder();
        CopyFileProcessor processor;
        processor.do_overwrite = overwrite;
        prepare(processor, "Target", situation == "blocked" ? out + "/inner" : out);
        if (situation == "blocked")
            QVERIFY(writeFile(out, "a file where the folder should be"));
        else
            QVERIFY(QDir().mkpath(situation == "target-folder" ? out + "/Target.pdf" : out));
        const QString job = situation == "missing-source" ? m_root.filePath("spool/missing.pdf") : source();
        QVERIFY(!processor.processFile(job));
        QVERIFY(processor.failed());
        QCOMPARE(shown(), QStringList{"error: The document could not be delivered."});
        if (situation != "blocked") // nothing half-written is left behind
            QCOMPARE(QDir(out).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
    }

    void filterOutputDecidesTheExtension()
    {
        QVERIFY(install(f(QStringLiteral("${APP_SUPPORT_PLUGINS}/Filters/ToText.workflow")),
                        "#!/bin/sh\nprintf 'text of %s by %s\\n' \"$QUIREPAD_TITLE\" \"$QUIREPAD_USER\" > out.txt\n"
                        "echo \"$PWD/out.txt\"\n"));
        CopyFileProcessor processor;
        prepare(processor, "Notes", folder());
        processor.context.insert("USER", "ann");
        processor.tranform = "ToText";
        QVERIFY(processor.processFile(source()));
        QVERIFY2(processor.resultFile.endsWith("/Notes.txt"), qPrintable(processor.resultFile));
        QCOMPARE(readFile(processor.resultFile), QByteArray("text of Notes by ann\n"));
    }

    void openingWithAnApplication()
    {
        // A desktop entry of a test application that records what it opens.
        const QString record = m_root.filePath("opened.txt"), recorder = m_root.filePath("recorder.sh");
        QVERIFY(writeFile(recorder, ("#!/bin/sh\nprintf '%s\\n' \"$@\" >> '" + record + "'\n").toUtf8(), kExecutable));
        QVERIFY(install(m_root.filePath("data/applications/quirepad-recorder.desktop"),
                        ("[Desktop Entry]\nType=Application\nName=Recorder\nExec=" + recorder + " %f\n").toUtf8(), {}));
        OpenFileProcessor processor;
        processor.name_pattern = "%t.pdf";
        processor.setContext({{"TITLE", "Opened Title"}});
        processor.config.insert("appid", "quirepad-recorder.desktop");
        const QString job = source("%PDF-1.4 to open");
        QVERIFY(processor.processFile(job));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), 10000);
        const QString opened = QString::fromUtf8(readFile(record)).trimmed();
        QCOMPARE(opened, processor.openedFile());
        QVERIFY(opened.endsWith("/Opened Title.pdf"));
        QFile::remove(job); // the spool job goes; the copy stays for the viewer
        QCOMPARE(readFile(opened), QByteArray("%PDF-1.4 to open"));
        QVERIFY(m_dialogs->interactions().isEmpty()); // no notification, no filter

        // An application that is not installed: the default handler opens the file.
        OpenFileProcessor unknown;
        unknown.config.insert("appid", "org.example.NotInstalled.desktop");
        QVERIFY(unknown.processFile(source()));
        QCOMPARE(m_workspace->opened, QList<QUrl>{QUrl::fromLocalFile(unknown.openedFile())});
        // Nothing can open it: reported, and the job stays.
        m_workspace->refuses = true;
        OpenFileProcessor nobody;
        nobody.config.insert("appid", "org.example.NotInstalled.desktop");
        QVERIFY(!nobody.processFile(source()));
        QVERIFY(nobody.failureReason().contains("could not be opened"));
        m_workspace->refuses = false;

        // A file elsewhere opens where it is.
        const QString own = qEnvironmentVariable("QUIREPAD_SOURCE_DIR") + "/README.md";
        if (!QFile::exists(own) || OpenFileProcessor::isInTemporaryPlace(own))
            QSKIP("the source tree is unknown or lies in a temporary place; cannot check opening in place");
        OpenFileProcessor inPlace;
        inPlace.config.insert("appid", "quirepad-recorder.desktop");
        QVERIFY(inPlace.processFile(own));
        QCOMPARE(inPlace.openedFile(), own);
        QTRY_VERIFY_WITH_TIMEOUT(readFile(record).contains(own.toUtf8()), 10000);
    }

    void pluginWorkflows_data()
    {
        QTest::addColumn<QByteArray>("script"); // empty: no workflow installed
        QTest::addColumn<bool>("delivered"); // a missing plugin is told, yet the job may go
        QTest::addColumn<QString>("dialog"); // the one dialog shown; %1 is the plugin's name
        QTest::addColumn<QString>("detail"); // in its informative text
        QTest::newRow("two results")
            << QByteArray("#!/bin/sh\necho \"$QUIREPAD_OUTPUT_DIR/first.png\"\necho /elsewhere/second.png\n")
            << true << "notification: Plugged" << "Workflow %1finished";
        QTest::newRow("failing") << QByteArray("#!/bin/sh\necho 'cannot read the page' >&2\nexit 3\n") << false
                                 << "error: The document could not be delivered." << "cannot read the page";
        QTest::newRow("not executable") << QByteArray("#!/bin/sh\necho x\n") << false
                                        << "question: Quirepad is unable to execute this action" << "";
        QTest::newRow("missing: told, kept") << QByteArray() << false << "alert: no plugin found for %1" << "";
    }

    void pluginWorkflows()
    {
        QFETCH(QByteArray, script);
        QFETCH(bool, delivered);
        QFETCH(QString, dialog);
        QFETCH(QString, detail);
        const bool executable = QTest::currentDataTag() != QLatin1String("not executable");
        const QString name = QStringLiteral("Test plugin %1").arg(++m_case);
        if (!script.isEmpty())
            QVERIFY(install(f("${APP_SUPPORT_PLUGINS}/%@.workflow", name), script,
                            executable ? kExecutable : (QFile::ReadOwner | QFile::WriteOwner)));
        const QString out = folder();
        PluginFileProcessor processor;
        prepare(processor, "Plugged", out);
        processor.config.insert("plugin_name", name);
        if (!executable)
            m_dialogs->enqueueAnswer(true); // "Find Out More..."
        QCOMPARE(processor.processFile(source()), delivered);
        QCOMPARE(shown(), QStringList{dialog.replace("%1", name)});
        const auto& asked = m_dialogs->interactions().first();
        QVERIFY2(asked.informative.contains(detail.replace("%1", name)), qPrintable(asked.informative));
        if (asked.kind == ScriptedDialogService::Kind::Notification)
            QCOMPARE(asked.revealPath, out + "/first.png"); // only the first result is named
        // Only the question's "Find Out More..." opens anything: the help page.
        const QString help = get_env("APP_RESOURCES") + "/help/workflows.html";
        QCOMPARE(m_workspace->opened, executable ? QList<QUrl>() : QList<QUrl>{QUrl::fromLocalFile(help)});
        QVERIFY(QFile::exists(help));
        if (!executable) // the question's buttons
            QCOMPARE(asked.defaultButton + " | " + asked.alternateButton, QString("Continue | Find Out More..."));
    }
};

QUIREPAD_REGISTER_TEST(DeliveryTest);
#include "tst_delivery.moc"
