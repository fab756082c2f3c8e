#pragma once

#include <QSettings>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>

namespace quirepad {

// The application's settings: values the user has set live in QSettings
// (~/.config/Quirepad/Quirepad.conf); beneath them lies a registration
// domain that is never written to disk. Registration happens in two steps at
// start-up: the defaults set in code, then the "Defaults.plist" resource,
// whose entries replace those of the same key.
class UserDefaults
{
public:
    // Settings stored at the given INI file (tests use a temporary one).
    explicit UserDefaults(const QString& settingsFile);
    // Settings at the standard per-user location.
    UserDefaults();
    ~UserDefaults();

    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    // The process-wide instance every part of the program reads settings from.
    static UserDefaults& standard();
    // Replaces the process-wide instance (tests, alternative setting files).
    static void setStandard(std::unique_ptr<UserDefaults> defaults);

    // Merges into the registration domain; later registrations win.
    void registerDefaults(const QVariantMap& defaults);
    // Registers a property-list dictionary file; answers whether it was read.
    bool registerDefaultsFromFile(const QString& plistPath);
    // The code defaults, then "${APP_RESOURCES}/Defaults.plist".
    void registerApplicationDefaults();
    QVariantMap registeredDefaults() const { return m_registered; }

    QVariant value(const QString& key) const;
    bool contains(const QString& key) const;
    // Set by the user (stored), not only registered.
    bool isStored(const QString& key) const { return m_settings->contains(key); }
    void setValue(const QString& key, const QVariant& value);
    void remove(const QString& key);
    void sync();

    bool boolValue(const QString& key) const;
    qint64 integerValue(const QString& key) const;
    QString stringValue(const QString& key) const;

    // Registered values overlaid with the stored ones: the dictionary that
    // setting-key placeholders in patterns are expanded against.
    QVariantMap dictionaryRepresentation() const;

    QString fileName() const { return m_settings->fileName(); }

private:
    std::unique_ptr<QSettings> m_settings;
    QVariantMap m_registered;
};

} // namespace quirepad
