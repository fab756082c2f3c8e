#include "network/HTTPServer.h"

#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"
#include "network/DnsSd.h"
#include "network/HTTPConnection.h"
#include "network/NetworkLog.h"

#include <QTcpServer>

#include <functional>

#include <unistd.h>

namespace quirepad {

namespace {

// Hands over each accepted socket as its bare descriptor: the connection
// works on it directly, without the set-up a QTcpSocket costs.
class DescriptorListener : public QTcpServer
{
public:
    using QTcpServer::QTcpServer;
    std::function<void(qintptr)> onIncoming;

protected:
    void incomingConnection(qintptr descriptor) override { onIncoming(descriptor); }
};

} // namespace

HTTPServer::HTTPServer(QObject* parent)
    : QObject(parent)
{
}

HTTPServer::~HTTPServer()
{
    close();
    for (HTTPConnection* connection : std::as_const(m_connections))
        connection->disconnect(this);
    m_connections.clear();
}

void HTTPServer::configure()
{
    const UserDefaults& defaults = UserDefaults::standard();
    if (defaults.contains(SettingKey::HttpPort))
        m_serverPort = defaults.value(SettingKey::HttpPort).toLongLong();
    if (defaults.contains(SettingKey::HttpServiceName))
        m_serviceName = defaults.value(SettingKey::HttpServiceName).toString();
    if (defaults.contains(SettingKey::HttpServiceType))
        m_serviceType = defaults.value(SettingKey::HttpServiceType).toString();
    if (defaults.contains(SettingKey::HttpBindAll))
        m_bindAll = defaults.value(SettingKey::HttpBindAll).toBool();
}

bool HTTPServer::listen()
{
    configure();
    close();
    auto* listener = new DescriptorListener(this);
    listener->onIncoming = [this](qintptr descriptor) { accept(int(descriptor)); };
    m_listener = listener;
    connect(m_listener, &QTcpServer::acceptError, this, [this](QAbstractSocket::SocketError) {
        qCWarning(lcHttp) << "accept error:" << (m_listener ? m_listener->errorString() : QString());
    });
    const QHostAddress address = m_bindAll ? QHostAddress(QHostAddress::AnyIPv4) : QHostAddress(QHostAddress::LocalHost);
    const bool bound = m_listener->listen(address, quint16(m_serverPort));
    if (!bound)
        qCWarning(lcHttp) << "cannot listen on port" << quint16(m_serverPort) << m_listener->errorString();
    m_activePort = port();
    if (m_dnsSd && bound && !m_serviceName.isEmpty() && !m_serviceType.isEmpty()) {
        DnsSdRegistration registration;
        registration.name = m_serviceName;
        registration.type = QStringLiteral("_%1._tcp").arg(m_serviceType);
        registration.port = quint16(m_activePort);
        m_service = m_dnsSd->publish(registration);
        connect(m_dnsSd, &DnsSd::published, this, [this](int handle, const QString& name) {
            if (handle == m_service)
                qCInfo(lcHttp).noquote() << QStringLiteral("service %1 published on port %2").arg(name).arg(m_activePort);
        });
        connect(m_dnsSd, &DnsSd::publishFailed, this, [this](int handle, const QString& error) {
            if (handle == m_service)
                qCWarning(lcHttp).noquote() << "error publishing service:" << error;
        });
    }
    m_isRunning = true;
    return bound;
}

void HTTPServer::close()
{
    if (m_service) {
        m_dnsSd->withdraw(m_service);
        m_dnsSd->disconnect(this);
        m_service = 0;
    }
    if (!m_isClosed) {
        const QList<HTTPConnection*> open = m_connections;
        for (HTTPConnection* connection : open)
            connection->close();
        m_connections.clear();
        m_isClosed = true;
    }
    for (const int descriptor : std::as_const(m_waiting))
        ::close(descriptor);
    m_waiting.clear();
    m_acceptPaused = false;
    if (m_listener) {
        m_listener->close();
        m_listener->deleteLater();
        m_listener = nullptr;
    }
    m_isRunning = false;
}

quint16 HTTPServer::port() const
{
    if (!m_listener || !m_listener->isListening())
        return 65535;
    return m_listener->serverPort();
}

void HTTPServer::accept(int descriptor)
{
    // Beyond the limit a client waits, unread, until a connection closes;
    // no more are accepted meanwhile.
    if (m_connections.size() >= m_limits.maxConnections || !m_waiting.isEmpty()) {
        m_waiting.append(descriptor);
        if (!m_acceptPaused) {
            m_listener->pauseAccepting();
            m_acceptPaused = true;
        }
        return;
    }
    auto* connection = new HTTPConnection(descriptor, this, m_limits);
    connect(connection, &HTTPConnection::closed, this, &HTTPServer::closeConnection);
    m_connections.append(connection);
}

void HTTPServer::acceptPending()
{
    while (!m_waiting.isEmpty() && m_connections.size() < m_limits.maxConnections) {
        auto* connection = new HTTPConnection(m_waiting.takeFirst(), this, m_limits);
        connect(connection, &HTTPConnection::closed, this, &HTTPServer::closeConnection);
        m_connections.append(connection);
    }
    if (m_waiting.isEmpty() && m_acceptPaused && m_listener) {
        m_acceptPaused = false;
        m_listener->resumeAccepting();
    }
}

void HTTPServer::closeConnection(HTTPConnection* connection)
{
    m_connections.removeOne(connection);
    // Clients that waited are taken now.
    if (m_acceptPaused)
        QMetaObject::invokeMethod(this, &HTTPServer::acceptPending, Qt::QueuedConnection);
}

} // namespace quirepad
