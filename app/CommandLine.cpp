#include "CommandLine.h"

#include "InstanceMessage.h"

#include "app/version.h"
#include "foundation/GlobalEnv.h"
#include "foundation/cocoa_format.h"
#include "foundation/pathvars.h"

#include <QDir>
#include <QTextStream>

namespace quirepad {

namespace {

int printEnvironment(const CommandInvocation& call)
{
    QTextStream& out = call.out;
    if (!call.arguments.isEmpty()) {
        call.err << "quirepad: env takes no arguments\n";
        return 2;
    }
    const QVariantMap& table = GlobalEnv::instance();
    for (auto it = table.cbegin(); it != table.cend(); ++it)
        out << it.key() << '=' << objectDescription(it.value()) << '\n';
    return 0;
}

int expandArguments(const CommandInvocation& call)
{
    if (call.arguments.isEmpty()) {
        call.err << "quirepad: expand needs at least one TEXT\n";
        return 2;
    }
    for (const QString& text : call.arguments)
        call.out << f(text) << '\n';
    return 0;
}

bool asksForHelp(const QStringList& arguments)
{
    for (const QString& argument : arguments) {
        if (argument == QLatin1String("--"))
            return false;
        if (argument == QLatin1String("--help") || argument == QLatin1String("-h"))
            return true;
    }
    return false;
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
    addCommand({QStringLiteral("env"), QString(),
                QStringLiteral("print the path variables (APP_RESOURCES, APP_SUPPORT, ...)"), printEnvironment});
    addCommand({QStringLiteral("expand"), QStringLiteral("TEXT..."),
                QStringLiteral("expand ${VARIABLE} placeholders and ~ in each TEXT as a path"), expandArguments});
}

void CommandLine::addCommand(Command command)
{
    m_commands.push_back(std::move(command));
}

QString CommandLine::versionText() const
{
    return QStringLiteral("quirepad " QUIREPAD_VERSION "\n");
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
        width = qMax(width, int((c.name + QLatin1Char(' ') + c.synopsis).trimmed().size()));
    for (const Command& c : m_commands) {
        const QString head = (c.name + QLatin1Char(' ') + c.synopsis).trimmed();
        const QStringList lines = c.description.split(u'\n');
        s << "  " << head.leftJustified(width + 2) << lines.first() << '\n';
        for (qsizetype i = 1; i < lines.size(); ++i)
            s << "  " << QString(width + 2, u' ') << lines.at(i) << '\n';
    }
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
    return QStringLiteral("Usage: quirepad %1\n\n%2\n")
        .arg((command.name + QLatin1Char(' ') + command.synopsis).trimmed(), command.description);
}

const CommandLine::Command* CommandLine::find(const QString& name) const
{
    for (const Command& c : m_commands)
        if (c.name == name)
            return &c;
    return nullptr;
}

int CommandLine::execute(const QStringList& arguments, QTextStream& out, QTextStream& err,
                         const QString& workingDirectory) const
{
    if (arguments.isEmpty()) {
        err << helpText();
        return 2;
    }
    const QString& first = arguments.first();
    if (first == QLatin1String("--help") || first == QLatin1String("-h") || first == QLatin1String("help")) {
        const Command* topic = first == QLatin1String("help") ? find(arguments.value(1)) : nullptr;
        out << (topic ? usageText(*topic) : helpText());
        return 0;
    }
    if (first == QLatin1String("--version") || first == QLatin1String("-v")) {
        out << versionText();
        return 0;
    }
    const Command* command = find(first);
    if (!command) {
        err << "quirepad: unknown command '" << first << "' (see quirepad --help)\n";
        return 2;
    }
    if (asksForHelp(arguments.mid(1))) {
        out << usageText(*command);
        return 0;
    }
    return command->run(CommandInvocation{arguments.mid(1), out, err, workingDirectory});
}

} // namespace quirepad
