#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <chrono>

namespace quirepad {

// Runs a workflow: an executable file "Name.workflow", or a folder
// "Name.workflow/" holding an executable "run". The input path is its one
// argument; it runs in a new temporary folder with the job info as
// QUIREPAD_<KEY> environment variables; each line it prints on standard
// output names a result file. The event loop keeps turning meanwhile.
class WorkflowRunner
{
public:
    enum class Status {
        Succeeded,
        Failed,        // ran and exited with a status other than 0, or crashed
        NotExecutable, // missing run bit, not a program, refused by the system
        TimedOut,      // killed at the time limit
    };

    struct Result {
        Status status = Status::Failed;
        QStringList outputs;  // result paths, in the order printed
        QString errorText;    // standard error (or why it could not start)
        int exitCode = -1;
        QString workingDirectory;
    };

    static constexpr std::chrono::milliseconds defaultTimeout{std::chrono::minutes(10)};

    explicit WorkflowRunner(const QString& workflowPath);

    WorkflowRunner& setJobInfo(const QVariantMap& info);
    WorkflowRunner& setTimeout(std::chrono::milliseconds timeout);

    // The program a workflow path stands for, or a null string when there is
    // none (no such file, a folder without "run").
    static QString executableOf(const QString& workflowPath);

    Result run(const QString& inputPath) const;

private:
    QString m_workflow;
    QVariantMap m_jobInfo;
    std::chrono::milliseconds m_timeout = defaultTimeout;
};

} // namespace quirepad
