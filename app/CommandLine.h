#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
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
        QString synopsis; // arguments, e.g. "TEXT..."
        QString description; // one line, or several for subcommands
        // Answers the process exit status.
        std::function<int(const CommandInvocation&)> run;
        // The words that may follow the name (for completion and the
        // manual); when empty, the lower-case words the synopsis starts
        // its alternatives with ("list | install FILE").
        QStringList subcommands = {};
        // When set, every option the command takes ("--json"; "--title="
        // when a value follows it): any other one, before a "--", is
        // refused before the command runs, and the "--" is dropped.
        std::optional<QStringList> options = std::nullopt;
    };

    CommandLine();

    void addCommand(Command command);
    const std::vector<Command>& commands() const { return m_commands; }
    bool hasCommand(const QString& name) const { return find(name) != nullptr; }

    QString helpText() const;
    // One command's usage: its synopsis and description, in 80 columns.
    static QString usageText(const Command& command);
    QString versionText() const;
    // The words that may follow a command's name.
    static QStringList subcommandsOf(const Command& command);
    const Command* find(const QString& name) const;

    // Text wrapped at spaces into lines of at most width columns; a line
    // that goes on past the width continues under its second column (the
    // text after its first run of two spaces), or at indent when given.
    static QString wrapped(const QString& text, int width = 80, int indent = -1);
    // Whether the arguments ask for help (--help or -h before any "--").
    static bool asksForHelp(const QStringList& arguments);

    // Runs what the arguments (without the program name) ask for. A
    // command given --help or -h (before any "--") is not run: its usage
    // is printed instead, whatever else the arguments say.
    int execute(const QStringList& arguments, QTextStream& out, QTextStream& err,
        const QString& workingDirectory = QString()) const;

private:
    int executeTopLevel(const QStringList& arguments, QTextStream& out, QTextStream& err) const;

    std::vector<Command> m_commands;
};

} // namespace quirepad
