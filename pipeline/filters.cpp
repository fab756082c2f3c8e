#include "pipeline/filters.h"

#include "foundation/ProcessRunner.h"
#include "foundation/TempArea.h"
#include "foundation/desktop.h"
#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"
#include "pipeline/CompressionSettings.h"
#include "pipeline/PdfKeywords.h"
#include "pipeline/WorkflowRunner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>

#include <exception>

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

void compress_pdf(const QString& path, bool flag)
{
    if (!flag || !path.endsWith(QLatin1String(".pdf")))
        return;
    const std::optional<CompressionSettings> settings =
        CompressionSettings::fromFile(u(QStringLiteral("${APP_RESOURCES}/ReduceFileSize.qfilter")).toLocalFile());
    if (!settings) {
        qCWarning(lcFilters) << "no usable ReduceFileSize.qfilter; the file is left as it is";
        return;
    }
    // Ghostscript's output goes to a private folder under a name of our
    // own ("%" in an output name would make it write one file per page).
    const QString folder = TempArea::instance().makeDir(QStringLiteral("compress"));
    if (folder.isEmpty())
        return;
    const QString target = folder + QStringLiteral("/compressed.pdf");
    const ProcessRunner::Result run = ProcessRunner(QStringLiteral("gs"), settings->ghostscriptArguments(path, target))
                                          .setTimeout(settings->timeout)
                                          .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
                                          .setForwardInput(false)
                                          .run();
    if (!run.succeeded()) {
        qCInfo(lcFilters).noquote() << "Ghostscript could not reduce" << path << ":"
                                    << QString::fromUtf8(run.standardError).trimmed();
        rm_dir(folder);
        return;
    }
    const quint64 before = quint64(file_size(path));
    const quint64 after = quint64(file_size(target));
    if (after > 0 && after < before)
        mv_file(target, path);
    rm_dir(folder); // not smaller: the source stays as it was
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
