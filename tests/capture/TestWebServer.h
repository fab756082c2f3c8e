#pragma once

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTcpServer>

namespace quirepad::test {

// A small HTTP server on loopback for pages under test: each path answers
// with its status, type and body, after a delay when one is set. Unknown
// paths answer 404. It runs on the test's event loop.
class TestWebServer : public QObject
{
    Q_OBJECT

public:
    struct Route
    {
        int status = 200;
        QByteArray type = "text/html; charset=utf-8";
        QByteArray body;
        int delayMs = 0;
    };

    TestWebServer();
    bool listening() const { return m_server.isListening(); }
    quint16 port() const { return m_server.serverPort(); }
    QString url(const QString& path) const;
    void route(const QString& path, const Route& route) { m_routes.insert(path, route); }
    void page(const QString& path, const QByteArray& html) { m_routes.insert(path, Route{200, "text/html; charset=utf-8", html, 0}); }
    QStringList requested() const { return m_requested; }

    // A port nothing listens on (taken and given back at once).
    static quint16 closedPort();

private:
    void serve(class QTcpSocket* socket);

    QTcpServer m_server;
    QHash<QString, Route> m_routes;
    QStringList m_requested;
};

} // namespace quirepad::test
