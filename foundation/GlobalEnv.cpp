#include "foundation/GlobalEnv.h"

#include "foundation/UserFolders.h"

#include "foundation/PlistReader.h"

#include <QDir>
#include <QFileInfo>

namespace quirepad {

namespace {

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
    const UserFolders folders = UserFolders::fromEnvironment(environment);
    const QString& dataHome = folders.dataHome;
    const QString& cacheHome = folders.cacheHome;
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
