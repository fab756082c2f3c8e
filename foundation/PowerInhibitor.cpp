#include "foundation/PowerInhibitor.h"

#include "foundation/Log.h"

#include <QDBusMessage>
#include <QTimer>

#include <climits>
#include <cmath>

namespace quirepad {

PowerInhibitor::PowerInhibitor(const QDBusConnection& systemBus, QObject* parent)
    : QObject(parent)
    , m_bus(systemBus)
{
}

PowerInhibitor::~PowerInhibitor() = default;

bool PowerInhibitor::inhibitFor(double seconds)
{
    if (!(seconds > 0)) {
        qCInfo(lcDesktop) << "no sleep inhibition for" << seconds << "seconds";
        return false;
    }
    if (!m_bus.isConnected()) {
        qCInfo(lcDesktop) << "cannot inhibit sleep: no system bus";
        return false;
    }
    if (!(m_bus.connectionCapabilities() & QDBusConnection::UnixFileDescriptorPassing)) {
        qCInfo(lcDesktop) << "cannot inhibit sleep: the bus connection cannot pass file descriptors";
        return false;
    }

    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.login1"),
        QStringLiteral("/org/freedesktop/login1"), QStringLiteral("org.freedesktop.login1.Manager"),
        QStringLiteral("Inhibit"));
    call << QStringLiteral("idle:sleep") << QStringLiteral("Quirepad") << QStringLiteral("Halvern Initiated no-nap")
         << QStringLiteral("block");
    const QDBusMessage reply = m_bus.call(call, QDBus::Block, CallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        qCInfo(lcDesktop).noquote() << "cannot inhibit sleep:" << reply.errorMessage();
        return false;
    }
    const QVariantList arguments = reply.arguments();
    const QDBusUnixFileDescriptor lock
        = arguments.isEmpty() ? QDBusUnixFileDescriptor() : arguments.constFirst().value<QDBusUnixFileDescriptor>();
    if (!lock.isValid()) {
        qCInfo(lcDesktop) << "cannot inhibit sleep: logind answered without a lock";
        return false;
    }

    const quint64 token = m_nextToken++;
    m_locks.emplace(token, lock);
    m_currentToken = token;
    const double milliseconds = std::ceil(seconds * 1000.0);
    const int interval = milliseconds >= double(INT_MAX) ? INT_MAX : int(milliseconds);
    QTimer::singleShot(interval, this, [this, token] { release(token); });
    qCDebug(lcDesktop) << "sleep inhibited for" << seconds << "seconds, lock" << token;
    return true;
}

void PowerInhibitor::release(quint64 token)
{
    // Dropping the descriptor closes it, which ends the lock.
    m_locks.erase(token);
    if (m_currentToken == token)
        m_currentToken = 0;
    qCDebug(lcDesktop) << "sleep inhibition lock" << token << "released";
}

} // namespace quirepad
