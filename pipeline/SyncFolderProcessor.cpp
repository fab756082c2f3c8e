#include "pipeline/SyncFolderProcessor.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QUrl>

namespace quirepad {

Q_LOGGING_CATEGORY(lcSyncFolder, "quirepad.delivery.sync", QtInfoMsg)

QString SyncFolderProcessor::linkFor(const QString& path)
{
    return QUrl::fromLocalFile(path).toString();
}

bool SyncFolderProcessor::copyTempFile(const QString& source, const QString& target)
{
    if (!CopyFileProcessor::copyTempFile(source, target))
        return false;
    if (failed())
        return true;
    if (config.value(QStringLiteral("copy_to_clipboard")).toBool()) {
        if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
            QGuiApplication::clipboard()->setText(linkFor(resultFile));
        else
            qCInfo(lcSyncFolder).noquote() << "no clipboard without a display: the link to" << resultFile
                                           << "was not copied";
    }
    notifySucessTitle(QStringLiteral("File sent to the Dropbox"), QString());
    return true;
}

} // namespace quirepad
