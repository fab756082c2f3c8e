#include "PdfFactory.h"
#include "TestFiles.h"
#include "TestRegistry.h"
#include "pipeline/WorkflowRunner.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

using namespace quirepad;
using namespace quirepad::test;
using Status = WorkflowRunner::Status;

namespace {

QStringList contentsOf(const QString& folder)
{
    QStringList names;
    QDirIterator it(
        folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext())
        names << QDir(folder).relativeFilePath(it.next());
    names.sort();
    return names;
}

// A tool's standard output; *ok tells whether it exited with 0.
QByteArray tool(const QString& program, const QStringList& arguments, bool* ok = nullptr)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(120000))
        process.kill();
    if (ok)
        *ok = process.error() == QProcess::UnknownError && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0;
    return process.readAllStandardOutput();
}

QString pdfInfo(const QString& pdf, const QString& key)
{
    for (const QString& line : QString::fromUtf8(tool("pdfinfo", { pdf })).split('\n'))
        if (line.startsWith(key + ':'))
            return line.mid(key.size() + 1).trimmed();
    return {};
}

struct ImageRow {
    QString color; // gray, rgb, cmyk...
    int components = 0;
    int bitsPerComponent = 0;
    int xPpi = 0;
};

// `pdfimages -list`: one row per image drawn.
QList<ImageRow> imagesOf(const QString& pdf)
{
    QList<ImageRow> rows;
    const QStringList lines = QString::fromUtf8(tool("pdfimages", { "-list", pdf })).split('\n', Qt::SkipEmptyParts);
    for (qsizetype i = 2; i < lines.size(); ++i) {
        const QStringList cells = lines[i].split(' ', Qt::SkipEmptyParts);
        if (cells.size() >= 14)
            rows.append({ cells[5], cells[6].toInt(), cells[7].toInt(), cells[12].toInt() });
    }
    return rows;
}

// Page one rendered by pdftoppm (gray or colour); null on failure.
QImage render(const QString& pdf, int dpi, bool gray, const QStringList& extra = {})
{
    const QString prefix = QFileInfo(pdf).absolutePath() + "/render-" + QString::number(qHash(pdf));
    bool ok = false;
    tool("pdftoppm",
        QStringList { "-r", QString::number(dpi), "-l", "1", "-singlefile" }
            << (gray ? QStringList { "-gray" } : QStringList()) << extra << pdf << prefix,
        &ok);
    const QString file = prefix + (gray ? ".pgm" : ".ppm");
    const QImage image = ok ? QImage(file) : QImage();
    QFile::remove(file);
    return image;
}

int darkest(const QImage& image, const QRect& rect)
{
    int value = 255;
    const QRect area = rect.intersected(image.rect());
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            value = qMin(value, qGray(image.pixel(x, y)));
    return value;
}

// A PDF's objects, as qpdf's JSON shows them: "4 0 R" (and "trailer") to the
// value, a stream by its dictionary.
using Objects = QMap<QString, QJsonValue>;

Objects objectsOf(const QString& pdf, QByteArray* json = nullptr)
{
    const QByteArray text = tool("qpdf", { "--json=2", "--json-key=qpdf", pdf });
    if (json)
        *json = text;
    const QJsonObject all = QJsonDocument::fromJson(text).object().value("qpdf").toArray().at(1).toObject();
    Objects objects;
    for (auto it = all.begin(); it != all.end(); ++it) {
        const QJsonObject object = it.value().toObject();
        objects.insert(it.key().startsWith("obj:") ? it.key().mid(4) : it.key(),
            object.contains("stream") ? object.value("stream").toObject().value("dict") : object.value("value"));
    }
    return objects;
}

QJsonValue resolve(const Objects& objects, const QJsonValue& value)
{
    static const QRegularExpression reference("^\\d+ \\d+ R$");
    return reference.match(value.toString()).hasMatch() ? objects.value(value.toString()) : value;
}

QJsonObject root(const Objects& objects)
{
    return resolve(objects, objects.value("trailer").toObject().value("/Root")).toObject();
}

