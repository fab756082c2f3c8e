#include "foundation/ProcessRunner.h"

#include "foundation/Log.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QProcess>
#include <QTimer>

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

ProcessRunner::Result ProcessRunner::run() const
{
    Result result;
    QProcess process;
    process.setProgram(m_program);
    process.setArguments(m_arguments);
    if (!m_workingDirectory.isEmpty())
        process.setWorkingDirectory(m_workingDirectory);
    if (m_hasEnvironment)
        process.setProcessEnvironment(m_environment);
    process.setProcessChannelMode(m_errorOutput == ErrorOutput::Forwarded ? QProcess::ForwardedErrorChannel
                                                                         : QProcess::SeparateChannels);
    if (m_forwardInput)
        process.setInputChannelMode(QProcess::ForwardedInputChannel);
    else
        process.setStandardInputFile(QProcess::nullDevice());

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
                                       << "s and was killed";
        process.kill();
    });

    process.start();
    if (!QCoreApplication::instance()) {
        // No event loop to turn: wait plainly.
        if (!process.waitForFinished(int(m_timeout.count()))) {
            result.timedOut = process.state() != QProcess::NotRunning;
            process.kill();
            process.waitForFinished(-1);
        }
        finished = true;
    } else {
        deadline.start(m_timeout);
        if (!finished && process.state() != QProcess::NotRunning)
            loop.exec(QEventLoop::AllEvents);
        // A start failure may already have been reported before exec().
        while (!finished && process.state() != QProcess::NotRunning)
            loop.exec(QEventLoop::AllEvents);
    }
    deadline.stop();

    result.started = process.error() != QProcess::FailedToStart;
    result.standardOutput = process.readAllStandardOutput();
    if (m_errorOutput == ErrorOutput::Captured)
        result.standardError = process.readAllStandardError();
    result.crashed = result.started && process.exitStatus() == QProcess::CrashExit;
    result.exitCode = result.started && !result.crashed ? process.exitCode() : -1;
    if (!result.started)
        result.errorString = process.errorString();
    if (!result.started)
        qCWarning(lcProcess).noquote() << "could not start" << m_program << ":" << result.errorString;
    return result;
}

} // namespace quirepad
