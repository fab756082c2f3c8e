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
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

using namespace quirepad;

// How "Reduce File Size" (compress_pdf) compares with plain Ghostscript
// /ebook and with a lossless qpdf rewrite on a corpus made here and now.
//
//   build/bin/bench_compression [--repeats N] [--keep]
//
// N (default 3, or QUIREPAD_BENCH_REPEATS) runs per document and method,
// each on a fresh copy of the input; the median time is reported. Exits 0
// when every target holds, 1 otherwise, 2 when the benchmark cannot run.
// --keep leaves the generated corpus behind for a closer look.

namespace {

struct Document {
    QString name;
    QString path;
    qint64 bytes = 0;
};

struct Measurement {
    qint64 bytes = -1;
    qint64 smallest = -1;
    double seconds = 0;
    bool ok = false;
    bool bytesVaried = false;
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

bool runTool(const QString& program, const QStringList& arguments, const QList<int>& okCodes = {0})
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForStarted(-1) || !process.waitForFinished(-1))
        return false;
    if (process.exitStatus() != QProcess::NormalExit || !okCodes.contains(process.exitCode())) {
        out(QStringLiteral("  %1 exited with %2").arg(program).arg(process.exitCode()));
        return false;
    }
    return true;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

Measurement measure(const Document& doc, const Method& method, const QString& scratch, int repeats)
{
    Measurement result;
    std::vector<double> times;
    for (int i = 0; i < repeats; ++i) {
        // A folder of its own per run: the copy keeps its name (compress_pdf
        // wants ".pdf") and no run sees another's leftovers.
        const QString workDir = QStringLiteral("%1/%2-%3-%4").arg(scratch, QFileInfo(doc.path).baseName(), method.name).arg(i);
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
        QDir(workDir).removeRecursively();
    }
    result.seconds = median(times);
    result.ok = true;
    return result;
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
    out(QStringLiteral("  gs %1").arg(settings->ghostscriptArguments(QStringLiteral("IN"), QStringLiteral("OUT")).join(QLatin1Char(' '))));

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

    QStringList textPages;
    for (int i = 0; i < 20; ++i)
        textPages << QStringLiteral("Page %1\n\nThe minutes of the meeting, the action items and who owns each of them. "
                                    "Nothing here is an image; every word is set in a real font.")
                         .arg(i + 1);

    using test::PdfFactory;
    const struct {
        QString name;
        std::function<bool(const QString&)> make;
    } recipes[] = {
        {QStringLiteral("text-20p"), [&](const QString& p) { return PdfFactory::textPdf(p, textPages); }},
        {QStringLiteral("photo-5p"), [](const QString& p) { return PdfFactory::photoPdf(p, 5); }},
        {QStringLiteral("scanned-10p"), [](const QString& p) { return PdfFactory::scannedPdf(p, 10); }},
        {QStringLiteral("report-200p"), [](const QString& p) { return PdfFactory::reportPdf(p, 200); }},
        {QStringLiteral("colour-1p"), [](const QString& p) { return PdfFactory::colourPdf(p); }},
    };

    std::vector<Document> documents;
    for (const auto& recipe : recipes) {
        Document doc{recipe.name, corpus + QLatin1Char('/') + recipe.name + QStringLiteral(".pdf")};
        if (!recipe.make(doc.path) || (doc.bytes = QFileInfo(doc.path).size()) <= 0) {
            out(QStringLiteral("could not make %1").arg(doc.path));
            return 2;
        }
        documents.push_back(doc);
    }

    const std::vector<Method> methods{
        {QStringLiteral("compress_pdf"),
         [](const QString& copy, const QString&) {
             compress_pdf(copy, true);
             return copy;
         }},
        {QStringLiteral("gs-ebook"),
         [](const QString& copy, const QString& dir) {
             const QString output = dir + QStringLiteral("/out.pdf");
             const bool ok = runTool(QStringLiteral("gs"),
                                     {QStringLiteral("-dSAFER"), QStringLiteral("-dBATCH"), QStringLiteral("-dNOPAUSE"),
                                      QStringLiteral("-dQUIET"), QStringLiteral("-sDEVICE=pdfwrite"),
                                      QStringLiteral("-dPDFSETTINGS=/ebook"), QStringLiteral("-sOutputFile=") + output, copy});
             return ok ? output : QString();
         }},
        {QStringLiteral("qpdf"),
         [](const QString& copy, const QString& dir) {
             const QString output = dir + QStringLiteral("/out.pdf");
             // 3: succeeded with warnings
             const bool ok = runTool(QStringLiteral("qpdf"),
                                     {QStringLiteral("--object-streams=generate"), QStringLiteral("--recompress-flate"), copy, output},
                                     {0, 3});
             return ok ? output : QString();
         }},
    };

    out(QStringLiteral("repeats: %1 per document and method (median time)\n").arg(repeats));

    // Header
    QString header = pad(QStringLiteral("document"), 14, true) + pad(QStringLiteral("input B"), 12);
    QString rule(14 + 12, QLatin1Char('-'));
    for (const Method& method : methods) {
        header += pad(method.name + QStringLiteral(" B"), 17) + pad(QStringLiteral("s"), 9);
        rule += QString(26, QLatin1Char('-'));
    }
    out(header);
    out(rule);

    qint64 inputTotal = 0;
    std::vector<qint64> bytesTotal(methods.size(), 0);
    std::vector<double> secondsTotal(methods.size(), 0);
    bool neverLarger = true;
    bool allRan = true;
    QStringList notes;

    for (const Document& doc : documents) {
        inputTotal += doc.bytes;
        QString line = pad(doc.name, 14, true) + pad(QString::number(doc.bytes), 12);
        for (size_t m = 0; m < methods.size(); ++m) {
            const Measurement result = measure(doc, methods[m], scratch, repeats);
            if (!result.ok) {
                allRan = false;
                line += pad(QStringLiteral("failed"), 17) + pad(QStringLiteral("-"), 9);
                continue;
            }
            bytesTotal[m] += result.bytes;
            secondsTotal[m] += result.seconds;
            line += pad(QString::number(result.bytes), 17) + pad(QString::number(result.seconds, 'f', 3), 9);
            if (result.bytesVaried)
                notes << QStringLiteral("%1 / %2: output size varied between runs, %3..%4 bytes (largest shown)")
                             .arg(doc.name, methods[m].name)
                             .arg(result.smallest)
                             .arg(result.bytes);
            if (m == 0 && result.bytes > doc.bytes) {
                neverLarger = false;
                notes << QStringLiteral("%1: compress_pdf grew the file").arg(doc.name);
            }
        }
        out(line);
    }
    out(rule);
    QString total = pad(QStringLiteral("total"), 14, true) + pad(QString::number(inputTotal), 12);
    QString ratio = pad(QStringLiteral("of input"), 14, true) + pad(QString(), 12);
    for (size_t m = 0; m < methods.size(); ++m) {
        total += pad(QString::number(bytesTotal[m]), 17) + pad(QString::number(secondsTotal[m], 'f', 3), 9);
        ratio += pad(percent(bytesTotal[m], inputTotal), 17) + pad(QString(), 9);
    }
    out(total);
    out(ratio);
    out(QString());
    for (const QString& note : notes)
        out(QStringLiteral("note: ") + note);

    const qint64 ourBytes = bytesTotal[0];
    const qint64 ebookBytes = bytesTotal[1];
    const double ourSeconds = secondsTotal[0];
    const double ebookSeconds = secondsTotal[1];
    const bool smallEnough = allRan && ourBytes <= ebookBytes;
    const bool fastEnough = allRan && ourSeconds <= 1.2 * ebookSeconds;
    neverLarger = neverLarger && allRan;

    auto verdict = [](bool pass) { return pass ? QStringLiteral("PASS") : QStringLiteral("FAIL"); };
    if (!allRan)
        out(QStringLiteral("FAIL  some runs failed (see above)"));
    out(QStringLiteral("%1  compress_pdf output never larger than its input").arg(verdict(neverLarger)));
    out(QStringLiteral("%1  compress_pdf total bytes %2 <= gs /ebook total bytes %3")
            .arg(verdict(smallEnough))
            .arg(ourBytes)
            .arg(ebookBytes));
    out(QStringLiteral("%1  compress_pdf total time %2 s <= 1.2 x gs /ebook total time %3 s (= %4 s)")
            .arg(verdict(fastEnough))
            .arg(ourSeconds, 0, 'f', 3)
            .arg(ebookSeconds, 0, 'f', 3)
            .arg(1.2 * ebookSeconds, 0, 'f', 3));

    return allRan && neverLarger && smallEnough && fastEnough ? 0 : 1;
}
