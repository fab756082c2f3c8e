#pragma once

#include "network/HTTPLimits.h"

#include <QList>
#include <QObject>
#include <QString>

class QTcpServer;

namespace quirepad {

class DnsSd;
class HTTPConnection;
class HTTPConnectionDelegate;

// A small HTTP/1.1 server on the event loop: listens on an IPv4 port (the
// loopback address unless binding to all interfaces is asked for), keeps its
// open connections and hands their requests to the delegate. Every response
// closes its connection. At most limits().maxConnections are open at once;
// further clients wait in the listen queue until one closes.
class HTTPServer : public QObject
{
    Q_OBJECT
public:
    explicit HTTPServer(QObject* parent = nullptr);
    ~HTTPServer() override;

    // Takes HTTPServer_serverPort, HTTPServer_serviceName,
    // HTTPServer_serviceType and HTTPServer_bind_all from the user settings
    // when present; absent settings leave the properties as they are.
    void configure();
    // Closes, configures and starts listening again. False when the port
    // could not be bound; activePort() is then 65535.
    bool listen();
    // Stops listening. The first close also ends the open connections; later
    // ones leave them to finish.
    void close();

    // The port the listening socket is bound to; 65535 without one.
    quint16 port() const;

    HTTPConnectionDelegate* delegate() const { return m_delegate; }
    // Not owned; must outlive the server or be reset before it goes.
    void setDelegate(HTTPConnectionDelegate* delegate) { m_delegate = delegate; }
    QString serviceName() const { return m_serviceName; }
    void setServiceName(const QString& name) { m_serviceName = name; }
    QString serviceType() const { return m_serviceType; }
    void setServiceType(const QString& type) { m_serviceType = type; }
    qint64 serverPort() const { return m_serverPort; }
    void setServerPort(qint64 port) { m_serverPort = port; }
    bool bindAll() const { return m_bindAll; }
    void setBindAll(bool all) { m_bindAll = all; }
    qint64 activePort() const { return m_activePort; }
    bool isRunning() const { return m_isRunning; }
    const HTTPLimits& limits() const { return m_limits; }
    // Applies to connections accepted afterwards.
    void setLimits(const HTTPLimits& limits) { m_limits = limits; }

    int connectionCount() const { return int(m_connections.size()); }

    // Where listen() publishes the server when it has a service name and
    // type ("_TYPE._tcp"); none: not published. Not owned.
    void setDnsSd(DnsSd* dnsSd) { m_dnsSd = dnsSd; }
    // The handle of the published service; 0 when none.
    int publishedService() const { return m_service; }

private:
    void accept(int descriptor);
    void acceptPending();
    void closeConnection(HTTPConnection* connection);

    QTcpServer* m_listener = nullptr;
    QList<HTTPConnection*> m_connections;
    QList<int> m_waiting; // accepted beyond the connection limit, not read yet
    HTTPConnectionDelegate* m_delegate = nullptr;
    DnsSd* m_dnsSd = nullptr;
    int m_service = 0;
    HTTPLimits m_limits;
    QString m_serviceName;
    QString m_serviceType;
    qint64 m_serverPort = 0;
    qint64 m_activePort = 0;
    bool m_bindAll = false;
    bool m_isClosed = false;
    bool m_isRunning = false;
    bool m_acceptPaused = false;
};

} // namespace quirepad
