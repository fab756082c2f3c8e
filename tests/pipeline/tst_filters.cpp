#include "PdfFactory.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/DialogService.h"
#include "foundation/ScriptedDialogService.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"
#include "pipeline/WorkflowLibrary.h"
#include "pipeline/WorkflowRunner.h"
#include "pipeline/filters.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace quirepad;
using namespace quirepad::test;
using namespace std::chrono_literals;

namespace {




int pageCount(const QString& pdf)
{
    QProcess info;
    info.start("pdfinfo", {pdf});
    info.waitForFinished(30000);
    for (const QString& line : QString::fromUtf8(info.readAllStandardOutput()).split('\n'))
        if (line.startsWith("Pages:"))
            return line.mid(6).trimmed().toInt();
    return -1;
}

} // namespace

class FiltersTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    ScriptedDialogService* m_dialogs = nullptr;
    QStringList m_builtIns; // written into the staged resources, removed at the end

    QString userFilters() const { return f(QStringLiteral("${APP_SUPPORT_PLUGINS}/Filters")); }
    QString userPlugins() const { return f(QStringLiteral("${APP_SUPPORT_PLUGINS}")); }
    QString builtIn(const QString& folder, const QString& name)
    {
        const QString path = get_env("APP_RESOURCES") + "/" + folder + "/" + name;
        QDir().mkpath(path_dirname(path));
        m_builtIns << path;
        return path;
    }

