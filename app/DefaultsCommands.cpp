#include "DefaultsCommands.h"

#include "AppSession.h"
#include "CommandLine.h"

#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QTextStream>

namespace quirepad {

namespace {

// The setting named KEY; otherwise says so, with the keys it resembles.
const SettingDefinition* knownSetting(const CommandInvocation& call, const QString& key)
{
    if (const SettingDefinition* setting = SettingsSchema::find(key))
        return setting;
    const QStringList close = SettingsSchema::closeMatches(key);
    call.fail(close.isEmpty()
            ? QStringLiteral("no setting named '%1' (see quirepad defaults list)").arg(key)
            : QStringLiteral("no setting named '%1'; did you mean %2?").arg(key, close.join(QStringLiteral(" or "))),
        2);
    return nullptr;
}

QString rangeText(const SettingDefinition& setting)
{
    QString text = SettingsSchema::typeName(setting.type);
    if (setting.type == SettingType::Integer)
        text += QStringLiteral(" %1-%2").arg(setting.minimum).arg(setting.maximum);
    return text;
}

// Every setting: key, type and default, then what it does.
QString settingsTable()
{
    QStringList lines;
    for (const SettingDefinition& s : SettingsSchema::all()) {
        const QString shown = SettingsSchema::displayText(s.defaultValue);
        lines << QStringLiteral("  %1  %2, default %3%4")
                     .arg(s.key, rangeText(s), shown.isEmpty() ? QStringLiteral("empty") : shown,
                         s.internal ? QStringLiteral(", read only") : QString())
              << QStringLiteral("      ") + s.description;
    }
    return lines.join(u'\n');
}

int readDefaults(const CommandInvocation& call, UserDefaults& defaults, const QStringList& arguments)
{
    QStringList args = arguments;
    const bool json = args.removeAll(QStringLiteral("--json")) > 0;
    if (args.size() > 1)
        return call.fail(QStringLiteral("usage: defaults read [KEY] [--json]"), 2);
    if (!args.isEmpty()) {
        const SettingDefinition* setting = knownSetting(call, args.first());
        if (!setting)
            return 2;
        const QVariant value = defaults.value(setting->key);
        if (json)
            call.out << QJsonDocument(QJsonObject { { setting->key, QJsonValue::fromVariant(value) } })
                            .toJson(QJsonDocument::Compact)
                     << '\n';
        else
            call.out << SettingsSchema::displayText(value) << '\n';
        return 0;
    }
    const QVariantMap all = defaults.dictionaryRepresentation();
    if (json) {
        call.out << QJsonDocument(QJsonObject::fromVariantMap(all)).toJson(QJsonDocument::Indented);
        return 0;
    }
    for (auto it = all.cbegin(); it != all.cend(); ++it)
        call.out << it.key() << " = " << SettingsSchema::displayText(it.value())
                 << (defaults.isStored(it.key()) ? "" : "  (default)") << '\n';
    return 0;
}

int writeDefault(const CommandInvocation& call, UserDefaults& defaults, const QStringList& args)
{
    if (args.size() != 2)
        return call.fail(QStringLiteral("usage: defaults write KEY VALUE"), 2);
    const SettingDefinition* setting = knownSetting(call, args.at(0));
    if (!setting)
        return 2;
    if (setting->internal)
        return call.fail(QStringLiteral("%1 is kept by Quirepad itself and cannot be written").arg(setting->key), 2);
    QString problem;
    const std::optional<QVariant> value = SettingsSchema::parse(*setting, args.at(1), &problem);
    if (!value)
        return call.fail(problem, 2);
    defaults.setValue(setting->key, *value);
    defaults.sync();
    return 0;
}

int deleteDefault(const CommandInvocation& call, UserDefaults& defaults, const QStringList& args)
{
    if (args.size() != 1)
        return call.fail(QStringLiteral("usage: defaults delete KEY"), 2);
    const SettingDefinition* setting = knownSetting(call, args.first());
    if (!setting)
        return 2;
    if (!defaults.isStored(setting->key))
        return call.fail(QStringLiteral("'%1' is not set").arg(setting->key));
    defaults.remove(setting->key);
    defaults.sync();
    return 0;
}

int defaultsCommand(AppSession& session, const CommandInvocation& call)
{
    const QStringList& args = call.arguments;
    const QString sub = args.value(0);
    if (sub == QLatin1String("list") || sub == QLatin1String("keys")) {
        if (args.size() != 1)
            return call.fail(QStringLiteral("defaults %1 takes no arguments").arg(sub), 2);
        if (sub == QLatin1String("list"))
            call.out << settingsTable() << '\n';
        else
            for (const SettingDefinition& s : SettingsSchema::all())
                call.out << s.key << '\n';
        return 0;
    }
    using Handler = int (*)(const CommandInvocation&, UserDefaults&, const QStringList&);
    Handler handler = nullptr;
    if (sub == QLatin1String("read"))
        handler = readDefaults;
    else if (sub == QLatin1String("write"))
        handler = writeDefault;
    else if (sub == QLatin1String("delete"))
        handler = deleteDefault;
    if (!handler)
        return call.fail(sub.isEmpty() ? QStringLiteral("defaults needs read, write, delete, list or keys")
                                       : QStringLiteral("defaults has no subcommand '%1'").arg(sub),
            2);
    if (sub != QLatin1String("read") && args.contains(QStringLiteral("--json")))
        return call.fail(QStringLiteral("only defaults read takes --json"), 2);
    session.delegate(); // registers the defaults
    return handler(call, UserDefaults::standard(), args.mid(1));
}

} // namespace

void addDefaultsCommands(CommandLine& commandLine, AppSession& session)
{
    commandLine.addCommand({ QStringLiteral("preferences"), QString(),
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
        },
        {}, QStringList() });
    commandLine.addCommand({ QStringLiteral("defaults"),
        QStringLiteral("read [KEY] [--json] | write KEY VALUE | delete KEY | list | keys"),
        QStringLiteral("read and change the settings\n"
                       "A key never set shows its default.\n"
                       "  read [KEY] [--json]  one setting, or all (--json: as a JSON object)\n"
                       "  write KEY VALUE      booleans as yes/no; a wrong key, type or range\n"
                       "                       changes nothing (status 2)\n"
                       "  delete KEY           back to the default\n"
                       "  list                 every setting with its type, default and purpose\n"
                       "  keys                 the keys, one a line\n"
                       "Settings:\n")
            + settingsTable(),
        [&session](const CommandInvocation& call) { return defaultsCommand(session, call); },
        { QStringLiteral("read"), QStringLiteral("write"), QStringLiteral("delete"), QStringLiteral("list"),
            QStringLiteral("keys") },
        QStringList { QStringLiteral("--json") } });
}

} // namespace quirepad
