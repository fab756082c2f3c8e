#include "network/HTTPConnection.h"

#include "foundation/identifiers.h"
#include "foundation/string_ext.h"
#include "network/HTTPConnectionDelegate.h"
#include "network/HTTPServer.h"
#include "network/NetworkLog.h"
#include "network/SocketStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDateTime>
#include <QFile>
#include <QStringDecoder>

namespace quirepad {

namespace {

QByteArray headBytes(const QStringList& lines)
{
    return (lines.join(QLatin1String("\r\n")) + QLatin1String("\r\n\r\n")).toUtf8();
}

QString utf8OrNull(const QByteArray& bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return {};
    if (text.isNull())
        text = QLatin1String("");
    return text;
}

QString refusalMessage(HTTPRequestParser::State state)
{
    switch (state) {
    case HTTPRequestParser::State::HeadTooLarge:
        return QStringLiteral("request head too large");
    case HTTPRequestParser::State::BodyTooLarge:
        return QStringLiteral("request body too large");
    default:
        return QStringLiteral("bad request");
    }
}

} // namespace

HTTPConnection::HTTPConnection(int socketDescriptor, HTTPServer* server, const HTTPLimits& limits)
    : QObject(server)
    , m_socket(new SocketStream(socketDescriptor, this))
    , m_server(server)
    , m_parser(limits)
    , m_limits(limits)
{
    connect(m_socket, &SocketStream::readyRead, this, &HTTPConnection::readRequest);
    connect(m_socket, &SocketStream::closed, this, &HTTPConnection::close);
    connect(m_socket, &SocketStream::drained, this, [this] {
        restartIdleTimer();
        writeNextPiece();
    });
    m_idleTimer.setSingleShot(true);
    m_idleTimer.setInterval(m_limits.idleTimeout);
    connect(&m_idleTimer, &QTimer::timeout, this, [this] {
        qCInfo(lcHttp) << "closing idle connection";
        close();
    });
    m_idleTimer.start();
    m_requestTimer.setSingleShot(true);
    m_requestTimer.setInterval(m_limits.requestTimeout);
    connect(&m_requestTimer, &QTimer::timeout, this, [this] {
        if (m_answered)
            return;
        qCInfo(lcHttp) << "closing a connection whose request did not arrive in time";
        close();
    });
    m_requestTimer.start();
}

HTTPConnection::~HTTPConnection()
{
    m_isClosed = true;
}

void HTTPConnection::restartIdleTimer()
{
    if (!m_isClosed)
        m_idleTimer.start();
}

void HTTPConnection::readRequest()
{
    if (m_isClosed)
        return;
    bool atEnd = false;
    const QByteArray chunk = m_socket->readAvailable(&atEnd);
    if (atEnd && !m_answered) {
        // A peer that closed its side before its request was whole gets no
        // answer; one that closed it after sending the request still does.
        if (chunk.isEmpty() || m_parser.feed(chunk) != HTTPRequestParser::State::Complete) {
            close();
            return;
        }
        m_requestTimer.stop();
        deliver();
        return;
    }
    if (chunk.isEmpty())
        return;
    restartIdleTimer();
    if (m_answered)
        return;
    const HTTPRequestParser::State state = m_parser.feed(chunk);
    switch (state) {
    case HTTPRequestParser::State::ReadingHead:
    case HTTPRequestParser::State::ReadingBody:
        return;
    case HTTPRequestParser::State::Complete:
        m_requestTimer.stop();
        deliver();
        return;
    default:
        qCInfo(lcHttp) << "refusing request:" << refusalMessage(state);
        returnErrorMessage(refusalMessage(state));
        return;
    }
}

void HTTPConnection::deliver()
{
    const HTTPHead& head = m_parser.head();
    m_peerHost = head.value(QStringLiteral("HOST"));
    if (m_peerHost.isEmpty()) {
        // A client without a Host header (HTTP/1.0) still gets links that
        // lead back here: the address it connected to.
        quint16 port = 0;
        const QHostAddress local = m_socket->localAddress(&port);
        const QString address = local.protocol() == QAbstractSocket::IPv6Protocol
                                    ? QStringLiteral("[%1]").arg(local.toString())
                                    : local.toString();
        m_peerHost = QStringLiteral("%1:%2").arg(address).arg(port);
    }
    m_requestUrl = head.value(QStringLiteral("URL_PATH"));
    HTTPConnectionDelegate* delegate = m_server ? m_server->delegate() : nullptr;
    bool taken = false;
    if (delegate) {
        taken = delegate->receivedData(*this, m_parser.body(), head);
        if (!taken && !m_isClosed)
            taken = delegate->receivedString(*this, utf8OrNull(m_parser.body()), head);
    }
    if (!taken)
        qCInfo(lcHttp) << "header:" << head << "data:" << m_parser.body().left(1024);
    if (!m_answered)
        returnErrorMessage(QStringLiteral("server not ready"));
}

bool HTTPConnection::beginResponse()
{
    if (m_answered || m_isClosed)
        return false;
    m_answered = true;
    return true;
}

void HTTPConnection::returnDataContent(const QByteArray& data, const QString& contentType)
{
    if (!beginResponse())
        return;
    writeData(headBytes({QStringLiteral("HTTP/1.1 200 OK"),
                         QStringLiteral("Date: %1").arg(dateText()),
                         QStringLiteral("Server: %1").arg(m_httpAgent),
                         QStringLiteral("Connection: close"),
                         QStringLiteral("Access-Control-Allow-Origin: *"),
                         QStringLiteral("Content-Type: %1").arg(contentType),
                         QStringLiteral("Content-Length: %1").arg(data.size())})
              + data);
}

void HTTPConnection::returnStringContent(const QString& text, const QString& contentType)
{
    if (!beginResponse())
        return;
    const QByteArray body = text.toUtf8();
    writeData(headBytes({QStringLiteral("HTTP/1.1 200 OK"),
                         QStringLiteral("Date: %1").arg(dateText()),
                         QStringLiteral("Server: %1").arg(m_httpAgent),
                         QStringLiteral("Connection: close"),
                         QStringLiteral("Access-Control-Allow-Origin: *"),
                         QStringLiteral("Access-Control-Allow-Headers: *"),
                         QStringLiteral("Content-Type: %1").arg(contentType),
                         QStringLiteral("Content-Length: %1").arg(body.size())})
              + body);
}

std::unique_ptr<QFile> HTTPConnection::openRegularFile(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    struct stat st {};
    auto file = std::make_unique<QFile>();
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || !file->open(fd, QIODevice::ReadOnly, QFile::AutoCloseHandle)) {
        ::close(fd);
        return nullptr;
    }
    return file;
}

