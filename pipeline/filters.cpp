#include "pipeline/filters.h"

#include "foundation/ProcessRunner.h"
#include "foundation/Shutdown.h"
#include "foundation/TempArea.h"
#include "foundation/desktop.h"
#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"
#include "pipeline/CompressionSettings.h"
#include "pipeline/PdfCompressor.h"
#include "pipeline/PdfKeywords.h"
#include "pipeline/WorkflowRunner.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QFuture>
#include <QFutureWatcher>
#include <QLoggingCategory>
#include <QPromise>
#include <QThread>
#include <QThreadPool>

#include <algorithm>
#include <exception>
#include <memory>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcFilters, "quirepad.filters", QtInfoMsg)

namespace {

const QString kMarker = QStringLiteral("A7G_p2ip");

QUrl existingFileUrl(const QString& path)
{
    return path_exists(path) ? QUrl::fromLocalFile(path) : QUrl();
}

// A workflow name is looked up in the workflow folders only: one that could
// step out of them is no name.
bool isPlainName(const QString& name)
{
    return !name.isEmpty() && !name.contains(u'/') && name != QLatin1String(".") && name != QLatin1String("..");
}

// Whether a file (and, for a folder, its "run") is owned by this user or
// root and writable by nobody else: the only workflows given by a full path
// that may run.
bool isTrustedProgramPath(const QString& path)
{
    const auto trusted = [](const QString& file) {
        struct stat st {};
        if (::lstat(QFile::encodeName(file).constData(), &st) != 0 || S_ISLNK(st.st_mode))
            return false;
        return (st.st_uid == ::geteuid() || st.st_uid == 0) && !(st.st_mode & (S_IWGRP | S_IWOTH));
    };
    if (!trusted(path))
        return false;
    return !QFileInfo(path).isDir() || trusted(path + QStringLiteral("/run"));
}

} // namespace

QUrl filter_url(const QString& name)
{
    if (!isPlainName(name))
        return {};
    if (const QUrl user = existingFileUrl(f(QStringLiteral("${APP_SUPPORT_PLUGINS}/Filters/%@.workflow"), name));
        !user.isEmpty())
        return user;
    return existingFileUrl(f(QStringLiteral("${APP_RESOURCES}/Filters/%@.workflow"), name));
}

QUrl plugin_url(const QString& nameOrPath)
{
    // Never relative to the current folder: a full path, or a name in the
    // workflow folders.
    if (QDir::isAbsolutePath(nameOrPath)) {
        if (!path_exists(nameOrPath))
            return {};
        if (!isTrustedProgramPath(nameOrPath)) {
            qCWarning(lcFilters).noquote() << nameOrPath
                                           << "is not run: a workflow given by its path must be owned by you or root "
                                              "and writable by nobody else";
            return {};
        }
        return QUrl::fromLocalFile(QDir::cleanPath(nameOrPath));
    }
    if (!isPlainName(nameOrPath))
        return {};
    if (const QUrl user = existingFileUrl(f(QStringLiteral("${APP_SUPPORT_PLUGINS}/%@.workflow"), nameOrPath));
        !user.isEmpty())
        return user;
    return existingFileUrl(f(QStringLiteral("${APP_RESOURCES}/PlugIns/%@.workflow"), nameOrPath));
}

void askAboutUnrunnableWorkflow()
{
    const bool findOutMore = MYDisplayQuestion(
        QStringLiteral("Quirepad is unable to execute this action\n"
                       "You might not have a permission to load 3rd party actions."),
        QStringLiteral("Find Out More..."), QStringLiteral("Continue"));
    if (findOutMore)
        open_url(u(QStringLiteral("${APP_RESOURCES}/help/workflows.html")));
}

