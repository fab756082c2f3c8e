#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

class QTextStream;

namespace quirepad {

// One run of a command: its arguments, where it writes, and the folder it
// was started in (a forwarded command runs in another process).
struct CommandInvocation {
    QStringList arguments;
    QTextStream& out;
    QTextStream& err;
    QString workingDirectory;

    // A path argument made absolute against the caller's folder.
    QString absolutePath(const QString& path) const;
    // Writes "quirepad: message" as one line on err and answers the status.
    int fail(const QString& message, int status = 1) const;
};

// The subcommands of the quirepad executable. Each subsystem adds its
// commands; --help lists every registered one.
class CommandLine
{
public:
    struct Command {
        QString name;
        QString synopsis;    // arguments, e.g. "TEXT..."
        QString description; // one line, or several for subcommands
        // Answers the process exit status.
        std::function<int(const CommandInvocation&)> run;
    };

    CommandLine();

    void addCommand(Command command);
    const std::vector<Command>& commands() const { return m_commands; }
    bool hasCommand(const QString& name) const { return find(name) != nullptr; }

    QString helpText() const;
    // One command's usage: its synopsis and description.
    static QString usageText(const Command& command);
    QString versionText() const;

    // Runs what the arguments (without the program name) ask for. A
    // command given --help or -h (before any "--") is not run: its usage
    // is printed instead, whatever else the arguments say.
    int execute(const QStringList& arguments, QTextStream& out, QTextStream& err,
                const QString& workingDirectory = QString()) const;

private:
    const Command* find(const QString& name) const;

    std::vector<Command> m_commands;
};

} // namespace quirepad
