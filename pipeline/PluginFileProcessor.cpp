#include "pipeline/PluginFileProcessor.h"

#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "pipeline/WorkflowRunner.h"
#include "pipeline/filters.h"

namespace quirepad {

bool PluginFileProcessor::copyTempFile(const QString& source, const QString& target)
{
    const QString pluginName = config.value(QStringLiteral("plugin_name")).toString();
    QString input = source;
    if (!config.value(QStringLiteral("reuse_path")).toBool()) {
        const QString folder = mk_temp_dir();
        input = folder + QLatin1Char('/') + path_basename(target);
        if (folder.isEmpty() || !cp_file(source, input)) {
            fail(QStringLiteral("%1 could not be prepared for the workflow").arg(source));
            return true;
        }
    }
    const QUrl workflow = plugin_url(pluginName);
    if (workflow.isEmpty()) {
        // Not the user's cancel: the job waits until the workflow is there.
        MYDisplayAlert(QStringLiteral("no plugin found for %1").arg(pluginName));
        fail(QStringLiteral("no plugin found for %1").arg(pluginName), false);
        return true;
    }
    QVariantMap jobInfo = context;
    jobInfo.insert(QStringLiteral("OUTPUT_DIR"), path_dirname(target));
    const WorkflowRunner::Result result = WorkflowRunner(workflow.toLocalFile()).setJobInfo(jobInfo).run(input);
    switch (result.status) {
    case WorkflowRunner::Status::NotExecutable:
        askAboutUnrunnableWorkflow();
        fail(result.errorText, false);
        return true;
    case WorkflowRunner::Status::Failed:
    case WorkflowRunner::Status::TimedOut:
        fail(QStringLiteral("the workflow %1 failed: %2").arg(pluginName, result.errorText));
        return true;
    case WorkflowRunner::Status::Succeeded:
        break;
    }
    resultFile = result.outputs.value(0);
    notifySucessTitle(QStringLiteral("Workflow %1finished").arg(pluginName), resultFile);
    return true;
}

} // namespace quirepad
