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
    // Launched without waiting for the application; one that cannot be
    // started at all (none for PDF documents, nothing to start it with) is
    // reported, and the job stays.
    if (!open_with_app(appid, {file})) {
        resultFile.clear();
        fail(QStringLiteral("“%1” could not be opened: no application here opens it (%2).")
                 .arg(path_basename(file), appid.isEmpty() ? QStringLiteral("the default PDF viewer") : appid));
        return false;
    }
    return true;
}

} // namespace quirepad
