// libqpdf without its transitional PointerHolder.
#define POINTERHOLDER_TRANSITION 4

#include "PdfFactory.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/ScriptedDialogService.h"
#include "foundation/TempArea.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"
#include "pipeline/WorkflowLibrary.h"
#include "pipeline/WorkflowRunner.h"
#include "pipeline/filters.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFWriter.hh>

#include <cstdio>
#include <exception>

#include <sys/stat.h>

using namespace quirepad;
using namespace quirepad::test;
using namespace std::chrono_literals;

namespace {

// What pdfinfo tells about the file, white space simplified ("Pages: 1 ...").
QString pdfInfo(const QString& pdf)
{
    QProcess info;
    info.start("pdfinfo", {pdf});
    info.waitForFinished(30000);
    return QString::fromUtf8(info.readAllStandardOutput()).simplified();
}

// The words pdftotext finds, in order.
QStringList pdfWords(const QString& pdf)
{
    QProcess text;
    text.start("pdftotext", { pdf, "-" });
    if (!text.waitForFinished(60000) || text.exitCode() != 0)
        return {};
    return QString::fromUtf8(text.readAllStandardOutput()).split(QRegularExpression("\\W+"), Qt::SkipEmptyParts);
}

// A minimal PDF with a correct cross-reference table: no rewrite makes it
// smaller.
QByteArray tinyPdf()
{
    const QList<QByteArray> objects { "<</Type/Catalog/Pages 2 0 R>>", "<</Type/Pages/Kids[3 0 R]/Count 1>>",
        "<</Type/Page/MediaBox[0 0 3 3]/Parent 2 0 R>>" };
    QByteArray pdf = "%PDF-1.1\n";
    QList<int> offsets;
    for (int i = 0; i < objects.size(); ++i) {
        offsets << int(pdf.size());
        pdf += QByteArray::number(i + 1) + " 0 obj" + objects[i] + "endobj\n";
    }
    const int xref = int(pdf.size());
    pdf += "xref\n0 4\n0000000000 65535 f \n";
    for (int offset : offsets)
        pdf += QByteArray::number(offset).rightJustified(10, '0') + " 00000 n \n";
    pdf += "trailer<</Size 4/Root 1 0 R>>\nstartxref\n" + QByteArray::number(xref) + "\n%%EOF\n";
    return pdf;
}

// Declares the document signed (AcroForm SigFlags), in place.
bool markSigned(const QString& path)
{
    try {
        QPDF pdf;
        pdf.processFile(QFile::encodeName(path).constData());
        pdf.getRoot().replaceKey("/AcroForm", QPDFObjectHandle::parse("<< /Fields [] /SigFlags 3 >>"));
        const QByteArray out = QFile::encodeName(path + ".signed");
        QPDFWriter writer(pdf, out.constData());
        writer.write();
    } catch (const std::exception&) {
        return false;
    }
    return ::rename(QFile::encodeName(path + ".signed").constData(), QFile::encodeName(path).constData()) == 0;
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
    // Writes a workflow into the staged resources; cleanupTestCase removes it.
    bool addBuiltIn(const QString& folder, const QString& name, const QByteArray& script = "#!/bin/sh\n")
    {
        m_builtIns << get_env("APP_RESOURCES") + "/" + folder + "/" + name + ".workflow";
        return QDir().mkpath(path_dirname(m_builtIns.last())) && writeFile(m_builtIns.last(), script, kExecutable);
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

    void init() { DialogService::setCurrent(std::unique_ptr<DialogService>(m_dialogs = new ScriptedDialogService)); }

    void noFilterMeansTheInput()
    {
        for (const QString name : {"none", ""})
            QCOMPARE(execute_filter("/some/input.pdf", name), QStringLiteral("/some/input.pdf"));
        QVERIFY(m_dialogs->interactions().isEmpty());
    }

    void filterMessages_data()
    {
        QTest::addColumn<QByteArray>("script"); // empty: no such filter
        QTest::addColumn<QString>("dialog"); // the last one shown; %1 is the filter's name
        const QString noFile = "alert: The filter %1 didn't return any file. Process returned with error (null)";
        QTest::newRow("missing") << QByteArray() << "alert: no filter plugin found for %1";
        QTest::newRow("returns a missing file") << QByteArray("#!/bin/sh\necho /nowhere/result.pdf\n") << noFile;
        QTest::newRow("returns nothing") << QByteArray("#!/bin/sh\nexit 0\n") << noFile;
        QTest::newRow("fails") << QByteArray("#!/bin/sh\necho 'bad page 3' >&2\nexit 2\n")
                               << "error: The filter %1 failed.";
    }

    void filterMessages()
    {
        QFETCH(QByteArray, script);
        QFETCH(QString, dialog);
        const QString name = QStringLiteral("Msg %1").arg(QTest::currentDataTag());
        if (!script.isEmpty())
            QVERIFY(writeFile(userFilters() + "/" + name + ".workflow", script, kExecutable));
        QCOMPARE(execute_filter("/in/put.pdf", name), QStringLiteral("/in/put.pdf"));
        const auto& asked = m_dialogs->interactions();
        QCOMPARE(asked.first().message + " " + asked.first().informative, "processing... applying filter " + name);
        QCOMPARE(ScriptedDialogService::kindName(asked.last().kind) + ": " + asked.last().message, dialog.arg(name));
        if (asked.last().kind == ScriptedDialogService::Kind::Error)
            QVERIFY(asked.last().informative.contains("bad page 3"));
    }

    void userFilterHidesTheBuiltIn()
    {
        const QString name = QStringLiteral("Shadowed %1").arg(QCoreApplication::applicationPid());
        QVERIFY(addBuiltIn("Filters", name, "#!/bin/sh\necho built-in\n"));
        QCOMPARE(filter_url(name).toLocalFile(), get_env("APP_RESOURCES") + "/Filters/" + name + ".workflow");
        QVERIFY(writeFile(userFilters() + "/" + name + ".workflow",
                          "#!/bin/sh\nprintf 'user' > \"$PWD/out.txt\"\necho \"$PWD/out.txt\"\n", kExecutable));
        QCOMPARE(readFile(execute_filter(m_root.filePath("in.pdf"), name)), QByteArray("user"));

        WorkflowLibrary library;
        library.refreshPluginList();
        QCOMPARE(library.allFilterFiles().count(name), 1);
    }

    // Workflows are found in the workflow folders, or at a full path that
    // only its owner (the user or root) can change; never relative to the
    // current folder.
    void workflowLookupIsConfined_data()
    {
        QTest::addColumn<QString>("given"); // %1: the test folder, %2: its name
        QTest::addColumn<int>("mode");       // of the planted workflow
        QTest::addColumn<bool>("found");
        QTest::newRow("name planted in the current folder") << "Planted" << 0755 << false;
        QTest::newRow("relative path") << "./Planted" << 0755 << false;
        QTest::newRow("name climbing out") << "../%2/Planted" << 0755 << false;
        QTest::newRow("full path, writable by all") << "%1/Planted" << 0777 << false;
        QTest::newRow("full path, the user's own") << "%1/Planted" << 0755 << true;
    }

    void workflowLookupIsConfined()
    {
        QFETCH(QString, given);
        QFETCH(int, mode);
        QFETCH(bool, found);
        const QString planted = m_root.filePath("Planted");
        QVERIFY(writeFile(planted, "#!/bin/sh\necho ran\n") && ::chmod(QFile::encodeName(planted).constData(), mode) == 0);
        const QString before = QDir::currentPath();
        QDir::setCurrent(m_root.path());
        const QUrl url = plugin_url(given.replace("%1", m_root.path()).replace("%2", QFileInfo(m_root.path()).fileName()));
        QDir::setCurrent(before);
        QCOMPARE(url.toLocalFile(), found ? planted : QString());
    }

    void pluginListSeparator_data()
    {
        QTest::addColumn<QStringList>("user");
        QTest::addColumn<QStringList>("builtIns");
        QTest::addColumn<QString>("expected");
        QTest::newRow("both") << QStringList{"b", "a"} << QStringList{"z", "y", "a"} << "a b --- y z";
        QTest::newRow("only user") << QStringList{"b", "a"} << QStringList{} << "a b";
        QTest::newRow("only built-in") << QStringList{} << QStringList{"z", "y"} << "y z";
        QTest::newRow("built-in all shadowed") << QStringList{"a"} << QStringList{"a"} << "a";
    }

    void pluginListSeparator()
    {
        QFETCH(QStringList, user);
        QFETCH(QStringList, builtIns);
        QFETCH(QString, expected);
        // Other plugins are listed too: the row's own carry a prefix.
        const QString tag = QStringLiteral("sep%1-").arg(QTest::currentDataTag()).replace(' ', '_');
        for (const QString& name : user)
            QVERIFY(writeFile(userPlugins() + "/" + tag + name + ".workflow", "#!/bin/sh\n", kExecutable));
        for (const QString& name : builtIns)
            QVERIFY(addBuiltIn("PlugIns", tag + name));
        WorkflowLibrary library;
        library.refreshPluginList();
        QStringList ours; // the row's names and the separator, which only counts between two of them
        for (const QString& entry : library.allPluginFiles())
            if (entry.startsWith(tag) || entry == "---")
                ours << entry.mid(entry == "---" ? 0 : tag.size());
        QCOMPARE(ours.join(' ').remove(QRegularExpression("^(--- )+| ---$")), expected);
    }

    void samplesInstallOnceAndNeverReplace()
    {
        if (!QFile::exists(get_env("APP_RESOURCES") + "/SampleFilters/Monochrome.workflow"))
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
    }

    void runnerDetails()
    {
        const QString folderWorkflow = m_root.filePath("Folder.workflow");
        QVERIFY(QDir().mkpath(folderWorkflow));
        QVERIFY(writeFile(folderWorkflow + "/run",
                          "#!/bin/sh\nn=$(ls -A | wc -l)\necho $n > count.txt\n"
                          "printf '%s|%s' \"$QUIREPAD_TITLE\" \"$1\" > job.txt\necho count.txt\necho job.txt\n",
                          kExecutable));
        const auto result = WorkflowRunner(folderWorkflow).setJobInfo({{"TITLE", "Zoë's job"}}).run("/in/put.pdf");
        QCOMPARE(result.status, WorkflowRunner::Status::Succeeded);
        const QString folder = result.workingDirectory; // relative results are resolved in it
        QCOMPARE(result.outputs, QStringList({folder + "/count.txt", folder + "/job.txt"}));
        QCOMPARE(readFile(result.outputs[0]).trimmed(), QByteArray("0")); // started in an empty folder
        QCOMPARE(QString::fromUtf8(readFile(result.outputs[1])), QStringLiteral("Zoë's job|/in/put.pdf"));

        QVERIFY(writeFile(m_root.filePath("Slow.workflow"), "#!/bin/sh\nsleep 30\n", kExecutable));
        QCOMPARE(WorkflowRunner(m_root.filePath("Slow.workflow")).setTimeout(300ms).run("x").status,
                 WorkflowRunner::Status::TimedOut);
        QVERIFY(QDir().mkpath(m_root.filePath("Empty.workflow")));
        QVERIFY(writeFile(m_root.filePath("Binary.workflow"), QByteArray("\x7f" "ELF garbage"), kExecutable));
        for (const char* name : {"Empty.workflow", "Binary.workflow"})
            QCOMPARE(WorkflowRunner(m_root.filePath(name)).run("x").status, WorkflowRunner::Status::NotExecutable);
    }

    // compress_pdf rewrites text documents in process (no Ghostscript),
    // reduces photographs below a lossless rewrite, and otherwise leaves
    // the file exactly as it was. A stand-in "gs" on PATH notes every
    // Ghostscript run.
    void compression_data()
    {
        QTest::addColumn<QString>("kind"); // what the file holds
        QTest::addColumn<QString>("suffix"); // of the file name
        QTest::addColumn<bool>("flag");
        QTest::addColumn<QString>("outcome"); // same | lossless | below-qpdf
        QTest::addColumn<bool>("ghostscript"); // whether Ghostscript is run
        QTest::newRow("article, lossless road") << "article"
                                                << ".pdf" << true << "lossless" << false;
        QTest::newRow("photos, below qpdf") << "photo"
                                            << ".pdf" << true << "below-qpdf" << false;
        QTest::newRow("flag off") << "photo"
                                  << ".pdf" << false << "same" << false;
        QTest::newRow("capital extension") << "photo"
                                           << ".PDF" << true << "same" << false;
        QTest::newRow("no extension") << "photo"
                                      << "" << true << "same" << false;
        QTest::newRow("tiny file would grow") << "tiny"
                                              << ".pdf" << true << "same" << false;
        QTest::newRow("signed") << "signed"
                                << ".pdf" << true << "same" << false;
        // Files libqpdf cannot read cleanly go to Ghostscript, as before.
        QTest::newRow("tiny without xref would grow") << "no-xref"
                                                      << ".pdf" << true << "same" << true;
        QTest::newRow("damaged") << "damaged"
                                 << ".pdf" << true << "same" << true;
    }

    void compression()
    {
        QFETCH(QString, kind);
        QFETCH(QString, suffix);
        QFETCH(bool, flag);
        QFETCH(QString, outcome);
        QFETCH(bool, ghostscript);
        const QString realGs = QStandardPaths::findExecutable("gs");
        if (realGs.isEmpty())
            QSKIP("Ghostscript is not installed");
        const QString bin = m_root.filePath("fake-bin"), runs = m_root.filePath("gs-runs.txt");
        QVERIFY(QDir().mkpath(bin));
        QVERIFY(writeFile(bin + "/gs",
            QString("#!/bin/sh\necho run >> '%1'\nexec '%2' \"$@\"\n").arg(runs, realGs).toUtf8(), kExecutable));
        QFile::remove(runs);

        const QString name = QString(QTest::currentDataTag()).replace(' ', '_').remove(',');
        const QString path = m_root.filePath(name + suffix);
        if (kind == "article")
            QVERIFY(test::PdfFactory::articlePdf(path, 2));
        else if (kind == "photo")
            QVERIFY(test::PdfFactory::cameraPhotoPdf(path, 1, QSize(1600, 1000), 92));
        else if (kind == "signed")
            QVERIFY(test::PdfFactory::cameraPhotoPdf(path, 1, QSize(1600, 1000), 92) && markSigned(path));
        else if (kind == "tiny")
            QVERIFY(writeFile(path, tinyPdf()));
        else if (kind == "no-xref")
            QVERIFY(writeFile(path,
                "%PDF-1.1\n1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj 2 0 obj<</Type/Pages/Kids[3 0 R]"
                "/Count 1>>endobj 3 0 obj<</Type/Page/MediaBox[0 0 3 3]/Parent 2 0 R>>endobj\n"
                "trailer<</Root 1 0 R>>\n%%EOF\n"));
        else
            QVERIFY(writeFile(path, "%PDF-1.4\n1 0 obj << /Type /Catalog /Pages 2 0 R >>\nstream\n\xff\xfe garbage"));
        const QByteArray before = readFile(path);
        const QStringList wordsBefore = pdfWords(path);

        const QByteArray oldPath = qgetenv("PATH");
        qputenv("PATH", bin.toUtf8() + ":" + oldPath);
        compress_pdf(path, flag);
        qputenv("PATH", oldPath);

        const QByteArray after = readFile(path);
        QCOMPARE(QFile::exists(runs), ghostscript);
        if (outcome == "same") {
            QCOMPARE(after, before);
        } else if (outcome == "lossless") {
            QVERIFY2(after.size() <= before.size(),
                qPrintable(QString("%1 -> %2 bytes").arg(before.size()).arg(after.size())));
            QVERIFY(!wordsBefore.isEmpty());
            QCOMPARE(pdfWords(path), wordsBefore);
        } else {
            const QString lossless = m_root.filePath(name + "-qpdf.pdf");
            QProcess qpdf;
            QVERIFY(writeFile(m_root.filePath(name + "-in.pdf"), before));
            qpdf.start("qpdf",
                { "--object-streams=generate", "--recompress-flate", m_root.filePath(name + "-in.pdf"), lossless });
            QVERIFY(qpdf.waitForFinished(60000) && (qpdf.exitCode() == 0 || qpdf.exitCode() == 3));
            QVERIFY2(after.size() < QFileInfo(lossless).size(),
                qPrintable(QString("%1 bytes, qpdf %2").arg(after.size()).arg(QFileInfo(lossless).size())));
            QProcess render;
            render.start("pdftoppm", { "-r", "20", path, m_root.filePath(name + "-page") });
            QVERIFY(
                render.waitForFinished(60000) && render.exitStatus() == QProcess::NormalExit && render.exitCode() == 0);
            QVERIFY(pdfInfo(path).contains("Pages: 1 "));
        }
        QVERIFY(
            QDir(TempArea::instance().currentDir()).entryList({ "compress*" }, QDir::Dirs).isEmpty()); // no leftovers
    }

    void markerKeywords()
    {
        const QString pdf = m_root.filePath("keywords.pdf");
        QVERIFY(test::PdfFactory::textPdf(pdf, {"Keyword page"}));
        QVERIFY(get_pdf_keyword(pdf).isNull());
        for (const char* keyword : {"invoice", "A7G_p2ip-42", "A7G_p2ip-43"})
            QVERIFY(add_pdf_keyword(pdf, keyword));
        QCOMPARE(get_pdf_keyword(pdf), QStringLiteral("A7G_p2ip-42"));
        QCOMPARE(rem_pdf_keyword(pdf), QStringLiteral("A7G_p2ip-42"));
        QCOMPARE(get_pdf_keyword(pdf), QStringLiteral("A7G_p2ip-43"));
        const QString info = pdfInfo(pdf);
        QVERIFY2(info.contains("Keywords: invoice, A7G_p2ip-43 ") && info.contains("Pages: 1 "), qPrintable(info));

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
        const QString folder = path_dirname(copies.value(0));
        QCOMPARE(copies, QStringList({folder + "/mine b.pdf", folder + "/mine a.pdf"})); // one new folder
        QVERIFY(folder != m_root.path());
        QCOMPARE(readFile(copies[1]), QByteArray("A"));
        QVERIFY(make_temp_fl({a}).first() != copies[1]); // a new folder each time
    }
};

QUIREPAD_REGISTER_TEST(FiltersTest);
#include "tst_filters.moc"
