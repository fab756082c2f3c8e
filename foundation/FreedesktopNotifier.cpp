#include "foundation/FreedesktopNotifier.h"

#include "foundation/Log.h"
#include "foundation/Workspace.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QUrl>
#include <QVariantMap>

namespace quirepad {

namespace {
const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
const QString kDefaultAction = QStringLiteral("default");
const QString kRevealAction = QStringLiteral("reveal");
const QString kOpenAction = QStringLiteral("open");
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
    Notification notification;
    notification.title = title;
    notification.text = text;
    notification.revealPath = revealPath;
    post(notification);
}

void FreedesktopNotifier::post(const Notification& notification)
{
    if (!m_bus.isConnected()) {
        logUndelivered(notification.title, notification.text, QStringLiteral("no session bus"));
        return;
    }
    if (notification.tag.isEmpty()) {
        send(notification, 0);
        return;
    }
    // A tagged notification waits for the id of its predecessor, so that
    // it replaces it rather than showing beside it.
    Tagged& tagged = m_tags[notification.tag];
    tagged.withdrawn = false;
    if (tagged.pending) {
        tagged.next = notification;
        return;
    }
    tagged.pending = true;
    send(notification, tagged.id);
}

void FreedesktopNotifier::withdraw(const QString& tag)
{
    const auto it = m_tags.find(tag);
    if (it == m_tags.end())
        return;
    if (it->pending) {
        it->next.reset();
        it->withdrawn = true; // closed once its id is known
        return;
    }
    const uint id = it->id;
    m_tags.erase(it);
    m_shown.remove(id);
    if (id != 0 && m_bus.isConnected())
        m_bus.asyncCall(
            QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("CloseNotification")) << id);
}

void FreedesktopNotifier::send(const Notification& notification, uint replacesId)
{
    Shown shown { notification.revealPath, notification.openPath, {} };
    QStringList actions;
    // Activating the notification itself reveals the file, or else runs
    // the first action.
    if (!notification.revealPath.isEmpty())
        actions << kDefaultAction << tr("Show in Folder");
    else if (!notification.actions.isEmpty())
        actions << kDefaultAction << notification.actions.first().label;
    if (!notification.openPath.isEmpty())
        actions << kOpenAction << tr("Open");
    if (!notification.revealPath.isEmpty())
        actions << kRevealAction << tr("Show in Folder");
    for (const Notification::Action& action : notification.actions) {
        actions << action.key << action.label;
        shown.callbacks.insert(action.key, action.run);
    }
    if (notification.revealPath.isEmpty() && !notification.actions.isEmpty())
        shown.callbacks.insert(kDefaultAction, notification.actions.first().run);

    const QString desktopEntry = QGuiApplication::desktopFileName().isEmpty() ? QString::fromLatin1(kAppIcon)
                                                                              : QGuiApplication::desktopFileName();
    QVariantMap hints { { QStringLiteral("desktop-entry"), desktopEntry } };
    if (notification.progress >= 0) {
        hints.insert(QStringLiteral("value"), qBound(0, notification.progress, 100));
        hints.insert(QStringLiteral("transient"), true);
    } else {
        hints.insert(QStringLiteral("sound-name"), QStringLiteral("message-new-instant"));
    }

    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    call << QStringLiteral("Quirepad") << replacesId << QString::fromLatin1(kAppIcon) << notification.title
         << notification.text << actions << hints << qint32(-1);

    const QString title = notification.title;
    const QString text = notification.text;
    const QString tag = notification.tag;
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
        [this, title, text, tag, replacesId, shown = std::move(shown)](QDBusPendingCallWatcher* finished) {
            finished->deleteLater();
            const QDBusPendingReply<uint> reply = *finished;
            uint id = 0;
            if (reply.isError()) {
                logUndelivered(title, text, reply.error().message());
            } else {
                id = reply.value();
                if (replacesId != 0 && replacesId != id)
                    m_shown.remove(replacesId);
                if (!shown.revealPath.isEmpty() || !shown.openPath.isEmpty() || !shown.callbacks.isEmpty())
                    m_shown.insert(id, shown);
                else
                    m_shown.remove(id);
                emit posted(id);
            }
            if (tag.isEmpty())
                return;
            const auto it = m_tags.find(tag);
            if (it == m_tags.end())
                return;
            it->id = id;
            it->pending = false;
            if (it->withdrawn) {
                withdraw(tag);
            } else if (it->next) {
                const Notification next = *it->next;
                it->next.reset();
                post(next);
            }
        });
}

void FreedesktopNotifier::logUndelivered(const QString& title, const QString& text, const QString& reason)
{
    qCInfo(lcDesktop).noquote() << "notification (" + reason + "):" << title << "-" << text;
    emit undelivered(title, text);
}

void FreedesktopNotifier::handleActionInvoked(uint id, const QString& actionKey)
{
    const auto it = m_shown.constFind(id);
    if (it == m_shown.cend())
        return;
    const Shown shown = *it;
    if ((actionKey == kDefaultAction || actionKey == kRevealAction) && !shown.revealPath.isEmpty()) {
        m_shown.remove(id);
        Workspace::current().revealFile(shown.revealPath);
    } else if (actionKey == kOpenAction && !shown.openPath.isEmpty()) {
        m_shown.remove(id);
        Workspace::current().openUrl(QUrl::fromLocalFile(shown.openPath));
    } else if (const auto callback = shown.callbacks.value(actionKey)) {
        callback();
    }
}

void FreedesktopNotifier::handleNotificationClosed(uint id, uint reason)
{
    Q_UNUSED(reason);
    m_shown.remove(id);
}

} // namespace quirepad