void HTTPConnection::returnFileContent(const QString& path)
{
    std::unique_ptr<QFile> file = openRegularFile(path);
    if (!file)
        qCInfo(lcHttp) << "cannot read" << path;
    returnFileContent(std::move(file), path);
}

void HTTPConnection::returnFileContent(std::unique_ptr<QFile> file, const QString& path)
{
    if (!beginResponse())
        return;
    m_file = std::move(file);
    m_fileLeft = m_file ? m_file->size() : 0;
    QByteArray head = headBytes({QStringLiteral("HTTP/1.1 200 OK"),
                                 QStringLiteral("Date: %1").arg(dateText()),
                                 QStringLiteral("Server: %1").arg(m_httpAgent),
                                 QStringLiteral("Access-Control-Allow-Origin: *"),
                                 QStringLiteral("Connection: close"),
                                 QStringLiteral("Content-Type: %1").arg(guessContentTypeForPath(path))});
    // A small file goes out with its head in one write; a large one
    // follows piece by piece.
    if (m_file)
        head += readFilePiece();
    writeData(head);
}

QByteArray HTTPConnection::readFilePiece()
{
    // Sized by what is left, so the last read needs no second one to find
    // the end, and no piece-sized buffer is made for a small file.
    QByteArray piece = m_fileLeft > 0 ? m_file->read(std::min(pieceSize, m_fileLeft)) : QByteArray();
    m_fileLeft -= piece.size();
    if (piece.isEmpty() || m_fileLeft <= 0)
        m_file.reset();
    return piece;
}

void HTTPConnection::returnErrorMessage(const QString& message)
{
    if (!beginResponse())
        return;
    const QByteArray body = message.toUtf8();
    writeData(headBytes({QStringLiteral("HTTP/1.1 404 Not Found"),
                         QStringLiteral("Date: %1").arg(dateText()),
                         QStringLiteral("Server: %1").arg(m_httpAgent),
                         QStringLiteral("Connection: close"),
                         QStringLiteral("Access-Control-Allow-Origin: *"),
                         QStringLiteral("Content-Type: text/plain; charset=utf-8"),
                         QStringLiteral("Content-Length: %1").arg(body.size())})
              + body);
}

