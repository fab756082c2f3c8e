#include "pipeline/OpenFileProcessor.h"

#include "foundation/apps.h"
#include "foundation/fileutil.h"

#include <QDir>

namespace quirepad {

QStringList OpenFileProcessor::temporaryPlaces()
{
    QStringList places{QStringLiteral("/private"), QStringLiteral("/var"), QStringLiteral("/tmp"),
                       QStringLiteral("/Users/Shared"), QDir::tempPath()};
    const QString shared = qEnvironmentVariable("QUIREPAD_SHARED_DIR");
    if (!shared.isEmpty())
        places << QDir::cleanPath(shared);
    return places;
}

bool OpenFileProcessor::processFile(const QString& path)
{
    const QString appid = config.value(QStringLiteral("appid")).toString();
    QString file = path;
    if (isInTemporaryPlace(path)) {
        const QString folder = mk_temp_dir();
        file = folder + QLatin1Char('/') + sanitizeName(path_basename(path));
        if (folder.isEmpty() || !cp_file(path, file)) {
            fail(QStringLiteral("%1 could not be copied for opening").arg(path));
            return false;
        }
    }
    m_opened = file;
    resultFile = file;
    open_with_app(appid, {file}); // launched asynchronously; the answer is not waited for
    return true;
}

} // namespace quirepad
