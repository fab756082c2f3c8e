#include "PdfFactory.h"

#include "foundation/pathvars.h"
#include "pipeline/CompressionSettings.h"
#include "pipeline/filters.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

using namespace quirepad;

// How "Reduce File Size" (compress_pdf) compares with plain Ghostscript
// /ebook and with a lossless qpdf rewrite on a corpus made here and now:
// an article set in an embedded TrueType font, camera photographs, 300 dpi
// scans, a 200-page report and a vector chart.
//
//   build/bin/bench_compression [--repeats N] [--keep]
//
// N (default 3, or QUIREPAD_BENCH_REPEATS) runs per document and method,
// each on a fresh copy of the input; the median time is reported, and the
// largest output. Every output of compress_pdf is checked: pdftoppm renders
// it and pdftotext finds every word the input had. Exits 0 when every
// target holds, 1 otherwise, 2 when the benchmark cannot run. --keep leaves
// the generated corpus behind for a closer look.

namespace {

struct Document {
    QString name;
    QString path;
    bool hasText = false;
    qint64 bytes = 0;
};

struct Measurement {
    qint64 bytes = -1;
    qint64 smallest = -1;
    double seconds = 0;
    bool ok = false;
    bool bytesVaried = false;
    QString problem; // what the check of the output found wrong
};

struct Method {
    QString name;
    // Works on a fresh copy and answers the path of its output, or a null
    // string when it failed.
    std::function<QString(const QString& copy, const QString& workDir)> run;
};

void out(const QString& text)
{
    std::fputs(qPrintable(text), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

int repeatsFromArguments(const QStringList& arguments)
{
    int repeats = qEnvironmentVariableIntValue("QUIREPAD_BENCH_REPEATS");
    for (int i = 1; i < arguments.size(); ++i) {
        const QString& arg = arguments.at(i);
        if ((arg == QLatin1String("--repeats") || arg == QLatin1String("-r")) && i + 1 < arguments.size())
            repeats = arguments.at(++i).toInt();
        else if (arg.startsWith(QLatin1String("--repeats=")))
            repeats = arg.mid(10).toInt();
    }
    return repeats > 0 ? repeats : 3;
}

bool runTool(const QString& program, const QStringList& arguments, const QList<int>& okCodes = { 0 },
    QByteArray* output = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    if (!output)
        process.setStandardOutputFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForStarted(-1) || !process.waitForFinished(-1))
        return false;
    if (output)
        *output = process.readAllStandardOutput();
    if (process.exitStatus() != QProcess::NormalExit || !okCodes.contains(process.exitCode())) {
        out(QStringLiteral("  %1 exited with %2").arg(program).arg(process.exitCode()));
        return false;
    }
    return true;
}

QString loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()).section(u' ', 0, 2)
                                          : QStringLiteral("?");
}

// The words pdftotext finds, lower case.
QSet<QString> wordsOf(const QString& pdf)
{
    QByteArray text;
    if (!runTool(QStringLiteral("pdftotext"), { pdf, QStringLiteral("-") }, { 0 }, &text))
        return {};
    QSet<QString> words;
    static const QRegularExpression separators(QStringLiteral("[^\\p{L}\\p{N}]+"));
    for (const QString& word : QString::fromUtf8(text).toLower().split(separators, Qt::SkipEmptyParts))
        words.insert(word);
    return words;
}