QString execute_filter(const QString& inputPath, const QString& filterName, const QVariantMap& jobInfo)
{
    if (filterName.isEmpty() || filterName == QLatin1String("none"))
        return inputPath;
    MYDisplayNotification(QStringLiteral("processing..."), QStringLiteral("applying filter %1").arg(filterName));
    try {
        const QUrl workflow = filter_url(filterName);
        if (workflow.isEmpty()) {
            MYDisplayAlert(QStringLiteral("no filter plugin found for %1").arg(filterName));
            return inputPath;
        }
        const WorkflowRunner::Result result = WorkflowRunner(workflow.toLocalFile()).setJobInfo(jobInfo).run(inputPath);
        switch (result.status) {
        case WorkflowRunner::Status::NotExecutable:
            askAboutUnrunnableWorkflow();
            return inputPath;
        case WorkflowRunner::Status::Failed:
        case WorkflowRunner::Status::TimedOut:
            MYDisplayError(Error{QStringLiteral("quirepad.workflow"), result.exitCode,
                                 QStringLiteral("The filter %1 failed.").arg(filterName), result.errorText, {}});
            return inputPath;
        case WorkflowRunner::Status::Succeeded:
            break;
        }
        const QString output = result.outputs.value(0);
        if (output.isEmpty() || !file_exists(output)) {
            MYDisplayAlert(QStringLiteral("The filter %1 didn't return any file. Process returned with error %2")
                               .arg(filterName, QStringLiteral("(null)")));
            return inputPath;
        }
        return output;
    } catch (const std::exception& error) {
        qCWarning(lcFilters).noquote() << QStringLiteral("filter %1 error %2").arg(filterName, QString::fromUtf8(error.what()));
        MYDisplayAlert(QStringLiteral("The filter %1 didn't return any file due to an error").arg(filterName));
        return inputPath;
    }
}

namespace {

// One file on its way through compress_pdfs.
struct Compression {
    QString path;
    QString folder; // private, removed at the end
    std::shared_ptr<PdfCompressor> compressor;
    QFuture<PdfCompressor::Report> future;
};

// The threads the in-process rewrites run on: two files at a time.
QThreadPool& compressionPool()
{
    static QThreadPool pool;
    static const bool configured = [] {
        pool.setMaxThreadCount(2);
        return true;
    }();
    Q_UNUSED(configured);
    return pool;
}

// Waits for every rewrite while the event loop keeps turning; false when
// the program is ending, the rewrites then stopped and finished.
bool waitForRewrites(std::vector<Compression>& work)
{
    const auto allFinished = [&] {
        return std::all_of(work.begin(), work.end(), [](const Compression& c) { return c.future.isFinished(); });
    };
    bool ending = Shutdown::isRequested();
    if (QCoreApplication::instance() && !ending && !allFinished()) {
        QEventLoop loop;
        std::vector<std::unique_ptr<QFutureWatcher<PdfCompressor::Report>>> watchers;
        for (Compression& c : work) {
            watchers.push_back(std::make_unique<QFutureWatcher<PdfCompressor::Report>>());
            QObject::connect(watchers.back().get(), &QFutureWatcherBase::finished, &loop, [&] {
                if (allFinished())
                    loop.quit();
            });
            watchers.back()->setFuture(c.future);
        }
        QObject::connect(&Shutdown::instance(), &Shutdown::requested, &loop, [&] {
            ending = true;
            loop.quit();
        });
        while (!ending && !allFinished()) {
            // exec() answers -1 at once when the application has been told
            // to quit: waiting on would spin.
            if (loop.exec(QEventLoop::AllEvents) == -1 || Shutdown::isRequested())
                ending = true;
        }
    }
    if (ending)
        for (Compression& c : work)
            c.compressor->stop();
    for (Compression& c : work)
        c.future.waitForFinished();
    return !ending;
}

// Picks the smallest of the file, the in-process rewrite and (when that
// rewrite failed or left much undone) Ghostscript's output.
void finishCompression(const Compression& c, const CompressionSettings& settings)
{
    const PdfCompressor::Report report = c.future.resultCount() > 0 ? c.future.result() : PdfCompressor::Report {};
    const qint64 before = qint64(file_size(c.path));
    QString best;
    qint64 bestBytes = before;
    QString engine;
    if (report.outcome == PdfCompressor::Outcome::Written && report.outputBytes > 0 && report.outputBytes < bestBytes) {
        best = c.folder + QStringLiteral("/rewritten.pdf");
        bestBytes = report.outputBytes;
        engine = QStringLiteral("rewrite (%1 images reduced)").arg(report.imagesReduced);
    } else if (report.outcome != PdfCompressor::Outcome::Written) {
        qCInfo(lcFilters).noquote() << "no in-process rewrite of" << c.path << ":" << report.error;
    }
    if (report.signedDocument) {
        qCInfo(lcFilters).noquote() << c.path << "is signed and is left as it is";
        return;
    }
    if (report.ghostscriptMayHelp(before) && !Shutdown::isRequested()) {
        if (report.outcome == PdfCompressor::Outcome::Written)
            qCInfo(lcFilters).noquote() << "Ghostscript tries" << c.path
                                        << QStringLiteral(
                                               "too: the rewrite left %1 images (%2 bytes) and %3 bytes of whole fonts")
                                               .arg(report.imagesLeft)
                                               .arg(report.imageBytesLeft)
                                               .arg(report.wholeFontBytes);
        else
            qCInfo(lcFilters).noquote() << "Ghostscript tries" << c.path << "instead";
        // Ghostscript's output goes to a private folder under a name of
        // our own ("%" in an output name would make it write one file per
        // page).
        const QString target = c.folder + QStringLiteral("/ghostscript.pdf");
        const ProcessRunner::Result run
            = ProcessRunner(QStringLiteral("gs"), settings.ghostscriptArguments(c.path, target))
                  .setTimeout(settings.timeout)
                  .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
                  .setForwardInput(false)
                  .run();
        const qint64 bytes = run.succeeded() ? qint64(file_size(target)) : 0;
        if (!run.succeeded())
            qCInfo(lcFilters).noquote() << "Ghostscript could not reduce" << c.path << ":"
                                        << QString::fromUtf8(run.standardError).trimmed();
        else if (bytes > 0 && bytes < bestBytes) {
            best = target;
            bestBytes = bytes;
            engine = QStringLiteral("Ghostscript");
        }
    }
    if (best.isEmpty() || Shutdown::isRequested())
        return; // nothing smaller: the source stays as it was
    if (mv_file(best, c.path))
        qCInfo(lcFilters).noquote() << "compressed" << c.path << "from" << before << "to" << bestBytes << "bytes by"
                                    << engine;
}

} // namespace

