#include "PdfFactory.h"
#include "TestRegistry.h"
#include "pipeline/WorkflowRunner.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
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
#include <QXmlStreamReader>

#include <functional>

using namespace quirepad;
using quirepad::test::PdfFactory;
using Status = WorkflowRunner::Status;

namespace {

// --- files and tools ---------------------------------------------------------

bool writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray sha1(const QString& path)
{
    return QCryptographicHash::hash(readFile(path), QCryptographicHash::Sha1);
}

// Everything inside a folder, hidden entries too, as relative paths.
QStringList contentsOf(const QString& folder)
{
    QStringList names;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        names << QDir(folder).relativeFilePath(it.next());
    names.sort();
    return names;
}

struct ToolRun {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

ToolRun tool(const QString& program, const QStringList& arguments)
{
    ToolRun run;
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForStarted(10000)) {
        run.err = "cannot start " + program.toUtf8();
        return run;
    }
    if (!process.waitForFinished(120000)) {
        process.kill();
        process.waitForFinished();
        run.err = program.toUtf8() + " ran too long";
        return run;
    }
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    if (process.exitStatus() == QProcess::NormalExit)
        run.exitCode = process.exitCode();
    return run;
}

// pdfinfo's "Key: value" lines.
QMap<QString, QString> pdfInfo(const QString& pdf)
{
    QMap<QString, QString> info;
    const ToolRun run = tool("pdfinfo", {pdf});
    for (const QString& line : QString::fromUtf8(run.out).split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && !info.contains(line.left(colon)))
            info.insert(line.left(colon), line.mid(colon + 1).trimmed());
    }
    return info;
}

int pageCount(const QString& pdf)
{
    bool ok = false;
    const int pages = pdfInfo(pdf).value("Pages").toInt(&ok);
    return ok ? pages : -1;
}

// The size of the first page in points, from pdfinfo ("595 x 842 pts (A4)").
QSizeF pageSize(const QString& pdf)
{
    const QStringList words = pdfInfo(pdf).value("Page size").split(' ', Qt::SkipEmptyParts);
    return words.size() >= 3 ? QSizeF(words[0].toDouble(), words[2].toDouble()) : QSizeF();
}

struct ImageRow {
    QString type;  // image, stencil, smask...
    QString color; // gray, rgb, cmyk, -...
    int components = 0;
    int bitsPerComponent = 0;
    int xPpi = 0;
};

// `pdfimages -list`: one row per image drawn.
QList<ImageRow> imagesOf(const QString& pdf)
{
    QList<ImageRow> rows;
    const ToolRun run = tool("pdfimages", {"-list", pdf});
    const QStringList lines = QString::fromUtf8(run.out).split('\n', Qt::SkipEmptyParts);
    for (qsizetype i = 2; i < lines.size(); ++i) {
        const QStringList cells = lines[i].split(' ', Qt::SkipEmptyParts);
        if (cells.size() < 14)
            continue;
        rows.append({cells[2], cells[5], cells[6].toInt(), cells[7].toInt(), cells[12].toInt()});
    }
    return rows;
}

// Renders one page with pdftoppm into a QImage (PGM when gray, PPM otherwise).
QImage render(const QString& pdf, int dpi, bool gray, const QStringList& extra = {}, int page = 1)
{
    const QString prefix = QFileInfo(pdf).absolutePath() + "/render-" + QString::number(qHash(pdf + QString::number(dpi)));
    QStringList arguments{"-r", QString::number(dpi), "-f", QString::number(page), "-l", QString::number(page),
                          "-singlefile"};
    if (gray)
        arguments << "-gray";
    arguments << extra << pdf << prefix;
    const ToolRun run = tool("pdftoppm", arguments);
    const QString file = prefix + (gray ? ".pgm" : ".ppm");
    QImage image(file);
    QFile::remove(file);
    if (run.exitCode != 0)
        return {};
    return image;
}

// The darkest gray level inside a rectangle of a gray image.
int darkest(const QImage& image, const QRect& rect)
{
    int value = 255;
    const QRect area = rect.intersected(image.rect());
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            value = qMin(value, qGray(image.pixel(x, y)));
    return value;
}

// --- the objects of a PDF, as qpdf reads them ------------------------------

class PdfObjects
{
public:
    explicit PdfObjects(const QString& pdf)
    {
        const ToolRun run = tool("qpdf", {"--json=2", "--json-key=qpdf", pdf});
        const QJsonArray parts = QJsonDocument::fromJson(run.out).object().value("qpdf").toArray();
        m_objects = parts.size() == 2 ? parts[1].toObject() : QJsonObject();
    }

    bool isValid() const { return !m_objects.isEmpty(); }
    QJsonObject trailer() const { return m_objects.value("trailer").toObject().value("value").toObject(); }

