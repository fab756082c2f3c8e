#pragma once

#include "foundation/Notification.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QString>

#include <functional>
#include <optional>

namespace quirepad {

// Posts desktop notifications through the org.freedesktop.Notifications
// service, under the application's icon. A notification can carry a file:
// "Open" opens it, activating it (or its "Show in Folder" action) reveals
// it, both through Workspace::current(); other actions run their callback.
// A tagged notification replaces the one last posted under its tag. Nothing
// here waits for the bus; without a notification service the notification
// is logged instead.
class FreedesktopNotifier : public QObject
{
    Q_OBJECT

public:
    static constexpr const char* kAppIcon = "com.halvern.Quirepad";

    explicit FreedesktopNotifier(
        const QDBusConnection& sessionBus = QDBusConnection::sessionBus(), QObject* parent = nullptr);
    ~FreedesktopNotifier() override;

    void notify(const QString& title, const QString& text, const QString& revealPath = {});
    void post(const Notification& notification);
    void withdraw(const QString& tag);

signals:
    // The notification service accepted a notification under this id.
    void posted(uint id);
    // No notification service took it; it went to the log only.
    void undelivered(const QString& title, const QString& text);

private slots:
    void handleActionInvoked(uint id, const QString& actionKey);
    void handleNotificationClosed(uint id, uint reason);

private:
    struct Shown {
        QString revealPath;
        QString openPath;
        QHash<QString, std::function<void()>> callbacks;
    };
    struct Tagged {
        uint id = 0;
        bool pending = false; // a Notify call is under way
        std::optional<Notification> next; // posted meanwhile: sent when it answers
        bool withdrawn = false;
    };
    void send(const Notification& notification, uint replacesId);
    void logUndelivered(const QString& title, const QString& text, const QString& reason);

    QDBusConnection m_bus;
    QHash<uint, Shown> m_shown; // notifications on screen with something to do
    QHash<QString, Tagged> m_tags;
};

} // namespace quirepad
