#include "TestWebServer.h"

#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

namespace quirepad::test {

TestWebServer::TestWebServer()
{
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            socket->setParent(this);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(socket); });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
    m_server.listen(QHostAddress::LocalHost, 0);
}

QString TestWebServer::url(const QString& path) const
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(port()).arg(path);
}

quint16 TestWebServer::closedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    return port;
}

void TestWebServer::serve(QTcpSocket* socket)
{
    QByteArray buffer = socket->property("buffer").toByteArray() + socket->readAll();
    socket->setProperty("buffer", buffer);
    if (!buffer.contains("\r\n\r\n") || socket->property("answered").toBool())
        return;
    socket->setProperty("answered", true);
    const QList<QByteArray> requestLine = buffer.left(buffer.indexOf("\r\n")).split(' ');
    QString path = requestLine.size() >= 2 ? QString::fromLatin1(requestLine.at(1)) : QString();
    path = path.section(QLatin1Char('?'), 0, 0);
    m_requested.append(path);

    const auto it = m_routes.constFind(path);
    const Route route = it != m_routes.cend() ? *it : Route{404, "text/html", "<html><body>Not here</body></html>", 0};
    QPointer<QTcpSocket> guard(socket);
    const auto answer = [guard, route] {
        if (!guard)
            return;
        QByteArray reply = "HTTP/1.1 " + QByteArray::number(route.status) + (route.status == 200 ? " OK" : " Error")
            + "\r\nContent-Type: " + route.type + "\r\nContent-Length: " + QByteArray::number(route.body.size())
            + "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n" + route.body;
        guard->write(reply);
        guard->disconnectFromHost();
    };
    if (route.delayMs > 0)
        QTimer::singleShot(route.delayMs, socket, answer);
    else
        answer();
}

} // namespace quirepad::test
