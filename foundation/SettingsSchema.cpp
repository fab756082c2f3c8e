#include "foundation/SettingsSchema.h"

#include "foundation/cocoa_format.h"

#include <algorithm>
#include <array>
#include <vector>

namespace quirepad {

namespace {

SettingDefinition boolean(const QString& key, bool value, const char* description)
{
    return { key, SettingType::Boolean, value, QString::fromUtf8(description) };
}

SettingDefinition destination(const QString& key, const char* description)
{
    return { key, SettingType::Destination, QString(), QString::fromUtf8(description) };
}

SettingDefinition text(const QString& key, const char* description)
{
    return { key, SettingType::Text, QString(), QString::fromUtf8(description) };
}

SettingDefinition integer(const QString& key, qint64 value, qint64 minimum, qint64 maximum, const char* description)
{
    return { key, SettingType::Integer, value, QString::fromUtf8(description), minimum, maximum };
}

const std::array<SettingDefinition, 15>& table()
{
    static const std::array<SettingDefinition, 15> settings = [] {
        std::array<SettingDefinition, 15> t = {
            destination(SettingKey::DestinationName, "where printed jobs and opened files go; empty: ask in the panel"),
            destination(SettingKey::RemoteDestinationName, "where jobs printed from other devices go; empty: ask"),
            destination(SettingKey::ScreenshotDestinationName, "where screenshots go; empty: ask"),
            integer(SettingKey::Maxcount, 5, 1, 20, "the most destinations in one row of the panel"),
            boolean(SettingKey::FollowMouse, true, "open the panel at the mouse pointer"),
            boolean(SettingKey::ShowMenubarIcon, true, "show the tray icon"),
            boolean(SettingKey::DisableNotifications, false, "show no desktop notifications"),
            boolean(SettingKey::ForceIntroWindow, false, "show the introduction at the next start"),
            boolean(SettingKey::EnableAirPrinter, false, "announce the print queue to phones (AirPrint)"),
            { SettingKey::AirPrinter, SettingType::Text, QString(),
                QStringLiteral("the address of the print queue last found on the network (kept by Quirepad)"), 0, 0,
                true },
            boolean(SettingKey::HttpEnabled, false, "serve the page feed over HTTP"),
            integer(SettingKey::HttpPort, 8631, 1, 65535, "the page feed's port"),
            boolean(SettingKey::HttpBindAll, false, "serve the page feed to other devices, not only this one"),
            text(SettingKey::HttpServiceName, "the name the page feed is announced under; empty: not announced"),
            text(SettingKey::HttpServiceType, "the DNS-SD type the page feed is announced as (e.g. _http._tcp)"),
        };
        for (SettingDefinition& s : t)
            s.registeredInCode = s.key == SettingKey::ShowMenubarIcon || s.key == SettingKey::Maxcount
                || s.key == SettingKey::AirPrinter;
        return t;
    }();
    return settings;
}

} // namespace

std::span<const SettingDefinition> SettingsSchema::all()
{
    return table();
}

const SettingDefinition* SettingsSchema::find(const QString& key)
{
    for (const SettingDefinition& s : table())
        if (s.key == key)
            return &s;
    return nullptr;
}

QStringList SettingsSchema::closeMatches(const QString& key)
{
    // Edit distance (insertions, deletions, substitutions), case ignored.
    const auto distance = [](const QString& a, const QString& b) {
        std::vector<qsizetype> row(size_t(b.size()) + 1);
        for (qsizetype j = 0; j <= b.size(); ++j)
            row[size_t(j)] = j;
        for (qsizetype i = 1; i <= a.size(); ++i) {
            qsizetype diagonal = row[0];
            row[0] = i;
            for (qsizetype j = 1; j <= b.size(); ++j) {
                const qsizetype above = row[size_t(j)];
                const bool same = a.at(i - 1).toLower() == b.at(j - 1).toLower();
                row[size_t(j)] = std::min({ above + 1, row[size_t(j - 1)] + 1, diagonal + (same ? 0 : 1) });
                diagonal = above;
            }
        }
        return row.back();
    };
    QStringList matches;
    const QString wanted = key.toLower();
    for (const SettingDefinition& s : table()) {
        const QString candidate = s.key.toLower();
        const bool contained = wanted.size() >= 3 && (candidate.contains(wanted) || wanted.contains(candidate));
        if (contained || distance(wanted, candidate) <= std::max<qsizetype>(2, candidate.size() / 4))
            matches << s.key;
    }
    return matches;
}

QVariantMap SettingsSchema::codeDefaults()
{
    QVariantMap defaults;
    for (const SettingDefinition& s : table())
        if (s.registeredInCode)
            defaults.insert(s.key, s.defaultValue);
    return defaults;
}

std::optional<QVariant> SettingsSchema::parse(const SettingDefinition& setting, const QString& text, QString* problem)
{
    auto refuse = [&](const QString& why) -> std::optional<QVariant> {
        if (problem)
            *problem = why;
        return std::nullopt;
    };
    switch (setting.type) {
    case SettingType::Boolean: {
        const QString lower = text.trimmed().toLower();
        if (lower == u"yes" || lower == u"true" || lower == u"1")
            return QVariant(true);
        if (lower == u"no" || lower == u"false" || lower == u"0")
            return QVariant(false);
        return refuse(QStringLiteral("%1 takes yes or no, not '%2'").arg(setting.key, text));
    }
    case SettingType::Integer: {
        bool ok = false;
        const qint64 n = text.trimmed().toLongLong(&ok);
        if (!ok)
            return refuse(QStringLiteral("%1 takes a whole number, not '%2'").arg(setting.key, text));
        if (n < setting.minimum || n > setting.maximum)
            return refuse(QStringLiteral("%1 takes a number from %2 to %3, not %4")
                              .arg(setting.key)
                              .arg(setting.minimum)
                              .arg(setting.maximum)
                              .arg(n));
        return QVariant(n);
    }
    case SettingType::Text:
    case SettingType::Destination:
        if (setting.internal)
            return refuse(QStringLiteral("%1 is kept by Quirepad itself and cannot be written").arg(setting.key));
        if (text.contains(QChar(0)) || text.contains(u'\n'))
            return refuse(QStringLiteral("%1 takes one line of text").arg(setting.key));
        return QVariant(text);
    }
    return refuse(QStringLiteral("%1 cannot be written").arg(setting.key));
}

bool SettingsSchema::accepts(const SettingDefinition& setting, const QVariant& value)
{
    switch (setting.type) {
    case SettingType::Boolean:
        return value.typeId() == QMetaType::Bool;
    case SettingType::Integer: {
        bool ok = false;
        const qint64 n = value.toLongLong(&ok);
        return ok && value.typeId() != QMetaType::Bool && n >= setting.minimum && n <= setting.maximum;
    }
    case SettingType::Text:
    case SettingType::Destination:
        return value.typeId() == QMetaType::QString;
    }
    return false;
}

QString SettingsSchema::typeName(SettingType type)
{
    switch (type) {
    case SettingType::Boolean:
        return QStringLiteral("yes/no");
    case SettingType::Integer:
        return QStringLiteral("number");
    case SettingType::Text:
        return QStringLiteral("text");
    case SettingType::Destination:
        return QStringLiteral("destination name");
    }
    return QString();
}

QString SettingsSchema::displayText(const QVariant& value)
{
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    return objectDescription(value);
}

} // namespace quirepad
