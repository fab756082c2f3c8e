#include "foundation/GlobalEnv.h"

#include "foundation/PlistReader.h"

#include <QDir>
#include <QFileInfo>

namespace quirepad {

namespace {

QString homeOrNull(const QProcessEnvironment& environment)
{
    return environment.contains(QStringLiteral("HOME")) ? environment.value(QStringLiteral("HOME"))
                                                        : QStringLiteral("(null)");
}

// XDG base directory: the variable when it holds an absolute path, else the
// fallback below HOME.
QString xdgDir(const QProcessEnvironment& environment, const QString& variable, const QString& fallback)
{
    const QString value = environment.value(variable);
    if (!value.isEmpty() && QDir::isAbsolutePath(value))
        return value;
    return homeOrNull(environment) + fallback;
}

} // namespace

QVariantMap& GlobalEnv::instance()
{
    static QVariantMap table = build(applicationPath(), QProcessEnvironment::systemEnvironment());
    return table;
}

QVariantMap GlobalEnv::build(const QString& appPath, const QProcessEnvironment& environment)
{
    QVariantMap table;
    table.insert(QStringLiteral("APP_RESOURCES"), appPath + QStringLiteral("/Resources"));
    table.insert(QStringLiteral("APP_CONTENTS"), appPath);
    table.insert(QStringLiteral("APP_PATH"), appPath);

    const QVariantMap info = PlistReader::dictionaryFromFile(appPath + QStringLiteral("/Info.plist"));
    const QVariant bundleName = info.value(QStringLiteral("CFBundleName"));
    if (bundleName.isValid())
        table.insert(QStringLiteral("APP_NAME"), bundleName.toString());

    const QVariantMap overrides = info.value(QStringLiteral("MYGlobalEnv")).toMap();
    for (auto it = overrides.cbegin(); it != overrides.cend(); ++it)
        table.insert(it.key(), it.value());

    table.insert(QStringLiteral("APP_PLUGINS"), appPath + QStringLiteral("/PlugIns"));

    // The per-user folders take the name read from Info.plist, never a
    // value MYGlobalEnv may have put under APP_NAME.
    const QString name = bundleName.isValid() ? bundleName.toString() : QStringLiteral("(null)");
    const QString dataHome = xdgDir(environment, QStringLiteral("XDG_DATA_HOME"), QStringLiteral("/.local/share"));
    const QString cacheHome = xdgDir(environment, QStringLiteral("XDG_CACHE_HOME"), QStringLiteral("/.cache"));
    table.insert(QStringLiteral("APP_SUPPORT"), dataHome + QLatin1Char('/') + name);
    table.insert(QStringLiteral("APP_SUPPORT_PLUGINS"), dataHome + QLatin1Char('/') + name + QStringLiteral("/PlugIns"));
    table.insert(QStringLiteral("APP_CACHES"), cacheHome + QLatin1Char('/') + name);
    table.insert(QStringLiteral("APP_METADATA"), cacheHome + QStringLiteral("/Metadata/") + name);
    table.insert(QStringLiteral("APP_COREDATA"), cacheHome + QStringLiteral("/Metadata/CoreData/") + name);
    return table;
}

QString GlobalEnv::applicationPath()
{
    const QString executable = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    const QString binDir = QFileInfo(executable).absolutePath();
    return QDir::cleanPath(binDir + QStringLiteral("/../share/quirepad"));
}

} // namespace quirepad
