#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <chrono>

namespace quirepad {

// Runs one child process to its end while the Qt event loop keeps turning
// (timers, the tray and network clients stay served), with a time limit
// past which the child is stopped. When the program is asked to end
// (Shutdown), the child is stopped at once. A child that does not read our
// standard input runs in a process group of its own, so stopping it stops
// whatever it started too: SIGTERM, then SIGKILL a second later.
class ProcessRunner
{
public:
    enum class ErrorOutput { Forwarded, Captured };

    struct Result {
        bool started = false;
        bool timedOut = false;
        bool interrupted = false; // stopped because the program is ending
        bool crashed = false;
        int exitCode = -1;
        QByteArray standardOutput;
        QByteArray standardError; // only with ErrorOutput::Captured
        QString errorString;

        bool succeeded() const { return started && !timedOut && !interrupted && !crashed && exitCode == 0; }
    };

    static constexpr std::chrono::milliseconds defaultTimeout{std::chrono::minutes(10)};

    explicit ProcessRunner(const QString& program, const QStringList& arguments = {});

    ProcessRunner& setWorkingDirectory(const QString& directory);
    ProcessRunner& setEnvironment(const QProcessEnvironment& environment);
    ProcessRunner& setTimeout(std::chrono::milliseconds timeout);
    ProcessRunner& setErrorOutput(ErrorOutput mode);
    ProcessRunner& setForwardInput(bool forward);

    Result run() const;

private:
    QString m_program;
    QStringList m_arguments;
    QString m_workingDirectory;
    QProcessEnvironment m_environment;
    bool m_hasEnvironment = false;
    std::chrono::milliseconds m_timeout = defaultTimeout;
    ErrorOutput m_errorOutput = ErrorOutput::Forwarded;
    bool m_forwardInput = true;
};

} // namespace quirepad
