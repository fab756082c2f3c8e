#include "pipeline/OpenFileProcessor.h"

#include "foundation/apps.h"
#include "foundation/TempArea.h"
#include "foundation/fileutil.h"


namespace quirepad {

bool OpenFileProcessor::processFile(const QString& path)
{
    const QString appid = config.value(QStringLiteral("appid")).toString();
    QString file = path;
    if (isInTemporaryPlace(path)) {
        // The application opens it after this job is done and its temporary
        // files are gone: the copy lives a day.
        const QString folder = TempArea::instance().makeLastingDir();
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
