#include "CommandLine.h"

#include "app/version.h"
#include "foundation/GlobalEnv.h"
#include "foundation/cocoa_format.h"
#include "foundation/pathvars.h"

#include <QTextStream>

namespace quirepad {

namespace {

int printEnvironment(const QStringList& args, QTextStream& out, QTextStream& err)
{
    if (!args.isEmpty()) {
        err << "env takes no arguments\n";
        return 2;
    }
    const QVariantMap& table = GlobalEnv::instance();
    for (auto it = table.cbegin(); it != table.cend(); ++it)
        out << it.key() << '=' << objectDescription(it.value()) << '\n';
    return 0;
}

int expandArguments(const QStringList& args, QTextStream& out, QTextStream& err)
{
    if (args.isEmpty()) {
        err << "expand needs at least one TEXT\n";
        return 2;
    }
    for (const QString& text : args)
        out << f(text) << '\n';
    return 0;
}

} // namespace

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
    s << "Usage: quirepad [--help] [--version] COMMAND [ARGS...]\n\n"
      << "Print to action: turn printed documents into delivered files.\n\n"
      << "Options:\n"
      << "  -h, --help     show this help and exit\n"
      << "  -v, --version  show the version and exit\n\n"
      << "Commands:\n";
    int width = 0;
    for (const Command& c : m_commands)
        width = qMax(width, int((c.name + QLatin1Char(' ') + c.synopsis).trimmed().size()));
    for (const Command& c : m_commands) {
        const QString head = (c.name + QLatin1Char(' ') + c.synopsis).trimmed();
        s << "  " << head.leftJustified(width + 2) << c.description << '\n';
    }
    return text;
}

const CommandLine::Command* CommandLine::find(const QString& name) const
{
    for (const Command& c : m_commands)
        if (c.name == name)
            return &c;
    return nullptr;
}

int CommandLine::execute(const QStringList& arguments, QTextStream& out, QTextStream& err) const
{
    if (arguments.isEmpty()) {
        err << helpText();
        return 2;
    }
    const QString& first = arguments.first();
    if (first == QLatin1String("--help") || first == QLatin1String("-h") || first == QLatin1String("help")) {
        out << helpText();
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
    return command->run(arguments.mid(1), out, err);
}

} // namespace quirepad