QList<QJsonObject> pagesOf(const Objects& objects)
{
    QList<QJsonObject> pages;
    for (const QJsonValue& value : objects)
        if (value.toObject().value("/Type").toString() == "/Page")
            pages << value.toObject();
    return pages;
}

// The operators of a PDF's content streams (pages' and form XObjects'),
// each with how often it occurs.
QMap<QString, int> contentOperators(const QString& pdf)
{
    static const QRegularExpression operatorToken("^[A-Za-z'\"][A-Za-z0-9*]*$");
    const Objects objects = objectsOf(pdf);
    QStringList streams;
    for (const QJsonObject& page : pagesOf(objects)) {
        const QJsonValue contents = page.value("/Contents");
        for (const QJsonValue& part : contents.isArray() ? contents.toArray() : QJsonArray { contents })
            streams << part.toString();
    }
    for (auto it = objects.begin(); it != objects.end(); ++it)
        if (it.value().toObject().value("/Subtype").toString() == "/Form")
            streams << it.key();
    QMap<QString, int> operators;
    for (const QString& ref : streams) {
        const QString number = ref.section(' ', 0, 0) + "," + ref.section(' ', 1, 1);
        QString text = QString::fromLatin1(tool("qpdf", { "--show-object=" + number, "--filtered-stream-data", pdf }));
        text.remove(QRegularExpression("\\((?:\\\\.|[^\\\\()])*\\)")); // strings may hold anything
        text.remove(QRegularExpression("<[0-9A-Fa-f\\s]*>"));
        text.replace('/', QStringLiteral(" /"));
        for (const QString& token : text.split(QRegularExpression("[\\s\\[\\]<>{}]+"), Qt::SkipEmptyParts))
            if (operatorToken.match(token).hasMatch())
                ++operators[token];
    }
    return operators;
}

QByteArray streamObject(const QByteArray& dictionary, const QByteArray& data)
{
    return "<< " + dictionary + " /Length " + QByteArray::number(data.size()) + " >>\nstream\n" + data + "\nendstream";
}

