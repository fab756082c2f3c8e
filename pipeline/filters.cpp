#include "pipeline/filters.h"

#include "foundation/ProcessRunner.h"
#include "foundation/desktop.h"
#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "foundation/pathvars.h"
#include "pipeline/CompressionSettings.h"
#include "pipeline/PdfKeywords.h"
#include "pipeline/WorkflowRunner.h"

#include <QDir>
#include <QLoggingCategory>

#include <exception>

namespace quirepad {

Q_LOGGING_CATEGORY(lcFilters, "quirepad.filters", QtInfoMsg)

namespace {

const QString kMarker = QStringLiteral("A7G_p2ip");

QUrl existingFileUrl(const QString& path)
{
    return path_exists(path) ? QUrl::fromLocalFile(path) : QUrl();
}

} // namespace

QUrl filter_url(const QString& name)
{
    if (const QUrl user = existingFileUrl(f(QStringLiteral("${APP_SUPPORT_PLUGINS}/Filters/%@.workflow"), name));
        !user.isEmpty())
        return user;
    return existingFileUrl(f(QStringLiteral("${APP_RESOURCES}/Filters/%@.workflow"), name));
}

QUrl plugin_url(const QString& nameOrPath)
{
    if (!nameOrPath.isEmpty() && path_exists(nameOrPath))
        return QUrl::fromLocalFile(QFileInfo(nameOrPath).absoluteFilePath());
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
    const QString target = QDir::tempPath() + QLatin1Char('/') + path_basename(path);
    const ProcessRunner::Result run = ProcessRunner(QStringLiteral("gs"), settings->ghostscriptArguments(path, target))
                                          .setTimeout(settings->timeout)
                                          .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
                                          .setForwardInput(false)
                                          .run();
    if (!run.succeeded()) {
        qCInfo(lcFilters).noquote() << "Ghostscript could not reduce" << path << ":"
                                    << QString::fromUtf8(run.standardError).trimmed();
        rm_file(target);
        return;
    }
    const quint64 before = quint64(file_size(path));
    const quint64 after = quint64(file_size(target));
    if (after > 0 && after < before)
        mv_file(target, path);
    else
        rm_file(target); // not smaller: the source stays as it was
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
