#include "CommandLine.h"

#include "InstanceMessage.h"
#include "ManPage.h"

#include "app/version.h"
#include "foundation/GlobalEnv.h"
#include "foundation/cocoa_format.h"
#include "foundation/pathvars.h"

#include <QDir>
#include <QRegularExpression>
#include <QTextStream>

namespace quirepad {

namespace {

int printEnvironment(const CommandInvocation& call)
{
    QTextStream& out = call.out;
    if (!call.arguments.isEmpty())
        return call.fail(QStringLiteral("env takes no arguments"), 2);
    const QVariantMap& table = GlobalEnv::instance();
    for (auto it = table.cbegin(); it != table.cend(); ++it)
        out << it.key() << '=' << objectDescription(it.value()) << '\n';
    return 0;
}

int expandArguments(const CommandInvocation& call)
{
    if (call.arguments.isEmpty())
        return call.fail(QStringLiteral("expand needs at least one TEXT"), 2);
    for (const QString& text : call.arguments)
        call.out << f(text) << '\n';
    return 0;
}

bool looksLikeOption(const QString& argument)
{
    return (argument.startsWith(QLatin1String("--")) && argument.size() > 2)
        || (argument.size() == 2 && argument.at(0) == u'-' && argument.at(1).isLetter());
}

// The arguments without the first "--", or the first option the command
// does not take (in *unknown).
QStringList checkedOptions(const QStringList& arguments, const QStringList& options, QString* unknown)
{
    QStringList kept;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--"))
            return kept + arguments.mid(i + 1);
        kept << argument;
        if (!looksLikeOption(argument))
            continue;
        if (options.contains(argument + u'=')) {
            if (i + 1 < arguments.size())
                kept << arguments.at(++i);
        } else if (!options.contains(argument)) {
            *unknown = argument;
            return {};
        }
    }
    return kept;
}

int leadingSpaces(const QString& line)
{
    int n = 0;
    while (n < line.size() && line.at(n) == u' ')
        ++n;
    return n;
}

// Where the continuation of a line goes: under the text after its first
// run of two spaces (a second column), else a little in from its start.
int continuationIndent(const QString& line)
{
    const int start = leadingSpaces(line);
    const qsizetype gap = line.indexOf(QLatin1String("  "), start);
    if (gap > 0) {
        int column = int(gap);
        while (column < line.size() && line.at(column) == u' ')
            ++column;
        if (column < line.size() && column <= 40)
            return column;
    }
    return start + 4;
}

} // namespace

QString CommandInvocation::absolutePath(const QString& path) const
{
    if (path.isEmpty() || QDir::isAbsolutePath(path) || path.startsWith(u'~'))
        return path;
    return QDir::cleanPath((workingDirectory.isEmpty() ? QDir::currentPath() : workingDirectory) + u'/' + path);
}

int CommandInvocation::fail(const QString& message, int status) const
{
    err << "quirepad: " << message << '\n';
    return status;
}

CommandLine::CommandLine()
{
    addCommand({ QStringLiteral("env"), QString(),
        QStringLiteral("print the path variables (APP_RESOURCES, APP_SUPPORT, ...)"), printEnvironment, {},
        QStringList() });
    addCommand({ QStringLiteral("expand"), QStringLiteral("TEXT..."),
        QStringLiteral("expand ${VARIABLE} placeholders and ~ in each TEXT as a path"), expandArguments });
}

void CommandLine::addCommand(Command command)
{
    m_commands.push_back(std::move(command));
}

QString CommandLine::versionText() const
{
    return QStringLiteral("quirepad " QUIREPAD_VERSION "\n");
}

QString CommandLine::wrapped(const QString& text, int width, int indent)
{
    QStringList result;
    for (QString line : text.split(u'\n')) {
        const int continuation = indent >= 0 ? indent : continuationIndent(line);
        while (line.size() > width) {
            qsizetype cut = line.lastIndexOf(u' ', width);
            if (cut <= continuation)
                cut = line.indexOf(u' ', width); // a word longer than the room
            if (cut < 0)
                break;
            QString done = line.left(cut);
            while (done.endsWith(u' '))
                done.chop(1);
            result << done;
            line = QString(continuation, u' ') + line.mid(cut).trimmed();
        }
        result << line;
    }
    return result.join(u'\n');
}

QString CommandLine::helpText() const
{
    QString text;
    QTextStream s(&text);
    s << "Usage: quirepad [--help] [--version] [--headless] [COMMAND [ARGS...] | FILE...]\n\n"
      << "Print to action: turn printed documents into delivered files.\n\n"
      << "Options:\n"
      << "  -h, --help     show this help and exit\n"
      << "  -v, --version  show the version and exit\n"
      << "  --headless     run as the user's Quirepad instance without any window;\n"
      << "                 later commands and files are forwarded to it\n\n"
      << "Commands:\n";
    int width = 0;
    for (const Command& c : m_commands)
        width = qMax(width, int(c.name.size()));
    for (const Command& c : m_commands)
        s << wrapped(QStringLiteral("  %1  %2").arg(c.name.leftJustified(width), c.description.section(u'\n', 0, 0)))
          << '\n';
    s << "\n"
      << "quirepad COMMAND --help (or quirepad help COMMAND) shows one command's usage.\n\n"
      << "Exit status:\n"
      << "  0   done\n"
      << "  1   the command failed; standard error says why\n"
      << "  2   the command was used the wrong way\n"
      << "  " << InstanceReply::unavailableStatus
      << "  the running Quirepad did not take or did not answer the request; it was\n"
      << "      not carried out by this process either (try again)\n";
    return text;
}

