#pragma once

#include "network/HTTPLimits.h"
#include "network/HTTPRequestParser.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <memory>

class QFile;

namespace quirepad {

class HTTPServer;
class SocketStream;

// One accepted socket: reads one request, hands it to the server's delegate,
// writes one response with "Connection: close" and closes. Responses leave in
// pieces of pieceSize bytes, the next piece only once the socket has drained
// the previous one, so the event loop never waits on a slow peer. Requests
// beyond the limits, a request line of fewer than three words and a peer
// that stays idle for the idle timeout end the connection.
class HTTPConnection : public QObject
{
    Q_OBJECT
public:
    static constexpr qint64 pieceSize = 262144;

    // Takes the accepted socket's descriptor; the server is the parent.
    HTTPConnection(int socketDescriptor, HTTPServer* server, const HTTPLimits& limits);
    ~HTTPConnection() override;

    // The request target as sent, query string included.
    QString requestPath() const { return m_requestUrl; }
    QString peerHost() const { return m_peerHost; }
    bool isClosed() const { return m_isClosed; }

    // Response writers; the first one called answers, later calls are ignored.
    void returnDataContent(const QByteArray& data, const QString& contentType);
    void returnStringContent(const QString& text, const QString& contentType = QStringLiteral("text/html"));
    void returnFileContent(const QString& path);
    // The same with a file opened by openRegularFile (path names its type).
    void returnFileContent(std::unique_ptr<QFile> file, const QString& path);
    // The file at path opened for reading when it is a regular file; never
    // waits on a FIFO or device put there. nullptr otherwise.
    static std::unique_ptr<QFile> openRegularFile(const QString& path);
    void returnErrorMessage(const QString& message);
    // A feed map with "TITLE", "DESC" and "ITEMS" (maps with "TITLE",
    // "DESC" and "LINK"), sent as RSS 2.0 with absolute links on the
    // request's Host.
    void returnRSSFeed(const QVariantMap& feed);

    static QString guessContentTypeForPath(const QString& path);
    static QString dateText();

    // Ends the connection at once; the server drops it. Safe to call twice.
    void close();

signals:
    void closed(HTTPConnection* connection);

private:
    void readRequest();
    void deliver();
    bool beginResponse();
    void writeData(const QByteArray& data);
    void writeNextPiece();
    QByteArray readFilePiece();
    void finishWriting();
    void restartIdleTimer();

    SocketStream* m_socket = nullptr; // child
    QPointer<HTTPServer> m_server;
    HTTPRequestParser m_parser;
    HTTPLimits m_limits;
    QTimer m_idleTimer;
    QTimer m_requestTimer; // the whole request must arrive in time
    QString m_httpAgent = QStringLiteral("MyDummyHTTPServer");
    QString m_peerHost;
    QString m_requestUrl;
    QByteArray m_writeBuffer;
    qint64 m_writePos = 0;
    std::unique_ptr<QFile> m_file;
    qint64 m_fileLeft = 0; // bytes of m_file not read yet
    bool m_answered = false;
    bool m_finishing = false;
    bool m_nextPieceQueued = false;
    bool m_isClosed = false;
};

} // namespace quirepad