    // A value, with a reference ("4 0 R") followed to the object's value (a
    // stream's dictionary for a stream).
    QJsonValue resolve(const QJsonValue& value) const
    {
        static const QRegularExpression reference("^\\d+ \\d+ R$");
        if (!value.isString() || !reference.match(value.toString()).hasMatch())
            return value;
        const QJsonObject object = m_objects.value("obj:" + value.toString()).toObject();
        if (object.contains("stream"))
            return object.value("stream").toObject().value("dict");
        return object.value("value");
    }
    QJsonObject dict(const QJsonValue& value) const { return resolve(value).toObject(); }
    QJsonObject root() const { return dict(trailer().value("/Root")); }

    // Every object's value (streams: their dictionary), with its reference.
    void forEach(const std::function<void(const QString&, const QJsonValue&, bool)>& visit) const
    {
        for (auto it = m_objects.begin(); it != m_objects.end(); ++it) {
            if (!it.key().startsWith("obj:"))
                continue;
            const QJsonObject object = it.value().toObject();
            const bool stream = object.contains("stream");
            visit(it.key().mid(4), stream ? object.value("stream").toObject().value("dict") : object.value("value"),
                  stream);
        }
    }

    QList<QJsonObject> pages() const
    {
        QList<QJsonObject> pages;
        forEach([&](const QString&, const QJsonValue& value, bool) {
            if (value.toObject().value("/Type").toString() == "/Page")
                pages << value.toObject();
        });
        return pages;
    }

    // The references of every content stream: pages' contents and form XObjects.
    QStringList contentStreams() const
    {
        QStringList streams;
        for (const QJsonObject& page : pages()) {
            const QJsonValue contents = page.value("/Contents");
            if (contents.isArray())
                for (const QJsonValue& part : contents.toArray())
                    streams << part.toString();
            else if (contents.isString())
                streams << contents.toString();
        }
        forEach([&](const QString& ref, const QJsonValue& value, bool stream) {
            if (stream && value.toObject().value("/Subtype").toString() == "/Form" && !streams.contains(ref))
                streams << ref;
        });
        return streams;
    }

    // Whether any dictionary anywhere names a colour space or has an ICC
    // profile with that many components.
    bool mentions(const QString& name) const
    {
        bool found = false;
        std::function<void(const QJsonValue&)> walk = [&](const QJsonValue& value) {
            if (value.isString() && value.toString() == name)
                found = true;
            else if (value.isArray())
                for (const QJsonValue& item : value.toArray())
                    walk(item);
            else if (value.isObject())
                for (const QJsonValue& item : value.toObject())
                    walk(item);
        };
        forEach([&](const QString&, const QJsonValue& value, bool) { walk(value); });
        return found;
    }

private:
    QJsonObject m_objects;
};

// The operators of a PDF's content streams, each with how often it occurs.
QMap<QString, int> contentOperators(const QString& pdf)
{
    static const QRegularExpression operatorToken("^[A-Za-z'\"][A-Za-z0-9*]*$");
    QMap<QString, int> operators;
    const PdfObjects objects(pdf);
    for (const QString& ref : objects.contentStreams()) {
        const QString number = ref.section(' ', 0, 0) + "," + ref.section(' ', 1, 1);
        const ToolRun run = tool("qpdf", {"--show-object=" + number, "--filtered-stream-data", pdf});
        // Strings may hold anything; they are dropped before splitting.
        QString text = QString::fromLatin1(run.out);
        text.remove(QRegularExpression("\\((?:\\\\.|[^\\\\()])*\\)"));
        text.remove(QRegularExpression("<[0-9A-Fa-f\\s]*>"));
        text.replace('/', QStringLiteral(" /")); // a name starts a token of its own
        for (const QString& token : text.split(QRegularExpression("[\\s\\[\\]<>{}]+"), Qt::SkipEmptyParts))
            if (!token.startsWith('/') && operatorToken.match(token).hasMatch())
                ++operators[token];
    }
    return operators;
}

// --- a PDF written by hand ----------------------------------------------------

QByteArray streamObject(const QByteArray& dictionary, const QByteArray& data)
{
    return "<< " + dictionary + " /Length " + QByteArray::number(data.size()) + " >>\nstream\n" + data
           + "\nendstream";
}

