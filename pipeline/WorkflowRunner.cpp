#include "pipeline/WorkflowRunner.h"

#include "foundation/ProcessRunner.h"
#include "foundation/cocoa_format.h"
#include "foundation/fileutil.h"

#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QProcessEnvironment>

namespace quirepad {

Q_LOGGING_CATEGORY(lcWorkflow, "quirepad.workflow", QtInfoMsg)

WorkflowRunner::WorkflowRunner(const QString& workflowPath)
    : m_workflow(workflowPath)
{
}

WorkflowRunner& WorkflowRunner::setJobInfo(const QVariantMap& info)
{
    m_jobInfo = info;
    return *this;
}

WorkflowRunner& WorkflowRunner::setTimeout(std::chrono::milliseconds timeout)
{
    m_timeout = timeout;
    return *this;
}

QString WorkflowRunner::executableOf(const QString& workflowPath)
{
    const QFileInfo info(workflowPath);
    if (info.isDir()) {
        const QFileInfo run(QDir(workflowPath).filePath(QStringLiteral("run")));
        return run.exists() && !run.isDir() ? run.absoluteFilePath() : QString();
    }
    return info.exists() ? info.absoluteFilePath() : QString();
}

namespace {
QString environmentName(const QString& key)
{
    QString name = QStringLiteral("QUIREPAD_");
    for (const QChar c : key.toUpper())
        name += (c.isLetterOrNumber() && c.unicode() < 128) ? c : QChar(u'_');
    return name;
}
} // namespace

WorkflowRunner::Result WorkflowRunner::run(const QString& inputPath) const
{
    Result result;
    const QString program = executableOf(m_workflow);
    if (program.isEmpty()) {
        result.status = Status::NotExecutable;
        result.errorText = QStringLiteral("%1 holds no program to run").arg(m_workflow);
        return result;
    }
    if (!QFileInfo(program).isExecutable()) {
        result.status = Status::NotExecutable;
        result.errorText = QStringLiteral("%1 is not executable").arg(program);
        return result;
    }

    result.workingDirectory = mk_temp_dir();
    if (result.workingDirectory.isEmpty()) {
        result.errorText = QStringLiteral("cannot create the folder %1").arg(result.workingDirectory);
        return result;
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto it = m_jobInfo.cbegin(); it != m_jobInfo.cend(); ++it)
        environment.insert(environmentName(it.key()), objectDescription(it.value()));

    qCInfo(lcWorkflow).noquote() << "running" << program << "on" << inputPath;
    const ProcessRunner::Result run = ProcessRunner(program, {inputPath})
                                          .setWorkingDirectory(result.workingDirectory)
                                          .setEnvironment(environment)
                                          .setTimeout(m_timeout)
                                          .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
                                          .setForwardInput(false)
                                          .run();
    result.exitCode = run.exitCode;
    result.errorText = QString::fromUtf8(run.standardError).trimmed();
    if (!run.started) {
        result.status = Status::NotExecutable;
        result.errorText = run.errorString;
        return result;
    }
    if (run.timedOut) {
        result.status = Status::TimedOut;
        result.errorText = QStringLiteral("the workflow ran longer than %1 s and was stopped").arg(m_timeout.count() / 1000);
        return result;
    }
    if (run.crashed || run.exitCode != 0) {
        result.status = Status::Failed;
        if (result.errorText.isEmpty())
            result.errorText = run.crashed ? QStringLiteral("the workflow crashed")
                                           : QStringLiteral("the workflow exited with status %1").arg(run.exitCode);
        return result;
    }
    result.status = Status::Succeeded;
    const QDir base(result.workingDirectory);
    for (const QString& line : QString::fromUtf8(run.standardOutput).split(u'\n')) {
        const QString path = line.trimmed();
        if (!path.isEmpty())
            result.outputs << QDir::cleanPath(base.absoluteFilePath(path));
    }
    return result;
}

} // namespace quirepad