void HTTPConnection::returnRSSFeed(const QVariantMap& feed)
{
    // The Host header is the client's text: links are XML-escaped like the
    // titles so that no value can break out of its element.
    auto link = [this](const QString& path) {
        return xmlEncodedString(QStringLiteral("http://%1%2").arg(m_peerHost, path));
    };
    QString text = QStringLiteral(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
        "<rss version=\"2.0\" xmlns:atom=\"http://www.w3.org/2005/Atom\""
        " xmlns:content=\"http://purl.org/rss/1.0/modules/content/\""
        " xmlns:wfw=\"http://wellformedweb.org/CommentAPI/\""
        " xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\""
        " xmlns:dc=\"http://purl.org/dc/elements/1.1/\""
        " xmlns:cc=\"http://web.resource.org/cc/\">");
    text += QStringLiteral("<channel><title>%1</title><link>%2</link><description>%3</description>")
                .arg(xmlEncodedString(feed.value(QStringLiteral("TITLE")).toString()), link(m_requestUrl),
                     xmlEncodedString(feed.value(QStringLiteral("DESC")).toString()));
    text += QStringLiteral("<pubDate>xxx</pubDate>");
    const QVariantList items = feed.value(QStringLiteral("ITEMS")).toList();
    for (const QVariant& value : items) {
        const QVariantMap item = value.toMap();
        const QString itemLink = link(urlEncodedString(item.value(QStringLiteral("LINK")).toString()));
        text += QStringLiteral("<item><title>%1</title><pubDate>xxx</pubDate><guid>%2</guid>")
                    .arg(xmlEncodedString(item.value(QStringLiteral("TITLE")).toString()), itemLink);
        text += QStringLiteral("<link>%1</link>").arg(itemLink);
        text += QStringLiteral("<description>%1</description></item>\n")
                    .arg(xmlEncodedString(item.value(QStringLiteral("DESC")).toString()));
    }
    text += QStringLiteral("</channel></rss>");
    returnStringContent(text, QStringLiteral("application/rss+xml"));
}

QString HTTPConnection::guessContentTypeForPath(const QString& path)
{
    static const std::pair<QLatin1String, QLatin1String> types[] = {
        {QLatin1String("txt"), QLatin1String("text/plain")},
        {QLatin1String("html"), QLatin1String("text/html")},
        {QLatin1String("js"), QLatin1String("text/javascript")},
        {QLatin1String("css"), QLatin1String("text/css")},
        {QLatin1String("png"), QLatin1String("image/png")},
        {QLatin1String("gif"), QLatin1String("image/gif")},
        {QLatin1String("jpg"), QLatin1String("image/jpeg")},
        {QLatin1String("pdf"), QLatin1String("application/pdf")},
    };
    const QString lower = path.toLower();
    for (const auto& [suffix, type] : types) {
        if (lower.endsWith(suffix))
            return type;
    }
    return QStringLiteral("application/octet-stream");
}

QString HTTPConnection::dateText()
{
    // The text only changes once a second; making a date formatter is the
    // dearest part of a small response, so it is done once per second.
    static qint64 second = -1;
    static QString text;
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    if (now != second) {
        text = todays_date(QStringLiteral("EEE, d MMM yyyy hh:mm:ss zzz"));
        second = now;
    }
    return text;
}

void HTTPConnection::writeData(const QByteArray& data)
{
    m_writeBuffer = data;
    m_writePos = 0;
    writeNextPiece();
}

void HTTPConnection::writeNextPiece()
{
    if (m_isClosed || m_finishing || !m_answered)
        return;
    if (m_socket->bytesToWrite() >= pieceSize)
        return;
    QByteArray piece;
    if (m_writePos < m_writeBuffer.size()) {
        const qint64 n = std::min<qint64>(pieceSize, m_writeBuffer.size() - m_writePos);
        piece = m_writeBuffer.sliced(m_writePos, n);
        m_writePos += n;
    } else if (m_file) {
        piece = readFilePiece();
    }
    if (piece.isEmpty()) {
        finishWriting();
        return;
    }
    if (!m_socket->write(piece))
        return; // the peer went away: closed
    // What the socket took at once is out; the next piece follows at the
    // next turn of the loop (or when the socket drains), so a large answer
    // never holds the loop for more than one piece.
    if (m_socket->bytesToWrite() == 0 && !m_nextPieceQueued) {
        if (m_writePos >= m_writeBuffer.size() && !m_file) {
            finishWriting();
            return;
        }
        m_nextPieceQueued = true;
        QMetaObject::invokeMethod(this, [this] {
            m_nextPieceQueued = false;
            writeNextPiece();
        }, Qt::QueuedConnection);
    }
}

void HTTPConnection::finishWriting()
{
    m_finishing = true;
    m_writeBuffer.clear();
    m_file.reset();
    m_socket->closeWhenSent();
}

void HTTPConnection::close()
{
    if (m_isClosed)
        return;
    m_isClosed = true;
    m_idleTimer.stop();
    m_requestTimer.stop();
    m_file.reset();
    m_writeBuffer.clear();
    m_socket->disconnect(this);
    m_socket->abort();
    emit closed(this);
    m_server.clear();
    deleteLater();
}

} // namespace quirepad