// A US Letter page with a line of text and, only as annotations: a filled-in
// text field without an appearance, a ticked check box, a red square and a link.
QByteArray formPdf()
{
    const QList<QByteArray> objects {
        "<< /Type /Catalog /Pages 2 0 R /AcroForm << /Fields [4 0 R 10 0 R] /DR << /Font << /Helv 5 0 R >> >>"
        " /DA (/Helv 0 Tf 0 g) /NeedAppearances true >> >>",
        "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << /Font << /F1 5 0 R >> >>"
        " /Contents 6 0 R /Annots [4 0 R 7 0 R 9 0 R 10 0 R] >>",
        "<< /Type /Annot /Subtype /Widget /FT /Tx /T (name) /V (Filled value) /Rect [100 600 400 640] /F 4"
        " /P 3 0 R /DA (/Helv 24 Tf 0 0 1 rg) >>",
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>",
        streamObject("", "BT /F1 18 Tf 72 700 Td (Page words) Tj ET"),
        "<< /Type /Annot /Subtype /Square /Rect [100 300 300 400] /C [1 0 0] /IC [1 0 0] /F 4"
        " /AP << /N 8 0 R >> >>",
        streamObject("/Type /XObject /Subtype /Form /BBox [0 0 200 100]", "1 0 0 rg 0 0 200 100 re f"),
        "<< /Type /Annot /Subtype /Link /Rect [72 690 200 720] /Border [0 0 0]"
        " /A << /S /URI /URI (https://example.org/) >> >>",
        "<< /Type /Annot /Subtype /Widget /FT /Btn /T (agree) /V /Yes /AS /Yes /Rect [450 600 490 640] /F 4"
        " /P 3 0 R /AP << /N << /Yes 11 0 R /Off 12 0 R >> >> >>",
        streamObject("/Type /XObject /Subtype /Form /BBox [0 0 40 40]", "0 g 0 0 40 40 re f"),
        streamObject("/Type /XObject /Subtype /Form /BBox [0 0 40 40]", ""),
    };
    QByteArray pdf = "%PDF-1.7\n%\xE2\xE3\xCF\xD3\n";
    QByteArray xref = "xref\n0 " + QByteArray::number(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (qsizetype i = 0; i < objects.size(); ++i) {
        xref += QByteArray::number(pdf.size()).rightJustified(10, '0') + " 00000 n \n";
        pdf += QByteArray::number(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    return pdf + xref + "trailer\n<< /Size " + QByteArray::number(objects.size() + 1) + " /Root 1 0 R >>\nstartxref\n"
        + QByteArray::number(pdf.size()) + "\n%%EOF\n";
}

// Where the form's annotations are, in pixels of a 72 dpi rendering.
const QRect kFieldArea(100, 792 - 640, 300, 40);
const QRect kCheckBoxArea(450 + 5, 792 - 640 + 5, 30, 30);
const QRect kSquareArea(100 + 5, 792 - 400 + 5, 190, 90);

// What a PDF still has that is interactive: "AcroForm", "Annots".
QString interactiveParts(const QString& pdf)
{
    const Objects objects = objectsOf(pdf);
    if (!objects.contains("trailer"))
        return "unreadable";
    QStringList parts;
    if (root(objects).contains("/AcroForm"))
        parts << "AcroForm";
    for (const QJsonObject& page : pagesOf(objects))
        if (!resolve(objects, page.value("/Annots")).toArray().isEmpty())
            parts << "Annots";
    return parts.join(' ');
}

} // namespace

#define VERIFY_SUCCEEDED(result) QVERIFY2((result).status == Status::Succeeded, qPrintable((result).errorText))

class SampleWorkflowsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    std::optional<QByteArray> m_oldTmp; // TMPDIR as it was
    QString m_text; // three pages of words, some not ASCII
    QString m_colour; // coloured shapes, coloured text, a colour photograph
    QString m_form; // form fields and annotations (formPdf)
    QString m_damaged; // a PDF cut short and filled up with garbage
    QString m_odd; // one page, under a name with spaces, quotes and "ë"
    int m_outputs = 0;

    static QString resources() { return QCoreApplication::applicationDirPath() + "/../share/quirepad/Resources"; }
    static QString plugin(const QString& name) { return resources() + "/SamplePlugins/" + name; }
    static QString filter(const QString& name) { return resources() + "/SampleFilters/" + name; }

    QString newOutputFolder()
    {
        const QString folder = m_root.filePath(QStringLiteral("out/%1").arg(++m_outputs));
        QDir().mkpath(folder);
        return folder;
    }

    WorkflowRunner::Result run(const QString& workflow, const QString& input, const QString& outputFolder,
        const QString& title = QStringLiteral("Sample job"))
    {
        QVariantMap info { { "TITLE", title } };
        if (!outputFolder.isEmpty())
            info.insert("OUTPUT_DIR", outputFolder);
        return WorkflowRunner(workflow).setJobInfo(info).setTimeout(std::chrono::minutes(2)).run(input);
    }

    // The one PDF a filter leaves in its working folder, named as the input;
    // empty, with a warning, when it fails or leaves anything else.
    QString runFilter(const QString& name, const QString& input, const QString& title = "Sample job")
    {
        const auto result = run(filter(name), input, QString(), title);
        const QStringList left = contentsOf(result.workingDirectory);
        if (result.status == Status::Succeeded && left == QStringList { QFileInfo(input).fileName() }
            && result.outputs == QStringList { result.workingDirectory + "/" + left.first() })
            return result.outputs.first();
        qWarning() << name << result.errorText << result.outputs << left;
        return {};
    }

    // Runs a plug-in again after the user edited its first results: they
    // stay as they are, and the new ones take the next free names.
    void verifySecondRun(const QString& workflow, const QStringList& firstOutputs, const QStringList& expected)
    {
        for (const QString& path : firstOutputs)
            QVERIFY(writeFile(path, "edited"));
        const auto again = run(workflow, m_text, QFileInfo(firstOutputs.value(0)).absolutePath());
        VERIFY_SUCCEEDED(again);
        QCOMPARE(again.outputs, expected);
        for (const QString& path : firstOutputs)
            QCOMPARE(readFile(path), QByteArray("edited"));
        for (const QString& path : again.outputs)
            QVERIFY(QFileInfo(path).size() > 0 && readFile(path) != "edited");
    }

    // Every sample; "extension" is what a plug-in appends to the name.
    static void addWorkflowRows()
    {
        QTest::addColumn<QString>("workflow");
        QTest::addColumn<QString>("extension");
        QTest::newRow("SaveAsImage") << plugin("SaveAsImage.workflow") << "-1.png";
        QTest::newRow("SaveAsText") << plugin("SaveAsText.workflow") << ".txt";
        QTest::newRow("SaveAsWebPage") << plugin("SaveAsWebPage.workflow") << ".html";
        QTest::newRow("FlattenPlugin") << plugin("FlattenPlugin.workflow") << ".pdf";
        for (const char* name : { "Monochrome", "CMYK color", "Grayscale color", "PDF X-3", "FlattenFilter" })
            QTest::newRow(name) << filter(QString::fromUtf8(name) + ".workflow") << "";
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        // The runner's working folders land inside m_root and go with it.
        QVERIFY(QDir().mkpath(m_root.filePath("tmp")) && QDir().mkpath(m_root.filePath("in")));
        if (qEnvironmentVariableIsSet("TMPDIR"))
            m_oldTmp = qgetenv("TMPDIR");
        qputenv("TMPDIR", QFile::encodeName(m_root.filePath("tmp")));
        for (const char* program : { "pdftoppm", "pdfinfo", "pdfimages", "qpdf", "gs" })
            if (QStandardPaths::findExecutable(program).isEmpty())
                QSKIP(qPrintable(QStringLiteral("%1 is not installed").arg(program)));
        if (!QFileInfo::exists(plugin("SaveAsText.workflow")))
            QFAIL(qPrintable("the sample workflows are not staged in " + resources()));

        m_text = m_root.filePath("in/Words.pdf");
        QVERIFY(PdfFactory::textPdf(m_text,
            { QStringLiteral("Hello Zoë, this is page one"), QStringLiteral("Café prices on page two"),
                QStringLiteral("Déjà vu on page three") }));
        m_colour = m_root.filePath("in/Colours.pdf");
        QVERIFY(PdfFactory::colourPdf(m_colour));
        m_form = m_root.filePath("in/Form.pdf");
        QVERIFY(writeFile(m_form, formPdf()));
        bool sound = false;
        tool("qpdf", { "--check", m_form }, &sound);
        QVERIFY2(sound, "the hand-written form PDF is damaged");
        QCOMPARE(interactiveParts(m_form), QStringLiteral("AcroForm Annots"));

        // The start of a real PDF, then noise: no cross-reference table, no trailer.
        QByteArray damaged = readFile(m_text).left(600);
        quint32 seed = 12345;
        for (int i = 0; i < 4000; ++i)
            damaged += char((seed = seed * 1664525u + 1013904223u) >> 24);
        m_damaged = m_root.filePath("in/Damaged.pdf");
        QVERIFY(writeFile(m_damaged, damaged));

        m_odd = m_root.filePath(QStringLiteral("in/Zoë's \"odd\" (copy) name.pdf"));
        QVERIFY(PdfFactory::textPdf(m_odd, { QStringLiteral("Odd name, plain words") }));
    }

    void cleanupTestCase() { m_oldTmp ? qputenv("TMPDIR", *m_oldTmp) : qunsetenv("TMPDIR"); }

    void saveAsImageOnePngPerPageNeverOverwriting()
    {
        const QString out = newOutputFolder();
        const auto result = run(plugin("SaveAsImage.workflow"), m_text, out);
        VERIFY_SUCCEEDED(result);
        QCOMPARE(result.outputs, QStringList({ out + "/Words-1.png", out + "/Words-2.png", out + "/Words-3.png" }));

        const QStringList points = pdfInfo(m_text, "Page size").split(' '); // "595 x 842 pts (A4)"
        QList<QImage> pages;
        for (const QString& path : result.outputs) {
            QVERIFY(readFile(path).startsWith("\x89PNG\r\n\x1a\n"));
            const QImage image = QImage(path).convertToFormat(QImage::Format_Grayscale8);
            QVERIFY2(!image.isNull(), qPrintable(path));
            // The page at 150 dpi: black words on white paper.
            QVERIFY(qAbs(image.width() - points.value(0).toDouble() * 150 / 72) <= 1.0);
            QVERIFY(qAbs(image.height() - points.value(2).toDouble() * 150 / 72) <= 1.0);
            QCOMPARE(qGray(image.pixel(5, 5)), 255);
            QVERIFY(darkest(image, image.rect()) < 64);
            pages << image;
        }
        QVERIFY(pages[0] != pages[1] && pages[1] != pages[2]);
        verifySecondRun(plugin("SaveAsImage.workflow"), result.outputs,
            { out + "/Words 2-1.png", out + "/Words 2-2.png", out + "/Words 2-3.png" });
    }

    void saveAsTextKeepsTheWordsNeverOverwriting()
    {
        const QString out = newOutputFolder();
        const auto result = run(plugin("SaveAsText.workflow"), m_text, out);
        VERIFY_SUCCEEDED(result);
        QCOMPARE(result.outputs, QStringList { out + "/Words.txt" });
        const QString text = QString::fromUtf8(readFile(result.outputs.first())).simplified();
        const qsizetype one = text.indexOf(QStringLiteral("Hello Zoë, this is page one"));
        const qsizetype two = text.indexOf(QStringLiteral("Café prices on page two"));
        const qsizetype three = text.indexOf(QStringLiteral("Déjà vu on page three"));
        QVERIFY2(one >= 0 && two > one && three > two, qPrintable(text));
        verifySecondRun(plugin("SaveAsText.workflow"), result.outputs, { out + "/Words 2.txt" });
    }

    void saveAsWebPageIsOneSelfContainedPage()
    {
        const QString out = newOutputFolder();
        const auto result = run(plugin("SaveAsWebPage.workflow"), m_colour, out);
        VERIFY_SUCCEEDED(result);
        QCOMPARE(result.outputs, QStringList { out + "/Colours.html" });
        QCOMPARE(contentsOf(out), QStringList { "Colours.html" }); // nothing beside it
        const QString html = QString::fromUtf8(readFile(result.outputs.first())).replace("&#160;", " ");
        QVERIFY(html.contains("<html"));
        // Every picture is inlined, and the page's graphics decode as an image.
        const QRegularExpression inlined("<img[^>]*src=\"data:image/[a-z]+;base64,([^\"]*)\"");
        QVERIFY(html.count("<img") >= 1 && html.count(inlined) == html.count("<img"));
        QVERIFY(!QImage::fromData(QByteArray::fromBase64(inlined.match(html).captured(1).toLatin1())).isNull());
        QVERIFY(QString(html).remove(QRegularExpression("<[^>]*>")).simplified().contains("Colourful words"));
    }

    void flattening_data()
    {
        QTest::addColumn<QString>("workflow");
        QTest::addColumn<bool>("isPlugin");
        QTest::newRow("plug-in") << plugin("FlattenPlugin.workflow") << true;
        QTest::newRow("filter") << filter("FlattenFilter.workflow") << false;
    }

    void flattening()
    {
        QFETCH(QString, workflow);
        QFETCH(bool, isPlugin);
        const QString out = newOutputFolder();
        const auto result = run(workflow, m_form, out);
        VERIFY_SUCCEEDED(result);
        const QString folder = isPlugin ? out : result.workingDirectory;
        QCOMPARE(result.outputs, QStringList { folder + "/Form.pdf" });
        const QString pdf = result.outputs.first();
        QCOMPARE(interactiveParts(pdf), QString());

        // With annotations hidden, their places are blank in the input but
        // show the field's text, the check mark and the square in the result.
        const QImage before = render(m_form, 72, true, { "-hide-annotations" });
        QVERIFY(!before.isNull());
        QCOMPARE(darkest(before, kFieldArea) + darkest(before, kCheckBoxArea) + darkest(before, kSquareArea), 3 * 255);
        const QImage after = render(pdf, 72, true, { "-hide-annotations" });
        QCOMPARE(after.size(), before.size());
        QVERIFY2(darkest(after, kFieldArea) < 128, "the field's text is missing");
        QVERIFY2(darkest(after, kCheckBoxArea) < 64, "the check mark is missing");
        QVERIFY2(darkest(after, kSquareArea) < 200, "the square is missing");
        QVERIFY(QString::fromUtf8(tool("pdftotext", { pdf, "-" })).contains("Page words"));
    }

    void monochromeIsBlackAndWhite()
    {
        const QString pdf = runFilter("Monochrome.workflow", m_colour);
        QVERIFY(!pdf.isEmpty());
        // The page is made of 1-bit images only.
        const QList<ImageRow> images = imagesOf(pdf);
        QVERIFY(!images.isEmpty());
        for (const ImageRow& image : images)
            QVERIFY(image.components == 1 && image.bitsPerComponent == 1);
        // Rendered at the images' own resolution, without smoothing, every
        // pixel is black or white, and there is plenty of both.
        QVERIFY(images.first().xPpi >= 150);
        const QImage page = render(pdf, images.first().xPpi, true, { "-aa", "no", "-aaVector", "no" })
                                .convertToFormat(QImage::Format_Grayscale8);
        QVERIFY(!page.isNull());
        qint64 counts[256] = {};
        for (int y = 0; y < page.height(); ++y)
            for (int x = 0; x < page.width(); ++x)
                ++counts[page.constScanLine(y)[x]];
        const qint64 all = qint64(page.width()) * page.height();
        QCOMPARE(counts[0] + counts[255], all);
        QVERIFY(counts[0] > all / 50 && counts[255] > all / 2);
    }

    void colourConversion_data()
    {
        QTest::addColumn<QString>("workflow");
        QTest::addColumn<bool>("cmyk"); // else gray
        QTest::newRow("grayscale") << "Grayscale color.workflow" << false;
        QTest::newRow("CMYK") << "CMYK color.workflow" << true;
        QTest::newRow("PDF/X-3") << "PDF X-3.workflow" << true;
    }

    void colourConversion()
    {
        QFETCH(QString, workflow);
        QFETCH(bool, cmyk);
        const QString used = cmyk ? "k" : "g"; // the colour operator, or its stroking form
        const QStringList forbidden = cmyk
            ? QStringList { "rg", "RG", "/DeviceRGB" }
            : QStringList { "rg", "RG", "k", "K", "sc", "SC", "scn", "SCN", "/DeviceRGB", "/DeviceCMYK", "/ICCBased" };
        const QString pdf = runFilter(workflow, m_colour);
        QVERIFY(!pdf.isEmpty());
        const QList<ImageRow> images = imagesOf(pdf);
        QVERIFY(!images.isEmpty());
        for (const ImageRow& image : images) {
            QCOMPARE(image.color, QString(cmyk ? "cmyk" : "gray"));
            QCOMPARE(image.components, cmyk ? 4 : 1);
        }
        const QMap<QString, int> operators = contentOperators(pdf);
        QVERIFY2(operators.value(used) + operators.value(used.toUpper()) > 0,
            qPrintable(QStringList(operators.keys()).join(' ')));
        QByteArray json;
        objectsOf(pdf, &json);
        for (const QString& name : forbidden)
            QVERIFY2(name.startsWith('/') ? !json.contains('"' + name.toUtf8() + '"') : !operators.contains(name),
                qPrintable(name));

        // The red box is still there: gray on a page of grays, or red.
        const QImage page = render(pdf, 36, false);
        QVERIFY(!page.isNull());
        const QRgb box = page.pixel(300 * 36 / 150, 250 * 36 / 150);
        if (cmyk) {
            QVERIFY2(qRed(box) > qGreen(box) + 80 && qRed(box) > qBlue(box) + 80, qPrintable(QString::number(box, 16)));
            return;
        }
        QVERIFY(qGray(box) < 200);
        for (int y = 0; y < page.height(); ++y)
            for (int x = 0; x < page.width(); ++x)
                if (const QRgb p = page.pixel(x, y); qRed(p) != qGreen(p) || qGreen(p) != qBlue(p))
                    QFAIL(qPrintable(QStringLiteral("colour %1 at %2,%3").arg(p, 0, 16).arg(x).arg(y)));
    }

    void pdfX3HasVersionAndOutputIntent()
    {
        const QString pdf = runFilter("PDF X-3.workflow", m_form, QStringLiteral("Zoë's report"));
        QVERIFY(!pdf.isEmpty());
        QCOMPARE(pdfInfo(pdf, "PDF subtype"), QStringLiteral("PDF/X-3:2002"));
        const Objects objects = objectsOf(pdf);
        const QJsonObject info = resolve(objects, objects.value("trailer").toObject().value("/Info")).toObject();
        QCOMPARE(info.value("/GTS_PDFXVersion").toString(), QStringLiteral("u:PDF/X-3:2002"));
        const QJsonArray intents = resolve(objects, root(objects).value("/OutputIntents")).toArray();
        QCOMPARE(intents.size(), 1);
        const QJsonObject intent = resolve(objects, intents.first()).toObject();
        QCOMPARE(intent.value("/S").toString(), QStringLiteral("/GTS_PDFX"));
        QVERIFY(!intent.value("/OutputConditionIdentifier").toString().isEmpty());
        QCOMPARE(resolve(objects, intent.value("/DestOutputProfile")).toObject().value("/N").toInt(), 4);
        for (const QJsonObject& page : pagesOf(objects))
            QVERIFY(page.contains("/TrimBox") || page.contains("/ArtBox"));
        // The job's title stands in for the missing one; PDF/X wants no
        // annotations, so they are drawn into the page.
        QCOMPARE(pdfInfo(pdf, "Title"), QStringLiteral("Zoë's report"));
        QCOMPARE(interactiveParts(pdf), QString());
        QVERIFY(darkest(render(pdf, 72, true), kSquareArea) < 200);
    }

    void namesWithSpacesQuotesAndAccents_data() { addWorkflowRows(); }

    void namesWithSpacesQuotesAndAccents()
    {
        QFETCH(QString, workflow);
        QFETCH(QString, extension);
        const bool isPlugin = !extension.isEmpty();
        const QString out = newOutputFolder();
        const auto result = run(workflow, m_odd, out);
        VERIFY_SUCCEEDED(result);
        const QString name = QStringLiteral("Zoë's \"odd\" (copy) name") + (isPlugin ? extension : ".pdf");
        const QString folder = isPlugin ? out : result.workingDirectory;
        QCOMPARE(result.outputs, QStringList { folder + "/" + name });
        QVERIFY(QFileInfo(result.outputs.first()).size() > 0);
        QCOMPARE(contentsOf(folder), QStringList { name });
        if (isPlugin)
            QCOMPARE(contentsOf(result.workingDirectory), QStringList());
    }

    void damagedInputFails_data() { addWorkflowRows(); }

    void damagedInputFails()
    {
        QFETCH(QString, workflow);
        const QString out = newOutputFolder();
        const auto result = run(workflow, m_damaged, out);
        QCOMPARE(result.status, Status::Failed);
        // One line naming the file; nothing half made is left behind.
        QVERIFY2(!result.errorText.contains('\n'), qPrintable(result.errorText));
        QVERIFY2(result.errorText.contains("Damaged.pdf"), qPrintable(result.errorText));
        QCOMPARE(result.outputs, QStringList());
        QCOMPARE(contentsOf(out), QStringList());
        QCOMPARE(contentsOf(result.workingDirectory), QStringList());
    }
};

QUIREPAD_REGISTER_TEST(SampleWorkflowsTest);
#include "tst_samples.moc"