// A PDF file of the given objects, numbered from 1, object 1 the catalog,
// with an exact cross-reference table.
QByteArray pdfFile(const QList<QByteArray>& objects)
{
    QByteArray pdf = "%PDF-1.7\n%\xE2\xE3\xCF\xD3\n";
    QList<qsizetype> offsets;
    for (qsizetype i = 0; i < objects.size(); ++i) {
        offsets << pdf.size();
        pdf += QByteArray::number(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const qsizetype xref = pdf.size();
    pdf += "xref\n0 " + QByteArray::number(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (const qsizetype offset : offsets)
        pdf += QByteArray::number(offset).rightJustified(10, '0') + " 00000 n \n";
    pdf += "trailer\n<< /Size " + QByteArray::number(objects.size() + 1) + " /Root 1 0 R >>\nstartxref\n"
           + QByteArray::number(xref) + "\n%%EOF\n";
    return pdf;
}

// A US Letter page (612 x 792 pt) with one line of text and, on top of it,
// only as annotations: a filled-in text field without an appearance (the
// form asks viewers to make one), a ticked check box, a red square note and
// a link.
QByteArray formPdf()
{
    return pdfFile({
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
    });
}

// Where the form's annotations are, in pixels of a 72 dpi rendering.
const QRect kFieldArea(100, 792 - 640, 300, 40);
const QRect kCheckBoxArea(450 + 5, 792 - 640 + 5, 30, 30);
const QRect kSquareArea(100 + 5, 792 - 400 + 5, 190, 90);

// Whether a PDF still has anything interactive: annotations or a form.
QString interactiveParts(const QString& pdf)
{
    const PdfObjects objects(pdf);
    if (!objects.isValid())
        return "unreadable";
    QStringList parts;
    if (objects.root().contains("/AcroForm"))
        parts << "AcroForm";
    for (const QJsonObject& page : objects.pages())
        if (!objects.resolve(page.value("/Annots")).toArray().isEmpty())
            parts << "Annots";
    return parts.join(' ');
}

// --- the staged samples -------------------------------------------------------

QString resources()
{
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + "/../share/quirepad/Resources");
}

QString plugin(const QString& name)
{
    return resources() + "/SamplePlugins/" + name;
}

QString filter(const QString& name)
{
    return resources() + "/SampleFilters/" + name;
}

const QStringList kPlugins{"SaveAsImage.workflow", "SaveAsText.workflow", "SaveAsWebPage.workflow",
                           "FlattenPlugin.workflow"};
const QStringList kFilters{"Monochrome.workflow", "CMYK color.workflow", "Grayscale color.workflow",
                           "PDF X-3.workflow", "FlattenFilter.workflow"};

// Sets an environment variable for the lifetime of the guard.
class EnvironmentGuard
{
public:
    EnvironmentGuard(const char* name, const QByteArray& value)
        : m_name(name)
        , m_had(qEnvironmentVariableIsSet(name))
        , m_old(qgetenv(name))
    {
        qputenv(name, value);
    }
    ~EnvironmentGuard()
    {
        if (m_had)
            qputenv(m_name, m_old);
        else
            qunsetenv(m_name);
    }
    EnvironmentGuard(const EnvironmentGuard&) = delete;
    EnvironmentGuard& operator=(const EnvironmentGuard&) = delete;

private:
    const char* m_name;
    bool m_had;
    QByteArray m_old;
};

} // namespace

#define VERIFY_SUCCEEDED(result)                                                                                 \
    QVERIFY2((result).status == Status::Succeeded,                                                              \
             qPrintable(QStringLiteral("status %1, exit code %2: %3")                                          \
                            .arg(int((result).status))                                                         \
                            .arg((result).exitCode)                                                            \
                            .arg((result).errorText)))

class SampleWorkflowsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    QByteArray m_oldTmp;
    bool m_hadTmp = false;
    QString m_text;    // three pages of words, some not ASCII
    QString m_colour;  // coloured shapes, coloured text, a colour photograph
    QString m_form;    // form fields and annotations (formPdf)
    QString m_damaged; // a PDF cut short and filled up with garbage
    QString m_odd;     // one page, under a name with spaces, quotes and "ë"
    int m_outputs = 0;

    // A new, empty output folder.
    QString newOutputFolder()
    {
        const QString folder = m_root.filePath(QStringLiteral("out/%1").arg(++m_outputs));
        QDir().mkpath(folder);
        return folder;
    }

    WorkflowRunner::Result run(const QString& workflow, const QString& input, const QString& outputFolder,
                               const QString& title = QStringLiteral("Sample job"))
    {
        QVariantMap info{{"TITLE", title}};
        if (!outputFolder.isEmpty())
            info.insert("OUTPUT_DIR", outputFolder);
        return WorkflowRunner(workflow).setJobInfo(info).setTimeout(std::chrono::minutes(2)).run(input);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        // The runner's working folders land inside m_root and go with it.
        QVERIFY(QDir().mkpath(m_root.filePath("tmp")));
        m_hadTmp = qEnvironmentVariableIsSet("TMPDIR");
        m_oldTmp = qgetenv("TMPDIR");
        qputenv("TMPDIR", QFile::encodeName(m_root.filePath("tmp")));

        for (const char* program : {"pdftoppm", "pdfinfo", "pdfimages", "qpdf", "gs"})
            if (QStandardPaths::findExecutable(program).isEmpty())
                QSKIP(qPrintable(QStringLiteral("%1 is not installed").arg(program)));
        if (!QFileInfo::exists(plugin("SaveAsText.workflow")))
            QFAIL(qPrintable("the sample workflows are not staged in " + resources()));

        QVERIFY(QDir().mkpath(m_root.filePath("in")));
        m_text = m_root.filePath("in/Words.pdf");
        QVERIFY(PdfFactory::textPdf(m_text, {QStringLiteral("Hello Zoë, this is page one"),
                                             QStringLiteral("Café prices on page two"),
                                             QStringLiteral("Déjà vu on page three")}));
        m_colour = m_root.filePath("in/Colours.pdf");
        QVERIFY(PdfFactory::colourPdf(m_colour));
        m_form = m_root.filePath("in/Form.pdf");
        QVERIFY(writeFile(m_form, formPdf()));
        // The hand-written file must be sound, or the flattening checks prove nothing.
        const ToolRun check = tool("qpdf", {"--check", m_form});
        QVERIFY2(check.exitCode == 0, (check.out + check.err).constData());
        QCOMPARE(interactiveParts(m_form), QStringLiteral("AcroForm Annots"));

        // The start of a real PDF, then noise: no cross-reference table, no trailer.
        QByteArray damaged = readFile(m_text).left(600);
        quint32 seed = 12345;
        for (int i = 0; i < 4000; ++i) {
            seed = seed * 1664525u + 1013904223u;
            damaged += char(seed >> 24);
        }
        m_damaged = m_root.filePath("in/Damaged.pdf");
        QVERIFY(writeFile(m_damaged, damaged));

        m_odd = m_root.filePath(QStringLiteral("in/Zoë's \"odd\" (copy) name.pdf"));
        QVERIFY(PdfFactory::textPdf(m_odd, {QStringLiteral("Odd name, plain words")}));
    }

    void cleanupTestCase()
    {
        if (m_hadTmp)
            qputenv("TMPDIR", m_oldTmp);
        else
            qunsetenv("TMPDIR");
    }

    void stagedAndExecutable_data()
    {
        QTest::addColumn<QString>("path");
        for (const QString& name : kPlugins)
            QTest::newRow(qPrintable(name)) << plugin(name);
        for (const QString& name : kFilters)
            QTest::newRow(qPrintable(name)) << filter(name);
    }

    void stagedAndExecutable()
    {
        QFETCH(QString, path);
        const QFileInfo info(path);
        QVERIFY2(info.isFile(), qPrintable(path));
        QVERIFY(info.isExecutable());
        QVERIFY(info.permissions().testFlag(QFile::ExeOther));
        QVERIFY(readFile(path).startsWith("#!/bin/sh\n"));
        QCOMPARE(WorkflowRunner::executableOf(path), info.absoluteFilePath());
    }

    void builtInFoldersStaged()
    {
        QVERIFY(QFileInfo(resources() + "/PlugIns").isDir());
        QVERIFY(QFileInfo(resources() + "/Filters").isDir());
    }

    void saveAsImageOnePngPerPage()
    {
        const QString out = newOutputFolder();
        const auto result = run(plugin("SaveAsImage.workflow"), m_text, out);
        VERIFY_SUCCEEDED(result);
        QCOMPARE(result.outputs, QStringList({out + "/Words-1.png", out + "/Words-2.png", out + "/Words-3.png"}));
        QCOMPARE(contentsOf(out), QStringList({"Words-1.png", "Words-2.png", "Words-3.png"}));

        const QSizeF points = pageSize(m_text);
        QVERIFY(points.isValid());
        QList<QImage> images;
        for (const QString& path : result.outputs) {
            QCOMPARE(readFile(path).left(8), QByteArray("\x89PNG\r\n\x1a\n"));
            const QImage image(path);
            QVERIFY2(!image.isNull(), qPrintable(path));
            // The page's size at 150 dpi, to the pixel.
            QVERIFY2(qAbs(image.width() - points.width() * 150 / 72) <= 1.0, qPrintable(QString::number(image.width())));
            QVERIFY2(qAbs(image.height() - points.height() * 150 / 72) <= 1.0, qPrintable(QString::number(image.height())));
            QVERIFY(qAbs(image.dotsPerMeterX() - 150 / 0.0254) < 2);
            // Black words on white paper.
            const QImage gray = image.convertToFormat(QImage::Format_Grayscale8);
            QCOMPARE(qGray(gray.pixel(5, 5)), 255);
            QVERIFY(darkest(gray, gray.rect()) < 64);
            images << gray;
        }
        QVERIFY(images[0] != images[1]);
        QVERIFY(images[1] != images[2]);
        QCOMPARE(contentsOf(result.workingDirectory), QStringList());
    }

    void saveAsTextKeepsTheWords()
    {
        const QString out = newOutputFolder();
        const auto result = run(plugin("SaveAsText.workflow"), m_text, out);
        VERIFY_SUCCEEDED(result);
        QCOMPARE(result.outputs, QStringList{out + "/Words.txt"});
        const QByteArray bytes = readFile(result.outputs.first());
        QString decodingCheck = QString::fromUtf8(bytes);
        QCOMPARE(decodingCheck.toUtf8(), bytes); // valid UTF-8
        const QString text = decodingCheck.simplified();
        const qsizetype one = text.indexOf(QStringLiteral("Hello Zoë, this is page one"));
        const qsizetype two = text.indexOf(QStringLiteral("Café prices on page two"));
        const qsizetype three = text.indexOf(QStringLiteral("Déjà vu on page three"));
        QVERIFY2(one >= 0 && two > one && three > two, qPrintable(text));
        QCOMPARE(bytes.count('\f'), 3); // pdftotext ends every page with a form feed
        QCOMPARE(contentsOf(result.workingDirectory), QStringList());
    }

    void saveAsWebPageIsOneSelfContainedPage()
    {
        const QString out = newOutputFolder();
        const auto result = run(plugin("SaveAsWebPage.workflow"), m_colour, out);
        VERIFY_SUCCEEDED(result);
        QCOMPARE(result.outputs, QStringList{out + "/Colours.html"});
        QCOMPARE(contentsOf(out), QStringList{"Colours.html"}); // nothing beside it

        const QByteArray html = readFile(result.outputs.first());
        QVERIFY(html.contains("<html"));
        QXmlStreamReader xml(html);
        QString text;
        int images = 0;
        while (!xml.atEnd()) {
            xml.readNext();
            if (xml.isCharacters())
                text += xml.text();
            if (xml.isStartElement() && xml.name() == QLatin1String("img")) {
                ++images;
                const QString source = xml.attributes().value("src").toString();
                QVERIFY2(source.startsWith("data:image/"), qPrintable(source.left(80)));
                // The picture of the page's graphics decodes as an image.
                const QByteArray encoded = source.section(',', 1).toLatin1();
                QVERIFY(!QImage::fromData(QByteArray::fromBase64(encoded)).isNull());
            }
        }
        QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
        QVERIFY(images >= 1);
        QVERIFY2(text.simplified().contains(QStringLiteral("Colourful words")), qPrintable(text.simplified()));

        // Words beyond ASCII, from a document of three pages.
        const QString out2 = newOutputFolder();
        const auto words = run(plugin("SaveAsWebPage.workflow"), m_text, out2);
        VERIFY_SUCCEEDED(words);
        const QString page = QString::fromUtf8(readFile(words.outputs.value(0))).replace("&#160;", " ");
        QVERIFY(page.contains(QStringLiteral("Hello Zoë")));
        QVERIFY(page.contains(QStringLiteral("Déjà vu on page three")));
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
        const QString expected = (isPlugin ? out : result.workingDirectory) + "/Form.pdf";
        QCOMPARE(result.outputs, QStringList{expected});
        if (!isPlugin)
            QCOMPARE(contentsOf(result.workingDirectory), QStringList{"Form.pdf"});
        verifyFlattened(expected);
    }

    // A qpdf that draws nothing into the pages leaves the form and the
    // annotations as they were; the workflows must still flatten them.
    void flatteningWhenQpdfLeavesAnnotations_data() { flattening_data(); }

    void flatteningWhenQpdfLeavesAnnotations()
    {
        QFETCH(QString, workflow);
        QFETCH(bool, isPlugin);
        const QString qpdf = QStandardPaths::findExecutable("qpdf");
        const QString bin = m_root.filePath("bin");
        QVERIFY(QDir().mkpath(bin));
        const QByteArray shim = "#!/bin/sh\n"
                                "# qpdf without its flattening options\n"
                                "n=$#\n"
                                "while [ \"$n\" -gt 0 ]; do\n"
                                "    a=$1; shift; n=$((n - 1))\n"
                                "    case $a in --flatten-annotations=*|--generate-appearances) ;; *) set -- \"$@\" \"$a\" ;; esac\n"
                                "done\n"
                                "exec '"
                                + QFile::encodeName(qpdf) + "' \"$@\"\n";
        QVERIFY(writeFile(bin + "/qpdf", shim));
        QVERIFY(QFile::setPermissions(bin + "/qpdf", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        // The stand-in really leaves everything interactive.
        QVERIFY(tool(bin + "/qpdf", {"--flatten-annotations=all", m_form, m_root.filePath("kept.pdf")}).exitCode == 0);
        QCOMPARE(interactiveParts(m_root.filePath("kept.pdf")), QStringLiteral("AcroForm Annots"));

        const EnvironmentGuard path("PATH", QFile::encodeName(bin) + ":" + qgetenv("PATH"));
        const QString out = newOutputFolder();
        const auto result = run(workflow, m_form, out);
        VERIFY_SUCCEEDED(result);
        QCOMPARE(result.outputs.size(), 1);
        QCOMPARE(QFileInfo(result.outputs.first()).fileName(), QStringLiteral("Form.pdf"));
        QCOMPARE(QFileInfo(result.outputs.first()).absolutePath(), isPlugin ? out : result.workingDirectory);
        verifyFlattened(result.outputs.first());
    }

    void monochromeIsBlackAndWhite()
    {
        const auto result = run(filter("Monochrome.workflow"), m_colour, QString());
        VERIFY_SUCCEEDED(result);
        const QString pdf = result.workingDirectory + "/Colours.pdf";
        QCOMPARE(result.outputs, QStringList{pdf});
        QCOMPARE(contentsOf(result.workingDirectory), QStringList{"Colours.pdf"});
        QCOMPARE(pageCount(pdf), 1);
        QCOMPARE(pdfInfo(pdf).value("Title"), QStringLiteral("Test document")); // carried over

        // The page is made of 1-bit images only.
        const QList<ImageRow> images = imagesOf(pdf);
        QVERIFY(!images.isEmpty());
        for (const ImageRow& image : images) {
            QCOMPARE(image.components, 1);
            QCOMPARE(image.bitsPerComponent, 1);
        }
        // Rendered at the images' own resolution, without smoothing, every
        // pixel is black or white, and there is some of both.
        const int dpi = images.first().xPpi;
        QVERIFY(dpi >= 150);
        const QImage page =
            render(pdf, dpi, true, {"-aa", "no", "-aaVector", "no"}).convertToFormat(QImage::Format_Grayscale8);
        QVERIFY(!page.isNull());
        qint64 black = 0;
        qint64 white = 0;
        for (int y = 0; y < page.height(); ++y) {
            const uchar* line = page.constScanLine(y);
            for (int x = 0; x < page.width(); ++x) {
                if (line[x] == 0)
                    ++black;
                else if (line[x] == 255)
                    ++white;
                else
                    QFAIL(qPrintable(QStringLiteral("gray %1 at %2,%3").arg(line[x]).arg(x).arg(y)));
            }
        }
        const qint64 all = qint64(page.width()) * page.height();
        QVERIFY(black > all / 50);
        QVERIFY(white > all / 2);
        // The dark red box (150 dpi coordinates 100..500 x 100..400) is black,
        // the margin white.
        const double scale = dpi / 150.0;
        QCOMPARE(qGray(page.pixel(int(300 * scale), int(250 * scale))), 0);
        QCOMPARE(qGray(page.pixel(int(20 * scale), int(20 * scale))), 255);

        // Every page comes through.
        const auto words = run(filter("Monochrome.workflow"), m_text, QString());
        VERIFY_SUCCEEDED(words);
        QCOMPARE(pageCount(words.outputs.value(0)), 3);
    }

    void grayscaleHasNoColour()
    {
        const auto result = run(filter("Grayscale color.workflow"), m_colour, QString());
        VERIFY_SUCCEEDED(result);
        const QString pdf = result.workingDirectory + "/Colours.pdf";
        QCOMPARE(result.outputs, QStringList{pdf});
        QCOMPARE(contentsOf(result.workingDirectory), QStringList{"Colours.pdf"});

        const QList<ImageRow> images = imagesOf(pdf);
        QVERIFY(!images.isEmpty());
        for (const ImageRow& image : images) {
            QCOMPARE(image.color, QStringLiteral("gray"));
            QCOMPARE(image.components, 1);
        }
        const QMap<QString, int> operators = contentOperators(pdf);
        QVERIFY2(operators.value("g") + operators.value("G") > 0, qPrintable(QStringList(operators.keys()).join(' ')));
        for (const char* colour : {"rg", "RG", "k", "K", "sc", "SC", "scn", "SCN"})
            QVERIFY2(!operators.contains(colour), colour);
        const PdfObjects objects(pdf);
        QVERIFY(!objects.mentions("/DeviceRGB"));
        QVERIFY(!objects.mentions("/DeviceCMYK"));
        QVERIFY(!objects.mentions("/ICCBased"));

        // Rendered in colour, every pixel is a gray; the red box is still there.
        const QImage page = render(pdf, 36, false);
        QVERIFY(!page.isNull());
        for (int y = 0; y < page.height(); ++y)
            for (int x = 0; x < page.width(); ++x) {
                const QRgb pixel = page.pixel(x, y);
                if (qRed(pixel) != qGreen(pixel) || qGreen(pixel) != qBlue(pixel))
                    QFAIL(qPrintable(QStringLiteral("colour %1 at %2,%3").arg(pixel, 0, 16).arg(x).arg(y)));
            }
        QVERIFY(qGray(page.pixel(300 * 36 / 150, 250 * 36 / 150)) < 200);
    }

    void cmykUsesCmykOnly()
    {
        const auto result = run(filter("CMYK color.workflow"), m_colour, QString());
        VERIFY_SUCCEEDED(result);
        const QString pdf = result.workingDirectory + "/Colours.pdf";
        QCOMPARE(result.outputs, QStringList{pdf});
        QCOMPARE(contentsOf(result.workingDirectory), QStringList{"Colours.pdf"});

        const QList<ImageRow> images = imagesOf(pdf);
        QVERIFY(!images.isEmpty());
        for (const ImageRow& image : images) {
            QCOMPARE(image.color, QStringLiteral("cmyk"));
            QCOMPARE(image.components, 4);
        }
        const QMap<QString, int> operators = contentOperators(pdf);
        QVERIFY2(operators.value("k") + operators.value("K") >= 3, qPrintable(QStringList(operators.keys()).join(' ')));
        QVERIFY(!operators.contains("rg"));
        QVERIFY(!operators.contains("RG"));
        const PdfObjects objects(pdf);
        QVERIFY(!objects.mentions("/DeviceRGB"));

        // Still in colour: the red box renders red.
        const QImage page = render(pdf, 36, false);
        QVERIFY(!page.isNull());
        const QRgb red = page.pixel(300 * 36 / 150, 250 * 36 / 150);
        QVERIFY2(qRed(red) > qGreen(red) + 80 && qRed(red) > qBlue(red) + 80, qPrintable(QString::number(red, 16)));
    }

    void pdfX3HasVersionAndOutputIntent()
    {
        const auto result = run(filter("PDF X-3.workflow"), m_colour, QString());
        VERIFY_SUCCEEDED(result);
        const QString pdf = result.workingDirectory + "/Colours.pdf";
        QCOMPARE(result.outputs, QStringList{pdf});
        QCOMPARE(contentsOf(result.workingDirectory), QStringList{"Colours.pdf"});
        QCOMPARE(pdfInfo(pdf).value("PDF subtype"), QStringLiteral("PDF/X-3:2002"));

        const PdfObjects objects(pdf);
        QVERIFY(objects.isValid());
        const QJsonObject info = objects.dict(objects.trailer().value("/Info"));
        QCOMPARE(info.value("/GTS_PDFXVersion").toString(), QStringLiteral("u:PDF/X-3:2002"));
        QCOMPARE(info.value("/Trapped").toString(), QStringLiteral("/False"));
        const QJsonArray intents = objects.resolve(objects.root().value("/OutputIntents")).toArray();
        QCOMPARE(intents.size(), 1);
        const QJsonObject intent = objects.dict(intents.first());
        QCOMPARE(intent.value("/Type").toString(), QStringLiteral("/OutputIntent"));
        QCOMPARE(intent.value("/S").toString(), QStringLiteral("/GTS_PDFX"));
        QVERIFY(!intent.value("/OutputConditionIdentifier").toString().isEmpty());
        QCOMPARE(objects.dict(intent.value("/DestOutputProfile")).value("/N").toInt(), 4);
        for (const QJsonObject& page : objects.pages())
            QVERIFY(page.contains("/TrimBox") || page.contains("/ArtBox"));
        for (const ImageRow& image : imagesOf(pdf))
            QCOMPARE(image.color, QStringLiteral("cmyk"));
        QVERIFY(!contentOperators(pdf).contains("rg"));

        // A document without a title takes the job's; annotations are drawn
        // into the page, as PDF/X wants none.
        const auto form = run(filter("PDF X-3.workflow"), m_form, QString(), QStringLiteral("Zoë's report"));
        VERIFY_SUCCEEDED(form);
        const QString formPdf = form.outputs.value(0);
        QCOMPARE(pdfInfo(formPdf).value("Title"), QStringLiteral("Zoë's report"));
        QCOMPARE(pdfInfo(formPdf).value("PDF subtype"), QStringLiteral("PDF/X-3:2002"));
        QCOMPARE(interactiveParts(formPdf), QString());
        QVERIFY(darkest(render(formPdf, 72, true), kSquareArea) < 200);
    }

    void namesWithSpacesQuotesAndAccents_data()
    {
        QTest::addColumn<QString>("workflow");
        QTest::addColumn<QString>("extension");
        QTest::newRow("SaveAsImage") << plugin("SaveAsImage.workflow") << "-1.png";
        QTest::newRow("SaveAsText") << plugin("SaveAsText.workflow") << ".txt";
        QTest::newRow("SaveAsWebPage") << plugin("SaveAsWebPage.workflow") << ".html";
        QTest::newRow("FlattenPlugin") << plugin("FlattenPlugin.workflow") << ".pdf";
        for (const QString& name : kFilters)
            QTest::newRow(qPrintable(name)) << filter(name) << "";
    }

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
        QCOMPARE(result.outputs, QStringList{folder + "/" + name});
        QVERIFY(QFileInfo(result.outputs.first()).size() > 0);
        QCOMPARE(contentsOf(folder), QStringList{name});
        if (isPlugin)
            QCOMPARE(contentsOf(result.workingDirectory), QStringList());
    }

    void secondRunNeverOverwrites_data()
    {
        QTest::addColumn<QString>("workflow");
        QTest::addColumn<QStringList>("first");
        QTest::addColumn<QStringList>("second");
        QTest::newRow("SaveAsImage") << plugin("SaveAsImage.workflow")
                                     << QStringList{"Words-1.png", "Words-2.png", "Words-3.png"}
                                     << QStringList{"Words 2-1.png", "Words 2-2.png", "Words 2-3.png"};
        QTest::newRow("SaveAsText") << plugin("SaveAsText.workflow") << QStringList{"Words.txt"}
                                    << QStringList{"Words 2.txt"};
        QTest::newRow("SaveAsWebPage") << plugin("SaveAsWebPage.workflow") << QStringList{"Words.html"}
                                       << QStringList{"Words 2.html"};
        QTest::newRow("FlattenPlugin") << plugin("FlattenPlugin.workflow") << QStringList{"Words.pdf"}
                                       << QStringList{"Words 2.pdf"};
    }

    void secondRunNeverOverwrites()
    {
        QFETCH(QString, workflow);
        QFETCH(QStringList, first);
        QFETCH(QStringList, second);
        const QString out = newOutputFolder();
        auto inFolder = [&](const QStringList& names) {
            QStringList paths;
            for (const QString& name : names)
                paths << out + "/" + name;
            return paths;
        };

        const auto one = run(workflow, m_text, out);
        VERIFY_SUCCEEDED(one);
        QCOMPARE(one.outputs, inFolder(first));
        QMap<QString, QByteArray> sums;
        for (const QString& path : one.outputs) {
            // Mark the first results, as a user who edited them would.
            QVERIFY(writeFile(path, readFile(path) + "edited"));
            sums.insert(path, sha1(path));
        }

        const auto two = run(workflow, m_text, out);
        VERIFY_SUCCEEDED(two);
        QCOMPARE(two.outputs, inFolder(second));
        for (auto it = sums.cbegin(); it != sums.cend(); ++it)
            QCOMPARE(sha1(it.key()), it.value());
        for (const QString& path : two.outputs)
            QVERIFY(!readFile(path).endsWith("edited"));

        // A third run skips a name that is taken by something else, even a
        // dangling link.
        const QString third = second.first();
        QString taken = third;
        taken.replace(" 2", " 3");
        QVERIFY(QFile::link(m_root.filePath("nowhere"), out + "/" + taken));
        const auto three = run(workflow, m_text, out);
        VERIFY_SUCCEEDED(three);
        QString expected = third;
        expected.replace(" 2", " 4");
        QCOMPARE(three.outputs.first(), out + "/" + expected);
        QVERIFY(QFileInfo(out + "/" + taken).isSymLink());
        QVERIFY(!QFileInfo::exists(out + "/" + taken));
    }

    void pluginSavesOnTheDesktopWithoutOutputFolder()
    {
        const QString home = m_root.filePath(QStringLiteral("home of Zoë"));
        const QString config = m_root.filePath("config");
        QVERIFY(QDir().mkpath(home));
        QVERIFY(QDir().mkpath(config));
        QVERIFY(writeFile(config + "/user-dirs.dirs", "XDG_DESKTOP_DIR=\"$HOME/My Desk\"\n"));
        const EnvironmentGuard homeGuard("HOME", QFile::encodeName(home));
        const EnvironmentGuard configGuard("XDG_CONFIG_HOME", QFile::encodeName(config));

        const auto result = run(plugin("SaveAsText.workflow"), m_text, QString());
        VERIFY_SUCCEEDED(result);
        const QString desktop = QStandardPaths::findExecutable("xdg-user-dir").isEmpty() ? home + "/Desktop"
                                                                                         : home + "/My Desk";
        QCOMPARE(result.outputs, QStringList{desktop + "/Words.txt"}); // the folder is made when missing
        QVERIFY(readFile(result.outputs.first()).contains("Hello Zo"));
    }

    void damagedInputFails_data() { stagedAndExecutable_data(); }

    void damagedInputFails()
    {
        QFETCH(QString, path);
        const QString out = newOutputFolder();
        const auto result = run(path, m_damaged, out);
        QCOMPARE(result.status, Status::Failed);
        QVERIFY(result.exitCode != 0);
        QVERIFY(!result.errorText.isEmpty());
        QVERIFY2(!result.errorText.contains('\n'), qPrintable(result.errorText)); // one line
        QVERIFY2(result.errorText.contains("Damaged.pdf"), qPrintable(result.errorText));
        QCOMPARE(result.outputs, QStringList());
        // Nothing half made is left behind under a result's name.
        QCOMPARE(contentsOf(out), QStringList());
        QCOMPARE(contentsOf(result.workingDirectory), QStringList());
    }

private:
    // No annotations and no form are left, yet the page looks as before: the
    // field's text, the check mark and the square are now page content.
    void verifyFlattened(const QString& pdf)
    {
        QCOMPARE(interactiveParts(pdf), QString());
        QCOMPARE(pdfInfo(pdf).value("Form"), QStringLiteral("none"));
        QCOMPARE(pageCount(pdf), 1);

        // Before: with annotations hidden, those places are blank.
        const QImage before = render(m_form, 72, true, {"-hide-annotations"});
        QVERIFY(!before.isNull());
        QCOMPARE(darkest(before, kFieldArea), 255);
        QCOMPARE(darkest(before, kCheckBoxArea), 255);
        QCOMPARE(darkest(before, kSquareArea), 255);

        const QImage after = render(pdf, 72, true, {"-hide-annotations"});
        QVERIFY(!after.isNull());
        QCOMPARE(after.size(), before.size());
        QVERIFY2(darkest(after, kFieldArea) < 128, "the field's text is missing");
        QVERIFY2(darkest(after, kCheckBoxArea) < 64, "the check mark is missing");
        QVERIFY2(darkest(after, kSquareArea) < 200, "the square is missing");
        QVERIFY(QString::fromUtf8(tool("pdftotext", {pdf, "-"}).out).contains("Page words"));
    }
};

QUIREPAD_REGISTER_TEST(SampleWorkflowsTest);
#include "tst_samples.moc"
