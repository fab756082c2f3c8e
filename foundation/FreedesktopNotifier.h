#pragma once

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QString>

namespace quirepad {

// Posts desktop notifications through the org.freedesktop.Notifications
// service. A notification can carry a file: activating it (or its "Show in
// Folder" action) reveals the file through Workspace::current(). Nothing
// here waits for the bus; without a notification service the notification
// is logged instead.
class FreedesktopNotifier : public QObject
{
    Q_OBJECT

public:
    explicit FreedesktopNotifier(
        const QDBusConnection& sessionBus = QDBusConnection::sessionBus(), QObject* parent = nullptr);
    ~FreedesktopNotifier() override;

    void notify(const QString& title, const QString& text, const QString& revealPath = {});

signals:
    // The notification service accepted a notification under this id.
    void posted(uint id);
    // No notification service took it; it went to the log only.
    void undelivered(const QString& title, const QString& text);

private slots:
    void handleActionInvoked(uint id, const QString& actionKey);
    void handleNotificationClosed(uint id, uint reason);

private:
    void logUndelivered(const QString& title, const QString& text, const QString& reason);

    QDBusConnection m_bus;
    // Notifications on screen that reveal a file when activated.
    QHash<uint, QString> m_revealPaths;
};

} // namespace quirepad
