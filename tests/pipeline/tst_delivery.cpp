#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/DialogService.h"
#include "foundation/ScriptedDialogService.h"
#include "foundation/Workspace.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"
#include "pipeline/OpenFileProcessor.h"
#include "pipeline/PluginFileProcessor.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;
using namespace quirepad::test;

namespace {




// Remembers what would have been opened or revealed.
class RecordingWorkspace : public Workspace
{
public:
    QList<QUrl>* opened;
    explicit RecordingWorkspace(QList<QUrl>* log)
        : opened(log)
    {
    }
    bool openUrl(const QUrl& url) override
    {
        opened->append(url);
        return true;
    }
    bool revealFile(const QString& path) override
    {
        opened->append(QUrl::fromLocalFile(path));
        return true;
    }
};

} // namespace

class DeliveryTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    ScriptedDialogService* m_dialogs = nullptr;
    QList<QUrl> m_opened;
    int m_case = 0;

    QString source(const QByteArray& contents = "%PDF-1.4 job")
    {
        const QString path = m_root.filePath(QStringLiteral("spool/alice-D3F2UG-job %1.pdf").arg(++m_case));
        writeFile(path, contents);
        return path;
    }
    QString folder()
    {
        const QString path = m_root.filePath(QStringLiteral("out%1").arg(++m_case));
        return path;
    }
    static QString urlText(const QString& path) { return QUrl::fromLocalFile(path + "/").toString(QUrl::FullyEncoded); }

