#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

#include <optional>
#include <span>

namespace quirepad {

// The names of the application's settings. Code reads and writes settings
// through these, never through spelled-out keys.
namespace SettingKey {
inline const QString DestinationName = QStringLiteral("destination_name");
inline const QString RemoteDestinationName = QStringLiteral("remote_destination_name");
inline const QString ScreenshotDestinationName = QStringLiteral("screenshot_destination_name");
inline const QString FollowMouse = QStringLiteral("follow_mouse");
inline const QString Maxcount = QStringLiteral("maxcount");
inline const QString ShowMenubarIcon = QStringLiteral("show_menubar_icon");
inline const QString DisableNotifications = QStringLiteral("disable_all_displaynotifications");
inline const QString ForceIntroWindow = QStringLiteral("force_intro_window");
inline const QString EnableAirPrinter = QStringLiteral("enable_airprinter");
inline const QString AirPrinter = QStringLiteral("air_printer");
inline const QString HttpEnabled = QStringLiteral("HTTPServer_enabled");
inline const QString HttpPort = QStringLiteral("HTTPServer_serverPort");
inline const QString HttpBindAll = QStringLiteral("HTTPServer_bind_all");
inline const QString HttpServiceName = QStringLiteral("HTTPServer_serviceName");
inline const QString HttpServiceType = QStringLiteral("HTTPServer_serviceType");
} // namespace SettingKey

enum class SettingType {
    Boolean, // yes/no
    Integer, // a whole number within [minimum, maximum]
    Text, // free text
    Destination, // the name of a destination; empty means ask in the panel
};

// One setting: its key, type, default, allowed values and what it does.
struct SettingDefinition {
    QString key;
    SettingType type;
    QVariant defaultValue;
    QString description; // one line, for --help, the man page and tooltips
    qint64 minimum = 0;
    qint64 maximum = 0;
    // Kept by the program itself: shown by `defaults read`, never written
    // from the command line.
    bool internal = false;
    // Registered in code; the other defaults come from "Defaults.plist".
    bool registeredInCode = false;
};

// The table of every setting, in the order the user meets them.
class SettingsSchema
{
public:
    static std::span<const SettingDefinition> all();
    static const SettingDefinition* find(const QString& key);
    // Keys that look like a mistyped KEY (a few letters off, or one
    // containing the other), in table order.
    static QStringList closeMatches(const QString& key);

    // The defaults registered in code (the resource "Defaults.plist" is
    // registered after them and may replace them).
    static QVariantMap codeDefaults();

    // Text from the command line made into a value of the setting's type.
    // On refusal answers nothing and says why in *problem (one line).
    static std::optional<QVariant> parse(const SettingDefinition& setting, const QString& text, QString* problem);
    // A value of any origin checked against the type and range.
    static bool accepts(const SettingDefinition& setting, const QVariant& value);

    // "yes/no", "number", "text", "destination name".
    static QString typeName(SettingType type);
    // A value as the command line shows it (booleans as yes/no).
    static QString displayText(const QVariant& value);
};

} // namespace quirepad
