#include "foundation/session.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include <pwd.h>
#include <unistd.h>

namespace quirepad {

bool is_active_session()
{
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return true;
    QDBusInterface manager(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                           QStringLiteral("org.freedesktop.login1.Manager"), bus);
    if (!manager.isValid())
        return true;
    manager.setTimeout(2000);
    const QDBusReply<QDBusObjectPath> session =
        manager.call(QStringLiteral("GetSessionByPID"), quint32(QCoreApplication::applicationPid()));
    if (!session.isValid())
        return true; // not in a logind session at all (a service, a test)
    QDBusInterface properties(QStringLiteral("org.freedesktop.login1"), session.value().path(),
                              QStringLiteral("org.freedesktop.DBus.Properties"), bus);
    const QDBusReply<QDBusVariant> active =
        properties.call(QStringLiteral("Get"), QStringLiteral("org.freedesktop.login1.Session"), QStringLiteral("Active"));
    return !active.isValid() || active.value().variant().toBool();
}

QString user_name()
{
    // Looked up once: the account does not change while the program runs
    // (and every job asks).
    static const QString name = [] {
        if (const passwd* entry = getpwuid(getuid()))
            return QString::fromLocal8Bit(entry->pw_name);
        return qEnvironmentVariable("USER");
    }();
    return name;
}

} // namespace quirepad
