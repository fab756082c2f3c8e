#include "foundation/UserDefaults.h"

#include "foundation/Log.h"
#include "foundation/PlistReader.h"
#include "foundation/SettingsSchema.h"
#include "foundation/pathvars.h"

#include <QFileInfo>

namespace quirepad {

namespace {
std::unique_ptr<UserDefaults>& standardInstance()
{
    static std::unique_ptr<UserDefaults> instance;
    return instance;
}

// QSettings keeps INI values as text; give the stored text of a boolean or
// number back the type its registered default has.
QVariant typedLike(const QVariant& stored, const QVariant& registered)
{
    if (!registered.isValid() || stored.typeId() != QMetaType::QString)
        return stored;
    QVariant converted = stored;
    if (converted.convert(registered.metaType()))
        return converted;
    return stored;
}
} // namespace

UserDefaults::UserDefaults(const QString& settingsFile)
    : m_settings(std::make_unique<QSettings>(settingsFile, QSettings::IniFormat))
{
}

UserDefaults::UserDefaults()
    : m_settings(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                             QStringLiteral("Quirepad"), QStringLiteral("Quirepad")))
{
}

UserDefaults::~UserDefaults() = default;

UserDefaults& UserDefaults::standard()
{
    auto& instance = standardInstance();
    if (!instance)
        instance = std::make_unique<UserDefaults>();
    return *instance;
}

void UserDefaults::setStandard(std::unique_ptr<UserDefaults> defaults)
{
    standardInstance() = std::move(defaults);
}

void UserDefaults::registerDefaults(const QVariantMap& defaults)
{
    for (auto it = defaults.cbegin(); it != defaults.cend(); ++it)
        m_registered.insert(it.key(), it.value());
}

bool UserDefaults::registerDefaultsFromFile(const QString& plistPath)
{
    if (!QFileInfo::exists(plistPath)) {
        qCWarning(lcFoundation).noquote() << "no defaults file at" << plistPath;
        return false;
    }
    const std::optional<QVariant> plist = PlistReader::fromFile(plistPath);
    if (!plist || plist->typeId() != QMetaType::QVariantMap) {
        qCWarning(lcFoundation).noquote() << "defaults file" << plistPath << "is not a dictionary";
        return false;
    }
    registerDefaults(plist->toMap());
    return true;
}

void UserDefaults::registerApplicationDefaults()
{
    registerDefaults(SettingsSchema::codeDefaults());
    registerDefaultsFromFile(f(QStringLiteral("${APP_RESOURCES}/Defaults.plist")));
}

QVariant UserDefaults::value(const QString& key) const
{
    if (m_settings->contains(key))
        return typedLike(m_settings->value(key), m_registered.value(key));
    return m_registered.value(key);
}

bool UserDefaults::contains(const QString& key) const
{
    return m_settings->contains(key) || m_registered.contains(key);
}

void UserDefaults::setValue(const QString& key, const QVariant& value)
{
    if (!value.isValid()) {
        remove(key);
        return;
    }
    m_settings->setValue(key, value);
}

void UserDefaults::remove(const QString& key)
{
    m_settings->remove(key);
}

void UserDefaults::sync()
{
    m_settings->sync();
}

bool UserDefaults::boolValue(const QString& key) const
{
    return value(key).toBool();
}

qint64 UserDefaults::integerValue(const QString& key) const
{
    return value(key).toLongLong();
}

QString UserDefaults::stringValue(const QString& key) const
{
    const QVariant v = value(key);
    return v.isValid() ? v.toString() : QString();
}

QVariantMap UserDefaults::dictionaryRepresentation() const
{
    QVariantMap all = m_registered;
    for (const QString& key : m_settings->allKeys())
        all.insert(key, value(key));
    return all;
}

} // namespace quirepad