private slots:
    void initTestCase()
    {
        qputenv("HOME", m_root.filePath("home").toUtf8());
        qputenv("XDG_DATA_HOME", m_root.filePath("data").toUtf8());
        qputenv("XDG_DATA_DIRS", m_root.filePath("system").toUtf8());
        qputenv("XDG_CONFIG_HOME", m_root.filePath("config").toUtf8());
        qputenv("XDG_CONFIG_DIRS", m_root.filePath("config-system").toUtf8());
        QDir().mkpath(m_root.filePath("spool"));
        QDir().mkpath(m_root.filePath("home"));
    }

    void init()
    {
        auto dialogs = std::make_unique<ScriptedDialogService>();
        m_dialogs = dialogs.get();
        DialogService::setCurrent(std::move(dialogs));
        m_opened.clear();
        Workspace::setCurrent(std::make_unique<RecordingWorkspace>(&m_opened));
    }

    void cleanup() { Workspace::setCurrent(nullptr); }

    void uniqueNamesUnlessOverwriting()
    {
        const QString out = folder();
        for (const bool overwrite : {false, true}) {
            for (int round = 0; round < 2; ++round) {
                CopyFileProcessor processor;
                processor.do_overwrite = overwrite;
                processor.name_pattern = "%t.pdf";
                processor.config.insert("output_dir", urlText(out));
                processor.setContext({{"TITLE", "Same"}});
                QVERIFY(processor.processFile(source(QByteArray("round ") + QByteArray::number(round) + (overwrite ? " over" : ""))));
            }
        }
        QStringList names = QDir(out).entryList(QDir::Files | QDir::Hidden);
        names.sort();
        // Two without overwriting (the second unique), then both overwriting
        // rounds replaced "Same.pdf": no partial or temporary files are left.
        QCOMPARE(names, (QStringList{"Same 1.pdf", "Same.pdf"}));
        QCOMPARE(readFile(out + "/Same.pdf"), QByteArray("round 1 over"));
        QCOMPARE(readFile(out + "/Same 1.pdf"), QByteArray("round 1"));
    }

    void plainFolderProcessorNotifiesFileCopied()
    {
        CopyFileProcessor processor;
        processor.config.insert("output_dir", urlText(folder()));
        QVERIFY(processor.processFile(source()));
        QVERIFY(file_exists(processor.resultFile));
        const auto& asked = m_dialogs->interactions();
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked[0].kind, ScriptedDialogService::Kind::Notification);
        QCOMPARE(asked[0].message, QStringLiteral("Quirepad"));
        QCOMPARE(asked[0].informative, QStringLiteral("File Copied"));
        QCOMPARE(asked[0].revealPath, processor.resultFile);
        QVERIFY(path_basename(processor.resultFile).startsWith("job ")); // the owner prefix is gone
    }

    void savePanelChoosesOrCancels()
    {
        const QString out = folder();
        QDir().mkpath(out);
        const QString chosen = out + "/chosen.pdf";
        QVERIFY(writeFile(chosen, "old"));
        CopyFileProcessor processor;
        processor.config = {{"output_dir", urlText(out)}, {"ask_to_confim", true}};
        m_dialogs->enqueueAnswer(chosen);
        QVERIFY(processor.processFile(source("new")));
        QCOMPARE(readFile(chosen), QByteArray("new"));
        QCOMPARE(processor.resultFile, chosen);
        QCOMPARE(m_dialogs->interactions().first().kind, ScriptedDialogService::Kind::SavePanel);
        QVERIFY(m_dialogs->interactions().first().message.startsWith(out + "/"));

        CopyFileProcessor cancelled;
        cancelled.config = processor.config;
        m_dialogs->enqueueAnswer(QVariant()); // cancel
        m_dialogs->enqueueAnswer(QVariant()); // and cancel again
        const QString job = source("never");
        QVERIFY(!cancelled.copyTempFile(job, out + "/x.pdf"));
        QVERIFY(cancelled.processFile(job)); // a cancel is an answer: the job may go
        QVERIFY(!cancelled.failed());
        QCOMPARE(QDir(out).entryList(QDir::Files), QStringList{"chosen.pdf"});
    }

    void failuresKeepTheJobAndTellTheUser_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::newRow("folder blocked by a file") << "blocked";
        QTest::newRow("target is a folder") << "target-folder";
        QTest::newRow("unreadable source") << "missing-source";
    }

    void failuresKeepTheJobAndTellTheUser()
    {
        QFETCH(QString, situation);
        const QString out = folder();
        CopyFileProcessor processor;
        processor.do_overwrite = true;
        processor.name_pattern = "%t.pdf";
        processor.setContext({{"TITLE", "Target"}});
        QString job = source();
        if (situation == "blocked") {
            QVERIFY(writeFile(out, "a file where the folder should be"));
            processor.config.insert("output_dir", urlText(out + "/inner"));
        } else {
            QVERIFY(QDir().mkpath(out + "/Target.pdf"));
            processor.config.insert("output_dir", urlText(out));
            if (situation == "missing-source") {
                QDir().rmdir(out + "/Target.pdf");
                job = m_root.filePath("spool/missing.pdf");
            }
        }
        QVERIFY(!processor.processFile(job));
        QVERIFY(processor.failed());
        QVERIFY(!processor.failureReason().isEmpty());
        const auto& asked = m_dialogs->interactions();
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked[0].kind, ScriptedDialogService::Kind::Error);
        QCOMPARE(asked[0].message, QStringLiteral("The document could not be delivered."));
        if (situation != "blocked") {
            // Nothing half-written is left behind.
            const QStringList left = QDir(out).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
            QVERIFY2(left.isEmpty(), qPrintable(left.join(", ")));
        }
    }

    void filterOutputDecidesTheExtension()
    {
        const QString filters = f(QStringLiteral("${APP_SUPPORT_PLUGINS}/Filters"));
        QVERIFY(QDir().mkpath(filters));
        QVERIFY(writeFile(filters + "/ToText.workflow",
                          "#!/bin/sh\nset -eu\nout=\"$PWD/$(basename \"$1\" .pdf).txt\"\n"
                          "printf 'text of %s by %s\\n' \"$QUIREPAD_TITLE\" \"$QUIREPAD_USER\" > \"$out\"\necho \"$out\"\n",
                          kExecutable));
        CopyFileProcessor processor;
        processor.name_pattern = "%t.pdf";
        processor.tranform = "ToText";
        processor.setContext({{"TITLE", "Notes"}, {"USER", "ann"}});
        processor.config.insert("output_dir", urlText(folder()));
        QVERIFY(processor.processFile(source()));
        QVERIFY2(processor.resultFile.endsWith("/Notes.txt"), qPrintable(processor.resultFile));
        QCOMPARE(readFile(processor.resultFile), QByteArray("text of Notes by ann\n"));
        QCOMPARE(m_dialogs->interactions().first().message, QStringLiteral("processing..."));
        QCOMPARE(m_dialogs->interactions().first().informative, QStringLiteral("applying filter ToText"));
    }

    void openingFromATemporaryPlaceUsesACopy()
    {
        // A desktop entry of a test application that records what it opens.
        const QString record = m_root.filePath("opened.txt");
        const QString apps = m_root.filePath("data/applications");
        QVERIFY(QDir().mkpath(apps));
        const QString recorder = m_root.filePath("recorder.sh");
        QVERIFY(writeFile(recorder, ("#!/bin/sh\nprintf '%s\\n' \"$@\" >> '" + record + "'\n").toUtf8(), kExecutable));
        QVERIFY(writeFile(apps + "/quirepad-recorder.desktop",
                          ("[Desktop Entry]\nType=Application\nName=Recorder\nExec=" + recorder + " %f\n").toUtf8()));
        OpenFileProcessor processor;
        processor.name_pattern = "%t.pdf";
        processor.setContext({{"TITLE", "Opened Title"}});
        processor.config.insert("appid", "quirepad-recorder.desktop");
        processor.do_compress = true; // never applied when opening
        const QString job = source("%PDF-1.4 to open");
        QVERIFY(processor.processFile(job));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), 10000);
        const QString opened = QString::fromUtf8(readFile(record)).trimmed();
        QCOMPARE(opened, processor.openedFile());
        QVERIFY(opened != job);
        QVERIFY(opened.endsWith("/Opened Title.pdf"));
        QFile::remove(job); // the spool job goes; the copy stays for the viewer
        QCOMPARE(readFile(opened), QByteArray("%PDF-1.4 to open"));
        QVERIFY(m_dialogs->interactions().isEmpty()); // no notification, no filter

        // A file elsewhere opens where it is.
        const QString projectDir = qEnvironmentVariable("QUIREPAD_SOURCE_DIR");
        bool outsideTemporaryPlaces = !projectDir.isEmpty();
        for (const QString& place : OpenFileProcessor::temporaryPlaces())
            if (projectDir.startsWith(place + "/"))
                outsideTemporaryPlaces = false;
        if (!outsideTemporaryPlaces)
            QSKIP("the source tree lies in a temporary place; cannot check opening in place");
        const QString own = projectDir + "/README.md";
        OpenFileProcessor inPlace;
        inPlace.config.insert("appid", "quirepad-recorder.desktop");
        QVERIFY(inPlace.processFile(own));
        QCOMPARE(inPlace.openedFile(), own);
        QTRY_VERIFY_WITH_TIMEOUT(readFile(record).contains(own.toUtf8()), 10000);
    }

    void unknownApplicationOpensWithTheDefaultHandler()
    {
        OpenFileProcessor processor;
        processor.config.insert("appid", "org.example.NotInstalled.desktop");
        QVERIFY(processor.processFile(source()));
        QCOMPARE(m_opened.size(), 1);
        QCOMPARE(m_opened.first(), QUrl::fromLocalFile(processor.openedFile()));
    }

    void pluginWorkflows_data()
    {
        QTest::addColumn<QByteArray>("script"); // empty: no workflow installed
        QTest::addColumn<bool>("executable");
        QTest::addColumn<QString>("outcome");
        QTest::newRow("two results") << QByteArray("#!/bin/sh\necho \"$QUIREPAD_OUTPUT_DIR/first.png\"\necho /elsewhere/second.png\n")
                                     << true << "notified";
        QTest::newRow("failing") << QByteArray("#!/bin/sh\necho 'cannot read the page' >&2\nexit 3\n") << true << "failed";
        QTest::newRow("not executable") << QByteArray("#!/bin/sh\necho x\n") << false << "question";
        QTest::newRow("missing") << QByteArray() << true << "no plugin";
    }

    void pluginWorkflows()
    {
        QFETCH(QByteArray, script);
        QFETCH(bool, executable);
        QFETCH(QString, outcome);
        const QString plugins = f(QStringLiteral("${APP_SUPPORT_PLUGINS}"));
        QVERIFY(QDir().mkpath(plugins));
        const QString name = QStringLiteral("Test plugin %1").arg(++m_case);
        if (!script.isEmpty())
            QVERIFY(writeFile(plugins + "/" + name + ".workflow", script,
                              executable ? kExecutable : (QFile::ReadOwner | QFile::WriteOwner)));
        const QString out = folder();
        PluginFileProcessor processor;
        processor.name_pattern = "%t.pdf";
        processor.setContext({{"TITLE", "Plugged"}});
        processor.config = {{"plugin_name", name}, {"output_dir", urlText(out)}};
        const bool delivered = processor.processFile(source());
        const auto& asked = m_dialogs->interactions();
        if (outcome == "notified") {
            QVERIFY(delivered);
            QCOMPARE(asked.size(), 1);
            QCOMPARE(asked[0].informative, QStringLiteral("Workflow %1finished").arg(name));
            QCOMPARE(asked[0].revealPath, out + "/first.png"); // only the first result is named
        } else if (outcome == "failed") {
            QVERIFY(!delivered);
            QCOMPARE(asked.last().kind, ScriptedDialogService::Kind::Error);
            QVERIFY(asked.last().informative.contains("cannot read the page"));
        } else if (outcome == "question") {
            QVERIFY(!delivered);
            QCOMPARE(asked[0].kind, ScriptedDialogService::Kind::Question);
            QCOMPARE(asked[0].message, QStringLiteral("Quirepad is unable to execute this action"));
            QCOMPARE(asked[0].alternateButton, QStringLiteral("Find Out More..."));
            QCOMPARE(asked[0].defaultButton, QStringLiteral("Continue"));
            QCOMPARE(asked.size(), 1); // the question says it all
        } else {
            QVERIFY(delivered); // the design keeps the job only for errors, not for a missing plugin
            QCOMPARE(asked[0].kind, ScriptedDialogService::Kind::Alert);
            QCOMPARE(asked[0].message, QStringLiteral("no plugin found for %1").arg(name));
        }
        for (const auto& interaction : asked)
            QVERIFY(interaction.informative != QStringLiteral("File Copied"));
    }

    void findOutMoreOpensTheHelpPage()
    {
        const QString plugins = f(QStringLiteral("${APP_SUPPORT_PLUGINS}"));
        QVERIFY(writeFile(plugins + "/Locked.workflow", "#!/bin/sh\n", QFile::ReadOwner));
        PluginFileProcessor processor;
        processor.config = {{"plugin_name", "Locked"}, {"output_dir", urlText(folder())}};
        m_dialogs->enqueueAnswer(true);
        processor.processFile(source());
        QCOMPARE(m_opened.size(), 1);
        QVERIFY(m_opened.first().toLocalFile().endsWith("/Resources/help/workflows.html"));
        QVERIFY(QFile::exists(m_opened.first().toLocalFile()));
    }
};

QUIREPAD_REGISTER_TEST(DeliveryTest);
#include "tst_delivery.moc"
