#include "TestRegistry.h"

#include "network/HTTPServer.h"
#include "network/PageFeed.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <sys/socket.h>
#include <sys/stat.h>
#include <QTimer>
#include <QXmlStreamReader>

#include <memory>

using namespace quirepad;

namespace {

// A raw client on the test's own event loop: sends bytes as given and
// collects what comes back until the server closes. Beyond the first
// 1 MiB only the byte count is kept.
class RawClient
{
public:
    explicit RawClient(quint16 port)
    {
        QObject::connect(&m_socket, &QTcpSocket::readyRead, [this] {
            const QByteArray chunk = m_socket.readAll();
            m_total += chunk.size();
            if (m_received.size() < kKept)
                m_received += chunk;
        });
        QObject::connect(&m_socket, &QTcpSocket::disconnected, [this] { m_closed = true; });
        m_socket.connectToHost(QHostAddress::LocalHost, port);
        m_connected = m_socket.waitForConnected(2000);
    }

    bool connected() const { return m_connected; }
    bool closed() const { return m_closed; }
    const QByteArray& received() const { return m_received; }
    qint64 totalReceived() const { return m_total; }
    void send(const QByteArray& bytes) { m_socket.write(bytes); }
    void abort() { m_socket.abort(); }
    // Says the request is complete by closing the sending side, as
    // "nc -N" and some HTTP/1.0 tools do; answers still arrive.
    void finishSending()
    {
        m_socket.flush();
        ::shutdown(int(m_socket.socketDescriptor()), SHUT_WR);
    }
    bool waitClosed(int ms) { return QTest::qWaitFor([this] { return m_closed; }, ms); }

    QByteArray head() const { return m_received.left(m_received.indexOf("\r\n\r\n")); }
    QByteArray body() const
    {
        const qsizetype end = m_received.indexOf("\r\n\r\n");
        return end < 0 ? QByteArray() : m_received.mid(end + 4);
    }

private:
    QTcpSocket m_socket;
    static constexpr qsizetype kKept = 1024 * 1024;
    QByteArray m_received;
    qint64 m_total = 0;
    bool m_connected = false;
    bool m_closed = false;
};

QByteArray get(const QByteArray& target)
{
    return "GET " + target + " HTTP/1.1\r\nHost: box:8080\r\nUser-Agent: test\r\n\r\n";
}

QStringList fileHead(const QString& type)
{
    return {"HTTP/1.1 200 OK", "Date:", "Server: MyDummyHTTPServer", "Access-Control-Allow-Origin: *",
            "Connection: close", "Content-Type: " + type};
}

QStringList stringHead(const QString& type, int length)
{
    return {"HTTP/1.1 200 OK", "Date:", "Server: MyDummyHTTPServer", "Connection: close",
            "Access-Control-Allow-Origin: *", "Access-Control-Allow-Headers: *", "Content-Type: " + type,
            "Content-Length: " + QString::number(length)};
}

QStringList errorHead(int length)
{
    return {"HTTP/1.1 404 Not Found", "Date:", "Server: MyDummyHTTPServer", "Connection: close",
            "Access-Control-Allow-Origin: *", "Content-Type: text/plain; charset=utf-8",
            "Content-Length: " + QString::number(length)};
}

class HTTPServerTest : public QObject
{
    Q_OBJECT
    QTemporaryDir m_root;
    QString m_folder;
    std::unique_ptr<PageFeed> m_feed;
    std::unique_ptr<HTTPServer> m_server;

    void writeFile(const QString& path, const QByteArray& data)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(data);
    }

    void startServer(const HTTPLimits& limits = {})
    {
        m_server = std::make_unique<HTTPServer>();
        m_server->setDelegate(m_feed.get());
        m_server->setLimits(limits);
        QVERIFY(m_server->listen());
        QVERIFY(m_server->isRunning());
        QVERIFY(m_server->activePort() > 0 && m_server->activePort() < 65535);
    }