private slots:
    void initTestCase()
    {
        qputenv("HOME", m_root.filePath("home").toUtf8());
        qputenv("XDG_DATA_HOME", m_root.filePath("data").toUtf8());
        QVERIFY(QDir().mkpath(userFilters()));
    }

    void cleanupTestCase()
    {
        for (const QString& path : std::as_const(m_builtIns))
            QFile::remove(path);
    }

    void init()
    {
        auto dialogs = std::make_unique<ScriptedDialogService>();
        m_dialogs = dialogs.get();
        DialogService::setCurrent(std::move(dialogs));
    }

    void noFilterMeansTheInput_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("none") << "none";
        QTest::newRow("empty") << "";
    }

    void noFilterMeansTheInput()
    {
        QFETCH(QString, name);
        QCOMPARE(execute_filter("/some/input.pdf", name), QStringLiteral("/some/input.pdf"));
        QVERIFY(m_dialogs->interactions().isEmpty());
    }

    void filterMessages_data()
    {
        QTest::addColumn<QByteArray>("script"); // empty: no such filter
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("message");
        QTest::newRow("missing") << QByteArray() << "alert" << "no filter plugin found for %1";
        QTest::newRow("returns a missing file")
            << QByteArray("#!/bin/sh\necho /nowhere/result.pdf\n") << "alert"
            << "The filter %1 didn't return any file. Process returned with error (null)";
        QTest::newRow("returns nothing") << QByteArray("#!/bin/sh\nexit 0\n") << "alert"
                                         << "The filter %1 didn't return any file. Process returned with error (null)";
        QTest::newRow("fails") << QByteArray("#!/bin/sh\necho 'bad page 3' >&2\nexit 2\n") << "error"
                               << "The filter %1 failed.";
    }

    void filterMessages()
    {
        QFETCH(QByteArray, script);
        QFETCH(QString, kind);
        QFETCH(QString, message);
        const QString name = QStringLiteral("Msg %1").arg(QTest::currentDataTag());
        if (!script.isEmpty())
            QVERIFY(writeFile(userFilters() + "/" + name + ".workflow", script, kExecutable));
        const QString input = m_root.filePath("in.pdf");
        QCOMPARE(execute_filter(input, name), input);
        const auto& asked = m_dialogs->interactions();
        QCOMPARE(asked.first().message, QStringLiteral("processing..."));
        QCOMPARE(asked.first().informative, QStringLiteral("applying filter %1").arg(name));
        QCOMPARE(ScriptedDialogService::kindName(asked.last().kind), kind);
        QCOMPARE(asked.last().message, message.arg(name));
        if (kind == "error")
            QVERIFY(asked.last().informative.contains("bad page 3"));
    }

    void userFilterHidesTheBuiltIn()
    {
        const QString name = QStringLiteral("Shadowed %1").arg(QCoreApplication::applicationPid());
        QVERIFY(writeFile(builtIn("Filters", name + ".workflow"), "#!/bin/sh\necho built-in\n", kExecutable));
        QCOMPARE(filter_url(name).toLocalFile(), get_env("APP_RESOURCES") + "/Filters/" + name + ".workflow");
        QVERIFY(writeFile(userFilters() + "/" + name + ".workflow",
                          "#!/bin/sh\nprintf 'user' > \"$PWD/out.txt\"\necho \"$PWD/out.txt\"\n", kExecutable));
        QCOMPARE(filter_url(name).toLocalFile(), userFilters() + "/" + name + ".workflow");
        const QString result = execute_filter(m_root.filePath("in.pdf"), name);
        QCOMPARE(readFile(result), QByteArray("user"));

        WorkflowLibrary library;
        library.refreshPluginList();
        QCOMPARE(library.allFilterFiles().count(name), 1);
    }

    void pluginListSeparator_data()
    {
        QTest::addColumn<QStringList>("user");
        QTest::addColumn<QStringList>("builtIns");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("both") << QStringList{"b", "a"} << QStringList{"z", "y", "a"} << QStringList{"a", "b", "---", "y", "z"};
        QTest::newRow("only user") << QStringList{"b", "a"} << QStringList{} << QStringList{"a", "b"};
        QTest::newRow("only built-in") << QStringList{} << QStringList{"z", "y"} << QStringList{"y", "z"};
        QTest::newRow("built-in all shadowed") << QStringList{"a"} << QStringList{"a"} << QStringList{"a"};
    }

    void pluginListSeparator()
    {
        QFETCH(QStringList, user);
        QFETCH(QStringList, builtIns);
        QFETCH(QStringList, expected);
        // A private set of folders for this row: point the user's plugins
        // at a fresh place through the table is not possible once built, so
        // prefix the names and compare only ours.
        const QString tag = QStringLiteral("sep%1-").arg(QTest::currentDataTag()).replace(' ', '_');
        QStringList made;
        for (const QString& name : user) {
            QVERIFY(writeFile(userPlugins() + "/" + tag + name + ".workflow", "#!/bin/sh\n", kExecutable));
            made << userPlugins() + "/" + tag + name + ".workflow";
        }
        for (const QString& name : builtIns)
            QVERIFY(writeFile(builtIn("PlugIns", tag + name + ".workflow"), "#!/bin/sh\n", kExecutable));
        WorkflowLibrary library;
        library.refreshPluginList();
        QStringList ours;
        for (const QString& entry : library.allPluginFiles())
            if (entry.startsWith(tag))
                ours << entry.mid(tag.size());
            else if (entry == "---")
                ours << entry;
        // Other rows' leftovers are not ours; the separator stands between
        // the user's part and the built-in part.
        while (!ours.isEmpty() && ours.first() == "---")
            ours.removeFirst();
        while (!ours.isEmpty() && ours.last() == "---")
            ours.removeLast();
        QCOMPARE(ours, expected);
        for (const QString& path : made)
            QFile::remove(path);
        for (const QString& path : std::as_const(m_builtIns))
            if (path.contains(tag))
                QFile::remove(path);
    }

    void samplesInstallOnceAndNeverReplace()
    {
        const QString sample = get_env("APP_RESOURCES") + "/SampleFilters/Monochrome.workflow";
        if (!QFile::exists(sample))
            QSKIP("the sample workflows are not staged in this build");
        QVERIFY(writeFile(userFilters() + "/Monochrome.workflow", "#!/bin/sh\n# my own edit\n", kExecutable));
        WorkflowLibrary library;
        const QStringList first = library.installWorkflows();
        QCOMPARE(first.size(), 8); // nine samples, one already there
        QVERIFY(first.contains(userPlugins() + "/Save as Image.workflow"));
        QVERIFY(first.contains(userFilters() + "/Flatten PDF.workflow"));
        QVERIFY(QFileInfo(userPlugins() + "/Save as Text.workflow").isExecutable());
        QCOMPARE(readFile(userFilters() + "/Monochrome.workflow"), QByteArray("#!/bin/sh\n# my own edit\n"));
        QVERIFY(library.installWorkflows().isEmpty());
        QVERIFY(library.allPluginFiles().contains("Save as WebPage"));
        QVERIFY(library.allFilterFiles().contains("PDF X-3"));
    }

    void runnerDetails()
    {
        const QString folderWorkflow = m_root.filePath("Folder.workflow");
        QVERIFY(QDir().mkpath(folderWorkflow));
        QVERIFY(writeFile(folderWorkflow + "/run",
                          "#!/bin/sh\nn=$(ls -A | wc -l)\necho $n > count.txt\nprintf '%s|%s' \"$QUIREPAD_TITLE\" \"$1\" > job.txt\n"
                          "echo count.txt\necho job.txt\n",
                          kExecutable));
        const WorkflowRunner::Result result =
            WorkflowRunner(folderWorkflow).setJobInfo({{"TITLE", "Zoë's job"}, {"job-id", 7}}).run("/in/put.pdf");
        QCOMPARE(result.status, WorkflowRunner::Status::Succeeded);
        QCOMPARE(result.outputs.size(), 2);
        QCOMPARE(result.outputs[0], result.workingDirectory + "/count.txt"); // relative results resolved
        QCOMPARE(readFile(result.outputs[0]).trimmed(), QByteArray("0")); // started in an empty folder
        QCOMPARE(QString::fromUtf8(readFile(result.outputs[1])), QStringLiteral("Zoë's job|/in/put.pdf"));

        QVERIFY(writeFile(m_root.filePath("Slow.workflow"), "#!/bin/sh\nsleep 30\n", kExecutable));
        const WorkflowRunner::Result slow = WorkflowRunner(m_root.filePath("Slow.workflow")).setTimeout(300ms).run("x");
        QCOMPARE(slow.status, WorkflowRunner::Status::TimedOut);

        QVERIFY(QDir().mkpath(m_root.filePath("Empty.workflow")));
        QCOMPARE(WorkflowRunner(m_root.filePath("Empty.workflow")).run("x").status, WorkflowRunner::Status::NotExecutable);
        QVERIFY(writeFile(m_root.filePath("Binary.workflow"), QByteArray("\x7f" "ELF garbage"), kExecutable));
        QCOMPARE(WorkflowRunner(m_root.filePath("Binary.workflow")).run("x").status, WorkflowRunner::Status::NotExecutable);
    }

    void compressionOnlyWhenSmaller_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<bool>("flag");
        QTest::addColumn<QString>("expected"); // smaller, unchanged
        QTest::newRow("photos shrink") << "photo" << "photos.pdf" << true << "smaller";
        QTest::newRow("flag off") << "photo" << "off.pdf" << false << "unchanged";
        QTest::newRow("capital extension") << "photo" << "CAPS.PDF" << true << "unchanged";
        QTest::newRow("tiny text would grow") << "tiny" << "tiny.pdf" << true << "unchanged";
        QTest::newRow("damaged") << "damaged" << "damaged.pdf" << true << "unchanged";
    }

    void compressionOnlyWhenSmaller()
    {
        QFETCH(QString, kind);
        QFETCH(QString, fileName);
        QFETCH(bool, flag);
        QFETCH(QString, expected);
        const QString path = m_root.filePath(QStringLiteral("compress-%1-%2").arg(QTest::currentDataTag(), fileName).replace(' ', '_'));
        if (kind == "photo")
            QVERIFY(test::PdfFactory::photoPdf(path, 1, 1200));
        else if (kind == "tiny")
            QVERIFY(writeFile(path, "%PDF-1.1\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj 2 0 obj<</Type/Pages/Kids[3 0 R]/Count 1>>endobj "
                                    "3 0 obj<</Type/Page/MediaBox[0 0 3 3]/Parent 2 0 R>>endobj\ntrailer<</Root 1 0 R>>\n%%EOF\n"));
        else
            QVERIFY(writeFile(path, "%PDF-1.4\n1 0 obj << /Type /Catalog /Pages 2 0 R >>\nstream\n\xff\xfe garbage"));
        const QByteArray before = readFile(path);
        compress_pdf(path, flag);
        const QByteArray after = readFile(path);
        if (expected == "smaller") {
            QVERIFY2(after.size() < before.size(), qPrintable(QStringLiteral("%1 -> %2").arg(before.size()).arg(after.size())));
            QCOMPARE(pageCount(path), 1);
        } else {
            QCOMPARE(after, before);
        }
        QVERIFY(!QFile::exists(QDir::tempPath() + "/" + path_basename(path))); // no leftovers
    }

    void markerKeywords()
    {
        const QString pdf = m_root.filePath("keywords.pdf");
        QVERIFY(test::PdfFactory::textPdf(pdf, {"Keyword page"}));
        QVERIFY(get_pdf_keyword(pdf).isNull());
        QVERIFY(add_pdf_keyword(pdf, "invoice"));
        QVERIFY(add_pdf_keyword(pdf, "A7G_p2ip-42"));
        QVERIFY(add_pdf_keyword(pdf, "A7G_p2ip-43"));
        QCOMPARE(get_pdf_keyword(pdf), QStringLiteral("A7G_p2ip-42"));
        QCOMPARE(rem_pdf_keyword(pdf), QStringLiteral("A7G_p2ip-42"));
        QCOMPARE(get_pdf_keyword(pdf), QStringLiteral("A7G_p2ip-43"));
        QCOMPARE(pageCount(pdf), 1);
        QProcess info;
        info.start("pdfinfo", {pdf});
        info.waitForFinished(30000);
        QVERIFY(QString::fromUtf8(info.readAllStandardOutput()).contains("invoice, A7G_p2ip-43"));

        const QString broken = m_root.filePath("broken.pdf");
        QVERIFY(writeFile(broken, "not a pdf"));
        QVERIFY(!add_pdf_keyword(broken, "A7G_p2ip-1"));
        QCOMPARE(readFile(broken), QByteArray("not a pdf"));
        QVERIFY(rem_pdf_keyword(broken).isNull());
    }

    void privateCopies()
    {
        QVERIFY(make_temp_fl({}).isEmpty());
        const QString a = m_root.filePath("mine a.pdf"), b = m_root.filePath("mine b.pdf");
        QVERIFY(writeFile(a, "A") && writeFile(b, "B"));
        const QStringList copies = make_temp_fl({b, a});
        QCOMPARE(copies.size(), 2);
        QCOMPARE(path_basename(copies[0]), QStringLiteral("mine b.pdf"));
        QCOMPARE(path_dirname(copies[0]), path_dirname(copies[1]));
        QVERIFY(path_dirname(copies[0]) != m_root.path());
        QCOMPARE(readFile(copies[1]), QByteArray("A"));
        QVERIFY(make_temp_fl({a}).first() != copies[1]); // a new folder each time
    }
};

QUIREPAD_REGISTER_TEST(FiltersTest);
#include "tst_filters.moc"