QString CommandLine::usageText(const Command& command)
{
    // An option in brackets stays on one line: its spaces do not break.
    QString synopsis = command.synopsis;
    int depth = 0;
    for (QChar& c : synopsis) {
        depth += c == u'[' ? 1 : c == u']' ? -1 : 0;
        if (depth > 0 && c == u' ')
            c = QChar(0x1f);
    }
    QString head = QStringLiteral("Usage: quirepad %1 %2").arg(command.name, synopsis).trimmed();
    // The synopsis goes on under its own start.
    const int synopsisColumn = int(QStringLiteral("Usage: quirepad ").size() + command.name.size() + 1);
    head = wrapped(head, 80, qMin(synopsisColumn, 40)).replace(QChar(0x1f), u' ');
    return head + QStringLiteral("\n\n") + wrapped(command.description) + u'\n';
}

QStringList CommandLine::subcommandsOf(const Command& command)
{
    if (!command.subcommands.isEmpty())
        return command.subcommands;
    QStringList words;
    static const QRegularExpression word(QStringLiteral("^[a-z][a-z0-9-]*$"));
    for (const QString& alternative : command.synopsis.split(u'|')) {
        const QString first = alternative.trimmed().section(u' ', 0, 0);
        if (!word.match(first).hasMatch())
            return {};
        words << first;
    }
    return words;
}

const CommandLine::Command* CommandLine::find(const QString& name) const
{
    for (const Command& c : m_commands)
        if (c.name == name)
            return &c;
    return nullptr;
}

int CommandLine::executeTopLevel(const QStringList& arguments, QTextStream& out, QTextStream& err) const
{
    const QString& first = arguments.first();
    const QStringList rest = arguments.mid(1);
    const auto wrong = [&err](const QString& message) {
        err << "quirepad: " << message << '\n';
        return 2;
    };
    if (first == QLatin1String("help")) {
        if (rest.size() > 1)
            return wrong(QStringLiteral("help takes one COMMAND"));
        if (rest.isEmpty()) {
            out << helpText();
            return 0;
        }
        const Command* topic = find(rest.first());
        if (!topic)
            return wrong(QStringLiteral("unknown command '%1' (see quirepad --help)").arg(rest.first()));
        out << usageText(*topic);
        return 0;
    }
    if (first == QLatin1String("--subcommands")) {
        const Command* command = rest.size() == 1 ? find(rest.first()) : nullptr;
        if (!command)
            return wrong(QStringLiteral("--subcommands takes one COMMAND"));
        for (const QString& word : subcommandsOf(*command))
            out << word << '\n';
        return 0;
    }
    static const QStringList alone { QStringLiteral("--help"), QStringLiteral("-h"), QStringLiteral("--version"),
        QStringLiteral("-v"), QStringLiteral("--man"), QStringLiteral("--commands") };
    if (!alone.contains(first))
        return -1;
    if (!rest.isEmpty())
        return wrong(QStringLiteral("%1 takes no arguments").arg(first));
    if (first == QLatin1String("--help") || first == QLatin1String("-h")) {
        out << helpText();
        return 0;
    }
    if (first == QLatin1String("--version") || first == QLatin1String("-v")) {
        out << versionText();
        return 0;
    }
    if (first == QLatin1String("--man")) {
        out << ManPage(*this).text();
        return 0;
    }
    if (first == QLatin1String("--commands")) {
        for (const Command& c : m_commands)
            out << c.name << '\n';
        return 0;
    }
    return -1;
}

int CommandLine::execute(
    const QStringList& arguments, QTextStream& out, QTextStream& err, const QString& workingDirectory) const
{
    if (arguments.isEmpty()) {
        err << "quirepad: no command given (see quirepad --help)\n";
        return 2;
    }
    const int topLevel = executeTopLevel(arguments, out, err);
    if (topLevel >= 0)
        return topLevel;
    const QString& first = arguments.first();
    const Command* command = find(first);
    if (!command) {
        err << "quirepad: unknown " << (first.startsWith(u'-') ? "option" : "command") << " '" << first
            << "' (see quirepad --help)\n";
        return 2;
    }
    if (asksForHelp(arguments.mid(1))) {
        out << usageText(*command);
        return 0;
    }
    QStringList commandArguments = arguments.mid(1);
    if (command->options) {
        QString unknown;
        commandArguments = checkedOptions(commandArguments, *command->options, &unknown);
        if (!unknown.isEmpty()) {
            err << "quirepad: " << first << ": unknown option '" << unknown << "' (see quirepad " << first
                << " --help)\n";
            return 2;
        }
    }
    return command->run(CommandInvocation { commandArguments, out, err, workingDirectory });
}

bool CommandLine::asksForHelp(const QStringList& arguments)
{
    for (const QString& argument : arguments) {
        if (argument == QLatin1String("--"))
            return false;
        if (argument == QLatin1String("--help") || argument == QLatin1String("-h"))
            return true;
    }
    return false;
}

} // namespace quirepad