    std::unique_ptr<RawClient> request(const QByteArray& bytes)
    {
        auto client = std::make_unique<RawClient>(quint16(m_server->activePort()));
        client->send(bytes);
        client->waitClosed(3000);
        return client;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        m_folder = m_root.filePath("RSS Files");
        QVERIFY(QDir().mkpath(m_folder));
        writeFile(m_root.filePath("secret"), "not to be served");
        writeFile(m_folder + "/a.pdf", "%PDF-1.4 tiny");
        writeFile(m_folder + "/My Page.txt", "hello");
        writeFile(m_folder + "/x<y&z.txt", "odd");
        QVERIFY(QDir().mkpath(m_folder + "/sub"));
        writeFile(m_folder + "/sub/inner.txt", "inner");
        QCOMPARE(::mkfifo(QFile::encodeName(m_folder + "/pipe").constData(), 0600), 0);
        m_feed = std::make_unique<PageFeed>(m_folder);
    }

    void init() { startServer(); }
    void cleanup() { m_server.reset(); }

    void routes_data()
    {
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<QStringList>("headLines");
        QTest::addColumn<QByteArray>("body");

        const QByteArray index = "<HTML><HEAD><TITLE>Quirepad::all printed pages</TITLE></HEAD><BODY><UL>"
                                 "<LI><A HREF=\"/file/My%20Page.txt\">My Page.txt</A></LI>"
                                 "<LI><A HREF=\"/file/a.pdf\">a.pdf</A></LI>"
                                 "<LI><A HREF=\"/file/x%3Cy%26z.txt\">x&lt;y&amp;z.txt</A></LI>"
                                 "</UL></BODY></HTML>";
        QTest::newRow("pdf file") << QByteArray("/file/a.pdf") << fileHead("application/pdf")
                                  << QByteArray("%PDF-1.4 tiny");
        QTest::newRow("encoded name") << QByteArray("/file/My%20Page.txt") << fileHead("text/plain")
                                      << QByteArray("hello");
        QTest::newRow("missing file") << QByteArray("/file/none.pdf") << errorHead(14) << QByteArray("file not found");
        QTest::newRow("query is part of the name")
            << QByteArray("/file/a.pdf?dl=1") << errorHead(14) << QByteArray("file not found");
        QTest::newRow("index") << QByteArray("/index.html") << stringHead("text/html; charset=utf-8", int(index.size())) << index;
        QTest::newRow("any html is the index")
            << QByteArray("/anything.html") << stringHead("text/html; charset=utf-8", int(index.size())) << index;
    }

    void routes()
    {
        QFETCH(QByteArray, target);
        QFETCH(QStringList, headLines);
        QFETCH(QByteArray, body);

        auto client = request(get(target));
        QVERIFY(client->closed());
        const QStringList lines = QString::fromUtf8(client->head()).split("\r\n");
        QCOMPARE(lines.size(), headLines.size());
        for (int i = 0; i < lines.size(); ++i)
            QVERIFY2(headLines[i] == "Date:" ? lines[i].startsWith("Date: ") && lines[i].size() > 12
                                             : lines[i] == headLines[i],
                     qPrintable(lines[i]));
        QCOMPARE(client->body(), body);
    }

    void feed_data()
    {
        QTest::addColumn<QByteArray>("target");
        QTest::newRow("root") << QByteArray("/");
        QTest::newRow("xml") << QByteArray("/feed.xml");
    }

    void feed()
    {
        QFETCH(QByteArray, target);
        auto client = request(get(target));
        QVERIFY(client->closed());
        const QByteArray body = client->body();
        QCOMPARE(QString::fromUtf8(client->head()).split("\r\n").mid(6),
                 QStringList({"Content-Type: application/rss+xml", "Content-Length: " + QString::number(body.size())}));

        QXmlStreamReader xml(body);
        QStringList titles, links, guids;
        QString channelLink;
        while (!xml.atEnd()) {
            xml.readNext();
            if (!xml.isStartElement())
                continue;
            if (xml.name() == u"title")
                titles << xml.readElementText();
            else if (xml.name() == u"link")
                links << xml.readElementText();
            else if (xml.name() == u"guid")
                guids << xml.readElementText();
        }
        QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
        QCOMPARE(titles, QStringList({"Quirepad Page Feed", "My Page.txt", "a.pdf", "x<y&z.txt"}));
        QCOMPARE(links, QStringList({"http://box:8080" + QString::fromLatin1(target), "http://box:8080/file/My%20Page.txt",
                                     "http://box:8080/file/a.pdf", "http://box:8080/file/x%3Cy%26z.txt"}));
        QCOMPARE(guids, links.mid(1));
    }

