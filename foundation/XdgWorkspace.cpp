#include "foundation/XdgWorkspace.h"

#include "foundation/Log.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDesktopServices>
#include <QFileInfo>

namespace quirepad {

namespace {
const QString kFileManagerService = QStringLiteral("org.freedesktop.FileManager1");
const QString kFileManagerPath = QStringLiteral("/org/freedesktop/FileManager1");

bool openFolder(const QString& folder)
{
    const bool opened = QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
    if (!opened)
        qCInfo(lcDesktop).noquote() << "could not open folder" << folder;
    return opened;
}
} // namespace

XdgWorkspace::XdgWorkspace(const QDBusConnection& sessionBus)
    : m_bus(sessionBus)
    , m_pendingCalls(std::make_unique<QObject>())
{
}

XdgWorkspace::~XdgWorkspace() = default;

bool XdgWorkspace::openUrl(const QUrl& url)
{
    if (url.isEmpty())
        return false;
    const bool opened = QDesktopServices::openUrl(url);
    if (!opened)
        qCInfo(lcDesktop).noquote() << "could not open" << url.toDisplayString();
    return opened;
}

bool XdgWorkspace::revealFile(const QString& path)
{
    if (path.isEmpty())
        return false;
    const QFileInfo info(path);
    if (!info.exists()) {
        qCInfo(lcDesktop).noquote() << "nothing to reveal at" << path;
        return false;
    }
    const QString absolutePath = info.absoluteFilePath();
    const QString folder = info.absolutePath();
    if (!m_bus.isConnected())
        return openFolder(folder);

    QDBusMessage call = QDBusMessage::createMethodCall(
        kFileManagerService, kFileManagerPath, kFileManagerService, QStringLiteral("ShowItems"));
    const QString uri = QString::fromUtf8(QUrl::fromLocalFile(absolutePath).toEncoded());
    call << QStringList { uri } << QString();
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), m_pendingCalls.get());
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [folder](QDBusPendingCallWatcher* finished) {
        finished->deleteLater();
        const QDBusPendingReply<> reply = *finished;
        if (!reply.isError())
            return;
        qCInfo(lcDesktop).noquote() << "file manager unavailable (" + reply.error().message() + "), opening" << folder;
        openFolder(folder);
    });
    return true;
}

} // namespace quirepad