void compress_pdf(const QString& path, bool flag)
{
    compress_pdfs({ path }, flag);
}

void compress_pdfs(const QStringList& paths, bool flag)
{
    if (!flag)
        return;
    QStringList eligible;
    for (const QString& path : paths)
        if (path.endsWith(QLatin1String(".pdf")))
            eligible << path;
    if (eligible.isEmpty())
        return;
    const std::optional<CompressionSettings> settings
        = CompressionSettings::fromFile(u(QStringLiteral("${APP_RESOURCES}/ReduceFileSize.qfilter")).toLocalFile());
    if (!settings) {
        qCWarning(lcFilters) << "no usable ReduceFileSize.qfilter; the file is left as it is";
        return;
    }
    PdfCompressor::Options options = PdfCompressor::Options::fromGhostscriptArguments(settings->arguments);
    options.timeLimit = settings->timeout;
    options.threads = std::clamp(QThread::idealThreadCount(), 1, 2);

    std::vector<Compression> work;
    for (const QString& path : std::as_const(eligible)) {
        Compression c;
        c.path = path;
        c.folder = TempArea::instance().makeDir(QStringLiteral("compress"));
        if (c.folder.isEmpty())
            continue;
        c.compressor = std::make_shared<PdfCompressor>(options);
        auto promise = std::make_shared<QPromise<PdfCompressor::Report>>();
        c.future = promise->future();
        promise->start();
        compressionPool().start(
            [promise, compressor = c.compressor, input = path, output = c.folder + QStringLiteral("/rewritten.pdf")] {
                promise->addResult(compressor->compress(input, output));
                promise->finish();
            });
        work.push_back(std::move(c));
    }
    if (waitForRewrites(work))
        for (const Compression& c : work)
            finishCompression(c, *settings);
    for (const Compression& c : work)
        rm_dir(c.folder);
}

QStringList make_temp_fl(const QStringList& paths)
{
    if (paths.isEmpty())
        return {};
    const QString folder = mk_temp_dir();
    if (folder.isEmpty())
        return {};
    QStringList copies;
    for (const QString& path : paths) {
        const QString copy = QStringLiteral("%1/%2").arg(folder, path_basename(path));
        cp_file(path, copy);
        copies << copy;
    }
    return copies;
}

bool add_pdf_keyword(const QString& path, const QString& keyword)
{
    std::optional<QStringList> keywords = PdfKeywords::read(path);
    if (!keywords)
        return false;
    keywords->append(keyword);
    return PdfKeywords::write(path, *keywords);
}

QString get_pdf_keyword(const QString& path)
{
    const std::optional<QStringList> keywords = PdfKeywords::read(path);
    if (!keywords)
        return {};
    for (const QString& keyword : *keywords)
        if (keyword.startsWith(kMarker))
            return keyword;
    return {};
}

QString rem_pdf_keyword(const QString& path)
{
    std::optional<QStringList> keywords = PdfKeywords::read(path);
    if (!keywords)
        return {};
    QString found;
    for (const QString& keyword : *keywords)
        if (keyword.startsWith(kMarker)) {
            found = keyword;
            break;
        }
    if (found.isNull())
        return {};
    keywords->removeAll(found);
    PdfKeywords::write(path, *keywords);
    return found;
}

} // namespace quirepad