// Whether the output renders and, for a document with text, keeps every
// word; what is wrong otherwise.
QString checkOutput(const Document& doc, const QString& output, const QSet<QString>& inputWords, const QString& dir)
{
    if (!runTool(QStringLiteral("pdftoppm"),
            { QStringLiteral("-r"), QStringLiteral("20"), output, dir + QStringLiteral("/page") }))
        return QStringLiteral("pdftoppm failed");
    if (!doc.hasText)
        return {};
    const QSet<QString> words = wordsOf(output);
    const QSet<QString> missing = QSet<QString>(inputWords).subtract(words);
    if (inputWords.isEmpty() || !missing.isEmpty())
        return QStringLiteral("%1 of %2 words lost").arg(missing.size()).arg(inputWords.size());
    return {};
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

Measurement measure(
    const Document& doc, const Method& method, const QString& scratch, int repeats, const QSet<QString>* inputWords)
{
    Measurement result;
    std::vector<double> times;
    for (int i = 0; i < repeats; ++i) {
        // A folder of its own per run: the copy keeps its name (compress_pdf
        // wants ".pdf") and no run sees another's leftovers.
        const QString workDir
            = QStringLiteral("%1/%2-%3-%4").arg(scratch, QFileInfo(doc.path).baseName(), method.name).arg(i);
        QDir().mkpath(workDir);
        const QString copy = workDir + QLatin1Char('/') + QFileInfo(doc.path).fileName();
        if (!QFile::copy(doc.path, copy))
            return result;

        QElapsedTimer timer;
        timer.start();
        const QString output = method.run(copy, workDir);
        const double seconds = double(timer.nsecsElapsed()) / 1e9;
        if (output.isNull() || !QFileInfo::exists(output))
            return result;

        const qint64 bytes = QFileInfo(output).size();
        if (result.bytes >= 0 && bytes != result.bytes)
            result.bytesVaried = true;
        result.bytes = std::max(result.bytes, bytes); // the worst run counts
        result.smallest = result.smallest < 0 ? bytes : std::min(result.smallest, bytes);
        times.push_back(seconds);
        if (inputWords && result.problem.isEmpty())
            result.problem = checkOutput(doc, output, *inputWords, workDir);
        QDir(workDir).removeRecursively();
    }
    result.seconds = median(times);
    result.ok = true;
    return result;
}

// All documents compressed by one compress_pdfs call (two at a time)
// against one compress_pdf call each; seconds, median of the repeats.
std::pair<double, double> measureBatch(const std::vector<Document>& documents, const QString& scratch, int repeats)
{
    std::vector<double> batch, single;
    for (int i = 0; i < repeats; ++i) {
        for (const bool together : { false, true }) {
            const QString dir = QStringLiteral("%1/batch-%2-%3").arg(scratch).arg(together).arg(i);
            QDir().mkpath(dir);
            QStringList copies;
            for (const Document& doc : documents) {
                copies << dir + QLatin1Char('/') + QFileInfo(doc.path).fileName();
                QFile::copy(doc.path, copies.last());
            }
            QElapsedTimer timer;
            timer.start();
            if (together) {
                compress_pdfs(copies, true);
            } else {
                for (const QString& copy : std::as_const(copies))
                    compress_pdf(copy, true);
            }
            (together ? batch : single).push_back(double(timer.nsecsElapsed()) / 1e9);
            QDir(dir).removeRecursively();
        }
    }
    return { median(single), median(batch) };
}

QString pad(const QString& text, int width, bool left = false)
{
    return left ? text.leftJustified(width) : text.rightJustified(width);
}

QString percent(qint64 part, qint64 whole)
{
    return whole > 0 ? QString::number(100.0 * double(part) / double(whole), 'f', 1) + QLatin1Char('%')
                     : QStringLiteral("-");
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen"); // QPdfWriter needs a Gui application, not a screen
    QGuiApplication app(argc, argv);
    const int repeats = repeatsFromArguments(app.arguments());

    // compress_pdf quietly leaves the file alone without its settings, which
    // would look like "never larger" here: make sure they are there.
    const QString settingsPath = f(QStringLiteral("${APP_RESOURCES}/ReduceFileSize.qfilter"));
    const std::optional<CompressionSettings> settings = CompressionSettings::fromFile(settingsPath);
    if (!settings) {
        out(QStringLiteral("cannot read the compression settings at %1").arg(settingsPath));
        return 2;
    }
    out(QStringLiteral("settings: %1").arg(settingsPath));
    out(QStringLiteral("  gs %1").arg(
        settings->ghostscriptArguments(QStringLiteral("IN"), QStringLiteral("OUT")).join(QLatin1Char(' '))));

    QTemporaryDir temp;
    if (!temp.isValid()) {
        out(QStringLiteral("no temporary folder"));
        return 2;
    }
    if (app.arguments().contains(QLatin1String("--keep"))) {
        temp.setAutoRemove(false);
        out(QStringLiteral("corpus kept in %1/corpus").arg(temp.path()));
    }
    const QString corpus = temp.filePath(QStringLiteral("corpus"));
    const QString scratch = temp.filePath(QStringLiteral("runs"));
    QDir().mkpath(corpus);
    QDir().mkpath(scratch);

    using test::PdfFactory;
    const struct {
        QString name;
        bool hasText;
        std::function<bool(const QString&)> make;
    } recipes[] = {
        { QStringLiteral("article-12p"), true, [](const QString& p) { return PdfFactory::articlePdf(p, 12); } },
        { QStringLiteral("photos-4p"), false, [](const QString& p) { return PdfFactory::cameraPhotoPdf(p, 4); } },
        { QStringLiteral("scans-4p"), false, [](const QString& p) { return PdfFactory::scanPdf(p, 4, 300); } },
        { QStringLiteral("report-200p"), true, [](const QString& p) { return PdfFactory::longReportPdf(p, 200); } },
        { QStringLiteral("chart-1p"), true, [](const QString& p) { return PdfFactory::vectorChartPdf(p); } },
    };

    out(QStringLiteral("making the corpus..."));
    std::vector<Document> documents;
    std::vector<QSet<QString>> inputWords;
    for (const auto& recipe : recipes) {
        Document doc { recipe.name, corpus + QLatin1Char('/') + recipe.name + QStringLiteral(".pdf"), recipe.hasText };
        if (!recipe.make(doc.path) || (doc.bytes = QFileInfo(doc.path).size()) <= 0) {
            out(QStringLiteral("could not make %1").arg(doc.path));
            return 2;
        }
        documents.push_back(doc);
        inputWords.push_back(doc.hasText ? wordsOf(doc.path) : QSet<QString>());
        if (doc.hasText && inputWords.back().isEmpty()) {
            out(QStringLiteral("pdftotext finds no words in %1").arg(doc.path));
            return 2;
        }
    }

    const std::vector<Method> methods {
        { QStringLiteral("compress_pdf"),
            [](const QString& copy, const QString&) {
                compress_pdf(copy, true);
                return copy;
            } },
        { QStringLiteral("gs-ebook"),
            [](const QString& copy, const QString& dir) {
                const QString output = dir + QStringLiteral("/out.pdf");
                const bool ok = runTool(QStringLiteral("gs"),
                    { QStringLiteral("-dSAFER"), QStringLiteral("-dBATCH"), QStringLiteral("-dNOPAUSE"),
                        QStringLiteral("-dQUIET"), QStringLiteral("-sDEVICE=pdfwrite"),
                        QStringLiteral("-dPDFSETTINGS=/ebook"), QStringLiteral("-sOutputFile=") + output, copy });
                return ok ? output : QString();
            } },
        { QStringLiteral("qpdf"),
            [](const QString& copy, const QString& dir) {
                const QString output = dir + QStringLiteral("/out.pdf");
                // 3: succeeded with warnings
                const bool ok = runTool(QStringLiteral("qpdf"),
                    { QStringLiteral("--object-streams=generate"), QStringLiteral("--recompress-flate"), copy, output },
                    { 0, 3 });
                return ok ? output : QString();
            } },
    };
    enum { Ours = 0, Ebook = 1, Qpdf = 2 };

    const QString loadBefore = loadAverage();
    out(QStringLiteral("repeats: %1 per document and method (median time, largest output)").arg(repeats));
    out(QStringLiteral("load average before: %1 (%2 cores)\n").arg(loadBefore).arg(QThread::idealThreadCount()));

    QString header = pad(QStringLiteral("document"), 13, true) + pad(QStringLiteral("input B"), 11);
    for (const Method& method : methods)
        header += pad(method.name + QStringLiteral(" B"), 15) + pad(QStringLiteral("s"), 8);
    header += QStringLiteral("  ours <= min(input, qpdf)");
    const QString rule(header.size(), QLatin1Char('-'));
    out(header);
    out(rule);

    qint64 inputTotal = 0;
    std::vector<qint64> bytesTotal(methods.size(), 0);
    std::vector<double> secondsTotal(methods.size(), 0);
    bool everyFileSmallEnough = true;
    bool outputsGood = true;
    bool allRan = true;
    QStringList notes;

    for (size_t d = 0; d < documents.size(); ++d) {
        const Document& doc = documents[d];
        inputTotal += doc.bytes;
        QString line = pad(doc.name, 13, true) + pad(QString::number(doc.bytes), 11);
        std::vector<Measurement> results;
        for (size_t m = 0; m < methods.size(); ++m) {
            results.push_back(measure(doc, methods[m], scratch, repeats, m == Ours ? &inputWords[d] : nullptr));
            const Measurement& result = results.back();
            if (!result.ok) {
                allRan = false;
                line += pad(QStringLiteral("failed"), 15) + pad(QStringLiteral("-"), 8);
                continue;
            }
            bytesTotal[m] += result.bytes;
            secondsTotal[m] += result.seconds;
            line += pad(QString::number(result.bytes), 15) + pad(QString::number(result.seconds, 'f', 3), 8);
            if (result.bytesVaried)
                notes << QStringLiteral("%1 / %2: output size varied between runs, %3..%4 bytes (largest shown)")
                             .arg(doc.name, methods[m].name)
                             .arg(result.smallest)
                             .arg(result.bytes);
            if (!result.problem.isEmpty()) {
                outputsGood = false;
                notes << QStringLiteral("%1 / %2: %3").arg(doc.name, methods[m].name, result.problem);
            }
        }
        const bool small
            = results[Ours].ok && results[Qpdf].ok && results[Ours].bytes <= std::min(doc.bytes, results[Qpdf].bytes);
        everyFileSmallEnough = everyFileSmallEnough && small;
        line += small ? QStringLiteral("  PASS") : QStringLiteral("  FAIL");
        out(line);
    }
    out(rule);
    QString total = pad(QStringLiteral("total"), 13, true) + pad(QString::number(inputTotal), 11);
    QString ratio = pad(QStringLiteral("of input"), 13, true) + pad(QString(), 11);
    for (size_t m = 0; m < methods.size(); ++m) {
        total += pad(QString::number(bytesTotal[m]), 15) + pad(QString::number(secondsTotal[m], 'f', 3), 8);
        ratio += pad(percent(bytesTotal[m], inputTotal), 15) + pad(QString(), 8);
    }
    out(total);
    out(ratio);
    out(QString());

    const auto [oneByOne, together] = measureBatch(documents, scratch, repeats);
    out(QStringLiteral("all five documents: compress_pdf one by one %1 s, compress_pdfs together (two at a time) %2 s")
            .arg(oneByOne, 0, 'f', 3)
            .arg(together, 0, 'f', 3));
    out(QStringLiteral("load average after: %1").arg(loadAverage()));
    out(QString());
    for (const QString& note : std::as_const(notes))
        out(QStringLiteral("note: ") + note);

    const qint64 ourBytes = bytesTotal[Ours];
    const qint64 ebookBytes = bytesTotal[Ebook];
    const double ourSeconds = secondsTotal[Ours];
    const double ebookSeconds = secondsTotal[Ebook];
    const bool smallEnough = allRan && double(ourBytes) <= 0.8 * double(ebookBytes);
    const bool fastEnough = allRan && ourSeconds <= 0.5 * ebookSeconds;
    everyFileSmallEnough = everyFileSmallEnough && allRan;
    outputsGood = outputsGood && allRan;

    auto verdict = [](bool pass) { return pass ? QStringLiteral("PASS") : QStringLiteral("FAIL"); };
    if (!allRan)
        out(QStringLiteral("FAIL  some runs failed (see above)"));
    out(QStringLiteral("%1  total time %2 s <= 0.5 x gs /ebook's %3 s (= %4 s); ratio %5")
            .arg(verdict(fastEnough))
            .arg(ourSeconds, 0, 'f', 3)
            .arg(ebookSeconds, 0, 'f', 3)
            .arg(0.5 * ebookSeconds, 0, 'f', 3)
            .arg(ebookSeconds > 0 ? ourSeconds / ebookSeconds : 0, 0, 'f', 3));
    out(QStringLiteral("%1  total bytes %2 <= 0.8 x gs /ebook's %3 (= %4); ratio %5")
            .arg(verdict(smallEnough))
            .arg(ourBytes)
            .arg(ebookBytes)
            .arg(qint64(0.8 * double(ebookBytes)))
            .arg(ebookBytes > 0 ? double(ourBytes) / double(ebookBytes) : 0, 0, 'f', 3));
    out(QStringLiteral("%1  every file <= min(its input, qpdf's lossless rewrite)").arg(verdict(everyFileSmallEnough)));
    out(QStringLiteral("%1  every output renders (pdftoppm -r 20) and keeps its words (pdftotext)")
            .arg(verdict(outputsGood)));

    return allRan && everyFileSmallEnough && smallEnough && fastEnough && outputsGood ? 0 : 1;
}
