#include "pipeline/OpenFileProcessor.h"

#include "foundation/apps.h"
#include "foundation/fileutil.h"

#include <QDir>

namespace quirepad {

QStringList OpenFileProcessor::temporaryPlaces()
{
    QStringList places{QStringLiteral("/private"), QStringLiteral("/var"), QStringLiteral("/tmp"),
                       QStringLiteral("/Users/Shared")};
    const QString temp = QDir::tempPath();
    if (!places.contains(temp))
        places << temp;
    const QString shared = qEnvironmentVariable("QUIREPAD_SHARED_DIR");
    if (!shared.isEmpty())
        places << QDir::cleanPath(shared);
    return places;
}

bool OpenFileProcessor::processFile(const QString& path)
{
    const QString appid = config.value(QStringLiteral("appid")).toString();
    QString file = path;
    for (const QString& place : temporaryPlaces()) {
        if (path == place || path.startsWith(place + QLatin1Char('/'))) {
            const QString folder = mk_temp_dir();
            file = folder + QLatin1Char('/') + sanitizeName(path_basename(path));
            if (folder.isEmpty() || !cp_file(path, file)) {
                fail(QStringLiteral("%1 could not be copied for opening").arg(path));
                return false;
            }
            break;
        }
    }
    m_opened = file;
    resultFile = file;
    open_with_app(appid, {file}); // launched asynchronously; the answer is not waited for
    return true;
}

} // namespace quirepad
