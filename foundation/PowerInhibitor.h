#pragma once

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QObject>

#include <map>

namespace quirepad {

// Keeps the machine from idling into sleep for a while, with logind
// inhibitor locks: Manager.Inhibit hands out a file descriptor, and the lock
// lasts exactly as long as that descriptor stays open.
class PowerInhibitor : public QObject
{
    Q_OBJECT

public:
    // How long inhibitFor() waits for logind before giving up.
    static constexpr int CallTimeoutMs = 2000;

    explicit PowerInhibitor(const QDBusConnection& systemBus = QDBusConnection::systemBus(), QObject* parent = nullptr);
    // Releases every lock still held.
    ~PowerInhibitor() override;

    // Takes a new lock and releases it after the given time (at most about
    // 24 days, the longest a timer runs). An earlier lock is not cut short:
    // each ends at its own time. Waits up to CallTimeoutMs for logind. False
    // (and logged) when no lock could be had or seconds is not positive.
    bool inhibitFor(double seconds);

    // The lock taken last while it is still held; 0 when there is none.
    quint64 currentToken() const { return m_currentToken; }
    int heldCount() const { return int(m_locks.size()); }

private:
    void release(quint64 token);

    QDBusConnection m_bus;
    std::map<quint64, QDBusUnixFileDescriptor> m_locks;
    quint64 m_nextToken = 1;
    quint64 m_currentToken = 0;
};

} // namespace quirepad
