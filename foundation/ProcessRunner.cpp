#include "foundation/ProcessRunner.h"

#include "foundation/Log.h"
#include "foundation/Shutdown.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QProcess>
#include <QTimer>

#include <signal.h>
#include <unistd.h>

namespace quirepad {

ProcessRunner::ProcessRunner(const QString& program, const QStringList& arguments)
    : m_program(program)
    , m_arguments(arguments)
{
}

ProcessRunner& ProcessRunner::setWorkingDirectory(const QString& directory)
{
    m_workingDirectory = directory;
    return *this;
}

ProcessRunner& ProcessRunner::setEnvironment(const QProcessEnvironment& environment)
{
    m_environment = environment;
    m_hasEnvironment = true;
    return *this;
}

ProcessRunner& ProcessRunner::setTimeout(std::chrono::milliseconds timeout)
{
    m_timeout = timeout;
    return *this;
}

ProcessRunner& ProcessRunner::setErrorOutput(ErrorOutput mode)
{
    m_errorOutput = mode;
    return *this;
}

ProcessRunner& ProcessRunner::setForwardInput(bool forward)
{
    m_forwardInput = forward;
    return *this;
}

namespace {

constexpr int kGraceMs = 1000;

// Stops the child (and its group, when it has one of its own): SIGTERM,
// then SIGKILL once the grace time is over.
void stopChild(QProcess& process, bool ownGroup)
{
    const qint64 pid = process.processId();
    if (pid <= 0 || process.state() == QProcess::NotRunning)
        return;
    ::kill(ownGroup ? -pid_t(pid) : pid_t(pid), SIGTERM);
    if (!process.waitForFinished(kGraceMs)) {
        ::kill(ownGroup ? -pid_t(pid) : pid_t(pid), SIGKILL);
        process.waitForFinished(-1);
    } else if (ownGroup) {
        ::kill(-pid_t(pid), SIGKILL); // what the child left behind in its group
    }
}

} // namespace

ProcessRunner::Result ProcessRunner::run() const
{
    Result result;
    if (Shutdown::isRequested()) {
        result.interrupted = true;
        result.errorString = QStringLiteral("not started: Quirepad is quitting");
        return result;
    }
    QProcess process;
    process.setProgram(m_program);
    process.setArguments(m_arguments);
    if (!m_workingDirectory.isEmpty())
        process.setWorkingDirectory(m_workingDirectory);
    if (m_hasEnvironment)
        process.setProcessEnvironment(m_environment);
    process.setProcessChannelMode(m_errorOutput == ErrorOutput::Forwarded ? QProcess::ForwardedErrorChannel
                                                                         : QProcess::SeparateChannels);
    const bool ownGroup = !m_forwardInput;
    if (m_forwardInput) {
        process.setInputChannelMode(QProcess::ForwardedInputChannel);
    } else {
        process.setStandardInputFile(QProcess::nullDevice());
        process.setChildProcessModifier([] { ::setpgid(0, 0); });
    }

    QEventLoop loop;
    bool finished = false;
    QObject::connect(&process, &QProcess::finished, &loop, [&] {
        finished = true;
        loop.quit();
    });
    QObject::connect(&process, &QProcess::errorOccurred, &loop, [&](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            finished = true;
            loop.quit();
        }
    });
    QTimer deadline;
    deadline.setSingleShot(true);
    QObject::connect(&deadline, &QTimer::timeout, &loop, [&] {
        result.timedOut = true;
        qCWarning(lcProcess).noquote() << m_program << "ran longer than" << m_timeout.count() / 1000.0
                                       << "s and was stopped";
        loop.quit();
    });
    QObject::connect(&Shutdown::instance(), &Shutdown::requested, &loop, [&] {
        result.interrupted = true;
        loop.quit();
    });

    process.start();
    if (!QCoreApplication::instance()) {
        // No event loop to turn: wait plainly.
        if (!process.waitForFinished(int(m_timeout.count()))) {
            result.timedOut = process.state() != QProcess::NotRunning;
            stopChild(process, ownGroup);
        }
    } else {
        deadline.start(m_timeout);
        // Once the program is ending, Qt runs no new event loop: waiting
        // stops there whatever else happens.
        while (!finished && !result.timedOut && !result.interrupted && process.state() != QProcess::NotRunning) {
            // exec() answers -1 at once when the application has been told
            // to quit: waiting on would spin.
            if (loop.exec(QEventLoop::AllEvents) == -1 || Shutdown::isRequested())
                result.interrupted = true;
        }
        if (result.timedOut || result.interrupted)
            stopChild(process, ownGroup);
    }
    deadline.stop();
    if (result.interrupted)
        qCInfo(lcProcess).noquote() << m_program << "was stopped: Quirepad is quitting";

    result.started = process.error() != QProcess::FailedToStart;
    result.standardOutput = process.readAllStandardOutput();
    if (m_errorOutput == ErrorOutput::Captured)
        result.standardError = process.readAllStandardError();
    result.crashed = result.started && !result.timedOut && !result.interrupted && process.exitStatus() == QProcess::CrashExit;
    result.exitCode = result.started && !result.crashed ? process.exitCode() : -1;
    if (!result.started)
        result.errorString = process.errorString();
    if (!result.started)
        qCWarning(lcProcess).noquote() << "could not start" << m_program << ":" << result.errorString;
    return result;
}

} // namespace quirepad
