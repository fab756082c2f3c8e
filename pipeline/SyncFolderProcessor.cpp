#include "pipeline/SyncFolderProcessor.h"

#include "foundation/ProcessRunner.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QUrl>

namespace quirepad {

Q_LOGGING_CATEGORY(lcSyncFolder, "quirepad.delivery.sync", QtInfoMsg)

QString SyncFolderProcessor::linkFor(const QString& path)
{
    // The sync client's shared link when its command gives one ("dropbox
    // sharelink FILE"); the file's own URL otherwise.
    const QString client = QStandardPaths::findExecutable(QStringLiteral("dropbox"));
    if (!client.isEmpty()) {
        const ProcessRunner::Result result = ProcessRunner(client, {QStringLiteral("sharelink"), path})
                                                 .setTimeout(std::chrono::seconds(20))
                                                 .setForwardInput(false)
                                                 .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
                                                 .run();
        const QString link = QString::fromUtf8(result.standardOutput).section(u'\n', 0, 0).trimmed();
        const QUrl url(link, QUrl::StrictMode);
        if (result.succeeded() && url.isValid() && url.scheme() == QLatin1String("https"))
            return link;
        qCInfo(lcSyncFolder).noquote() << "the sync client gave no shared link for" << path << "("
                                       << QString::fromLocal8Bit(result.standardError).trimmed()
                                       << "): its URL is used";
    }
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
