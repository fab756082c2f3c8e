#include "DefaultsCommands.h"

#include "AppSession.h"
#include "CommandLine.h"

#include "foundation/UserDefaults.h"
#include "foundation/cocoa_format.h"

#include <QTextStream>

namespace quirepad {

namespace {

QString shown(const QVariant& value)
{
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    return objectDescription(value);
}

int readDefaults(const CommandInvocation& call, UserDefaults& defaults, const QStringList& args)
{
    if (args.size() > 1)
        return call.fail(QStringLiteral("usage: defaults read [KEY]"), 2);
    const QVariantMap all = defaults.dictionaryRepresentation();
    auto line = [&](const QString& key) {
        const bool isDefault = !defaults.isStored(key);
        return key + QStringLiteral(" = ") + shown(defaults.value(key))
               + (isDefault ? QStringLiteral("  (default)") : QString());
    };
    if (args.isEmpty()) {
        for (auto it = all.cbegin(); it != all.cend(); ++it)
            call.out << line(it.key()) << '\n';
        return 0;
    }
    const QString key = args.first();
    if (!defaults.contains(key))
        return call.fail(QStringLiteral("no setting named '%1'").arg(key));
    call.out << shown(defaults.value(key)) << '\n';
    return 0;
}

int writeDefault(const CommandInvocation& call, UserDefaults& defaults, const QStringList& args)
{
    if (args.size() != 2)
        return call.fail(QStringLiteral("usage: defaults write KEY VALUE"), 2);
    const QString key = args.at(0);
    const QString text = args.at(1);
    const QVariant current = defaults.value(key);
    QVariant value = text;
    if (current.typeId() == QMetaType::Bool) {
        const QString lower = text.toLower();
        if (QStringList{"yes", "true", "1"}.contains(lower))
            value = true;
        else if (QStringList{"no", "false", "0"}.contains(lower))
            value = false;
        else
            return call.fail(QStringLiteral("%1 takes yes or no, not '%2'").arg(key, text), 2);
    } else if (current.typeId() == QMetaType::Int || current.typeId() == QMetaType::LongLong) {
        bool ok = false;
        const qint64 n = text.toLongLong(&ok);
        if (!ok)
            return call.fail(QStringLiteral("%1 takes a whole number, not '%2'").arg(key, text), 2);
        value = n;
    }
    defaults.setValue(key, value);
    defaults.sync();
    return 0;
}

int deleteDefault(const CommandInvocation& call, UserDefaults& defaults, const QStringList& args)
{
    if (args.size() != 1)
        return call.fail(QStringLiteral("usage: defaults delete KEY"), 2);
    if (!defaults.isStored(args.first()))
        return call.fail(QStringLiteral("'%1' is not set").arg(args.first()));
    defaults.remove(args.first());
    defaults.sync();
    return 0;
}

} // namespace

void addDefaultsCommands(CommandLine& commandLine, AppSession& session)
{
    commandLine.addCommand({QStringLiteral("preferences"), QString(),
                            QStringLiteral("open the preferences window of the running Quirepad"),
                            [&session](const CommandInvocation& call) {
                                if (!call.arguments.isEmpty())
                                    return call.fail(QStringLiteral("preferences takes no arguments"), 2);
                                if (!session.isInstance())
                                    return call.fail(QStringLiteral("no Quirepad is running"));
                                if (!session.showPreferences())
                                    return call.fail(QStringLiteral("the running Quirepad has no windows (--headless)"));
                                call.out << "the preferences are open\n";
                                return 0;
                            }});
    commandLine.addCommand(
        {QStringLiteral("defaults"), QStringLiteral("SUBCOMMAND"),
         QStringLiteral("the settings; a key never set shows its default:\n"
                        "read [KEY]                        one setting, or all\n"
                        "write KEY VALUE                   booleans as yes/no\n"
                        "delete KEY                        back to the default"),
         [&session](const CommandInvocation& call) {
             session.delegate(); // registers the defaults
             UserDefaults& defaults = UserDefaults::standard();
             const QStringList& args = call.arguments;
             const QString sub = args.value(0);
             if (sub == QLatin1String("read"))
                 return readDefaults(call, defaults, args.mid(1));
             if (sub == QLatin1String("write"))
                 return writeDefault(call, defaults, args.mid(1));
             if (sub == QLatin1String("delete"))
                 return deleteDefault(call, defaults, args.mid(1));
             return call.fail(QStringLiteral("defaults needs read, write or delete"), 2);
         }});
}

} // namespace quirepad