    void hostileHostStaysInsideItsElement()
    {
        auto client = request("GET / HTTP/1.1\r\nHost: h</link><evil/>&\r\n\r\n");
        QXmlStreamReader xml(client->body());
        int evil = 0;
        while (!xml.atEnd()) {
            if (xml.readNext() == QXmlStreamReader::StartElement && xml.name() == u"evil")
                ++evil;
        }
        QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
        QCOMPARE(evil, 0);
    }

    void answeredAfterTheClientClosedItsSide()
    {
        RawClient client(m_server->port());
        QVERIFY(client.connected());
        client.send("GET /index.html HTTP/1.0\r\n\r\n");
        client.finishSending();
        QVERIFY(client.waitClosed(5000));
        QVERIFY2(client.received().startsWith("HTTP/1.1 200 OK\r\n"), client.received().left(200).constData());
        QVERIFY(client.body().contains("Quirepad::all printed pages"));
    }

    // Without a Host header the links name the address connected to.
    void linksWithoutHostLeadBack()
    {
        auto client = request("GET / HTTP/1.0\r\n\r\n");
        const QByteArray here = "http://127.0.0.1:" + QByteArray::number(m_server->port()) + "/";
        QVERIFY2(client->body().contains("<link>" + here + "</link>"), client->body().left(600).constData());
        QVERIFY(!client->body().contains("http:///"));
    }

    void traversal_data()
    {
        QTest::addColumn<QByteArray>("target");
        QTest::newRow("dot dot") << QByteArray("/file/../secret");
        QTest::newRow("encoded dots") << QByteArray("/file/%2e%2e/secret");
        QTest::newRow("encoded slash") << QByteArray("/file/..%2fsecret");
        QTest::newRow("all encoded") << QByteArray("/file/%2E%2E%2Fsecret");
        QTest::newRow("backslash") << QByteArray("/file/..%5csecret");
        QTest::newRow("subfolder") << QByteArray("/file/sub/inner.txt");
        QTest::newRow("encoded subfolder") << QByteArray("/file/sub%2finner.txt");
        QTest::newRow("folder itself") << QByteArray("/file/sub");
        QTest::newRow("a FIFO, never waited on") << QByteArray("/file/pipe");
        QTest::newRow("nul after name") << QByteArray("/file/a.pdf%00");
        QTest::newRow("nul alone") << QByteArray("/file/%00");
        QTest::newRow("empty name") << QByteArray("/file/");
        QTest::newRow("absolute") << QByteArray("/file/%2fetc%2fpasswd");
    }

    void traversal()
    {
        QFETCH(QByteArray, target);
        auto client = request(get(target));
        QVERIFY(client->closed());
        QVERIFY(client->received().startsWith("HTTP/1.1 404 Not Found\r\n"));
        QCOMPARE(client->body(), QByteArray("file not found"));
    }

