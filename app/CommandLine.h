#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

class QTextStream;

namespace quirepad {

// The subcommands of the quirepad executable. Each subsystem adds its
// commands here; --help lists every registered one.
class CommandLine
{
public:
    struct Command {
        QString name;
        QString synopsis;    // arguments, e.g. "TEXT..."
        QString description; // one line
        // Runs the command with the arguments after its name; answers the
        // process exit code. Output goes to out, error lines to err.
        std::function<int(const QStringList& args, QTextStream& out, QTextStream& err)> run;
    };

    CommandLine();

    void addCommand(Command command);
    const std::vector<Command>& commands() const { return m_commands; }

    QString helpText() const;
    QString versionText() const;

    // Parses argv (without the program name) and runs what it asks for.
    int execute(const QStringList& arguments, QTextStream& out, QTextStream& err) const;

private:
    const Command* find(const QString& name) const;

    std::vector<Command> m_commands;
};

} // namespace quirepad
