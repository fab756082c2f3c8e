#include "foundation/FreedesktopNotifier.h"

#include "foundation/Log.h"
#include "foundation/Workspace.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QIcon>
#include <QVariantMap>

namespace quirepad {

namespace {
const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
const QString kDefaultAction = QStringLiteral("default");
const QString kRevealAction = QStringLiteral("reveal");
} // namespace

FreedesktopNotifier::FreedesktopNotifier(const QDBusConnection& sessionBus, QObject* parent)
    : QObject(parent)
    , m_bus(sessionBus)
{
    if (!m_bus.isConnected())
        return;
    // Matched on path and interface only: naming the service would make Qt
    // look up its owner with a blocking call. Ids not ours are ignored below.
    m_bus.connect(
        QString(), kPath, kInterface, QStringLiteral("ActionInvoked"), this, SLOT(handleActionInvoked(uint, QString)));
    m_bus.connect(QString(), kPath, kInterface, QStringLiteral("NotificationClosed"), this,
        SLOT(handleNotificationClosed(uint, uint)));
}

FreedesktopNotifier::~FreedesktopNotifier()
{
    if (!m_bus.isConnected())
        return;
    m_bus.disconnect(
        QString(), kPath, kInterface, QStringLiteral("ActionInvoked"), this, SLOT(handleActionInvoked(uint, QString)));
    m_bus.disconnect(QString(), kPath, kInterface, QStringLiteral("NotificationClosed"), this,
        SLOT(handleNotificationClosed(uint, uint)));
}

void FreedesktopNotifier::notify(const QString& title, const QString& text, const QString& revealPath)
{
    if (!m_bus.isConnected()) {
        logUndelivered(title, text, QStringLiteral("no session bus"));
        return;
    }

    QStringList actions;
    if (!revealPath.isEmpty()) {
        const QString showInFolder = tr("Show in Folder");
        actions << kDefaultAction << showInFolder << kRevealAction << showInFolder;
    }
    QVariantMap hints { { QStringLiteral("sound-name"), QStringLiteral("message-new-instant") } };
    const QString desktopEntry = QGuiApplication::desktopFileName();
    if (!desktopEntry.isEmpty())
        hints.insert(QStringLiteral("desktop-entry"), desktopEntry);
    const QString appIcon = qobject_cast<QGuiApplication*>(QCoreApplication::instance())
        ? QGuiApplication::windowIcon().name()
        : QString();

    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    call << QStringLiteral("Quirepad") << uint(0) << appIcon << title << text << actions << hints << qint32(-1);

    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
        [this, title, text, revealPath](QDBusPendingCallWatcher* finished) {
            finished->deleteLater();
            const QDBusPendingReply<uint> reply = *finished;
            if (reply.isError()) {
                logUndelivered(title, text, reply.error().message());
                return;
            }
            const uint id = reply.value();
            if (!revealPath.isEmpty())
                m_revealPaths.insert(id, revealPath);
            emit posted(id);
        });
}

void FreedesktopNotifier::logUndelivered(const QString& title, const QString& text, const QString& reason)
{
    qCInfo(lcDesktop).noquote() << "notification (" + reason + "):" << title << "-" << text;
    emit undelivered(title, text);
}

void FreedesktopNotifier::handleActionInvoked(uint id, const QString& actionKey)
{
    if (actionKey != kDefaultAction && actionKey != kRevealAction)
        return;
    const QString path = m_revealPaths.take(id);
    if (path.isEmpty())
        return;
    Workspace::current().revealFile(path);
}

void FreedesktopNotifier::handleNotificationClosed(uint id, uint reason)
{
    m_revealPaths.remove(id);
}

} // namespace quirepad