    void refusals_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("short request line") << QByteArray("GET /\r\n\r\n") << QByteArray("bad request");
        QTest::newRow("body over 16 MiB") << QByteArray("POST / HTTP/1.1\r\nContent-Length: 16777217\r\n\r\n")
                                          << QByteArray("request body too large");
    }

    void refusals()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, body);
        auto client = request(bytes);
        QVERIFY(client->closed());
        QVERIFY(client->received().startsWith("HTTP/1.1 404 Not Found\r\n"));
        QCOMPARE(client->body(), body);
    }

    void oversizeHeadIsRefusedAndClosed()
    {
        auto client = request("GET / HTTP/1.1\r\nX-Pad: " + QByteArray(70 * 1024, 'a') + "\r\n\r\n");
        QVERIFY(client->closed());
        QVERIFY(!client->received().contains("200 OK"));
        QTRY_COMPARE(m_server->connectionCount(), 0);
    }

    void idleClientIsClosed()
    {
        HTTPLimits limits;
        limits.idleTimeout = std::chrono::milliseconds(150);
        startServer(limits);
        RawClient client(quint16(m_server->activePort()));
        QVERIFY(client.connected());
        client.send("GET / HT");
        QElapsedTimer clock;
        clock.start();
        QVERIFY(client.waitClosed(2000));
        QVERIFY(clock.elapsed() >= 100);
        QVERIFY(client.received().isEmpty());
    }

    // A client that keeps the connection busy with a byte now and then is
    // closed when its request is not complete in time.
    void tricklingClientIsClosed()
    {
        HTTPLimits limits;
        limits.idleTimeout = std::chrono::milliseconds(1000);
        limits.requestTimeout = std::chrono::milliseconds(300);
        startServer(limits);
        RawClient client(quint16(m_server->activePort()));
        QVERIFY(client.connected());
        QElapsedTimer clock;
        clock.start();
        const QByteArray request = "GET / HTTP/1.1\r\nHost: slow\r\nX-Padding: aaaaaaaaaaaaaaaaaaaaaaaa";
        for (qsizetype i = 0; i < request.size() && !client.closed() && clock.elapsed() < 3000; ++i) {
            client.send(request.mid(i, 1));
            QTest::qWait(50);
        }
        QVERIFY(client.waitClosed(2000));
        QVERIFY(clock.elapsed() >= 250);
        QVERIFY(clock.elapsed() < 1500);
        QVERIFY(client.received().isEmpty());
    }

    void validRequestServedBesideStalledClient()
    {
        RawClient stalled(quint16(m_server->activePort()));
        stalled.send("GET / HTTP/1.1\r\nHost: slow");
        auto client = request(get("/file/a.pdf"));
        QVERIFY(client->closed());
        QCOMPARE(client->body(), QByteArray("%PDF-1.4 tiny"));
        QVERIFY(!stalled.closed());
        QCOMPARE(m_server->connectionCount(), 1);
    }

    void connectionsBeyondTheLimitWait()
    {
        HTTPLimits limits;
        limits.maxConnections = 2;
        startServer(limits);
        const quint16 port = quint16(m_server->activePort());
        auto first = std::make_unique<RawClient>(port);
        RawClient second(port);
        first->send("GET");
        second.send("GET");
        QTRY_COMPARE(m_server->connectionCount(), 2);
        RawClient third(port);
        third.send(get("/file/a.pdf"));
        QTest::qWait(300);
        QVERIFY(third.received().isEmpty());
        QCOMPARE(m_server->connectionCount(), 2);
        first->abort();
        QVERIFY(third.waitClosed(3000));
        QCOMPARE(third.body(), QByteArray("%PDF-1.4 tiny"));
    }

    void largeFileStreamsWithoutStallingTheLoop()
    {
        const qint64 size = 50 * 1024 * 1024;
        const QString path = m_folder + "/large.pdf";
        {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            QVERIFY(file.resize(size));
        }
        QElapsedTimer sinceTick;
        qint64 longestGap = 0;
        QTimer ticker;
        ticker.setInterval(5);
        QObject::connect(&ticker, &QTimer::timeout, [&] {
            longestGap = std::max(longestGap, sinceTick.restart());
        });
        sinceTick.start();
        ticker.start();

        RawClient client(quint16(m_server->activePort()));
        client.send(get("/file/large.pdf"));
        const bool done = client.waitClosed(60000);
        ticker.stop();
        QFile::remove(path);
        QVERIFY(done);
        QCOMPARE(client.totalReceived() - client.head().size() - 4, size);
        QVERIFY2(longestGap < 100, qPrintable(QString::number(longestGap)));
        qInfo("longest gap between timer ticks: %lld ms", longestGap);
    }
};

} // namespace

QUIREPAD_REGISTER_TEST(HTTPServerTest);
#include "tst_httpserver.moc"
