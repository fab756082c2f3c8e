#include "TestRegistry.h"

#include "network/HTTPRequestParser.h"

#include <QTest>

using namespace quirepad;

namespace {

using State = HTTPRequestParser::State;

class RequestParserTest : public QObject
{
    Q_OBJECT
private slots:
    void parse_data()
    {
        QTest::addColumn<QByteArrayList>("chunks");
        QTest::addColumn<int>("state");
        QTest::addColumn<QStringList>("entries"); // "KEY=value"
        QTest::addColumn<QStringList>("absent");
        QTest::addColumn<int>("bodySize");

        const QStringList none;
        QTest::newRow("request line and host")
            << QByteArrayList{"GET /feed HTTP/1.1\r\nHost: box:8080\r\n\r\n"} << int(State::Complete)
            << QStringList{"TYPE=GET", "URL_PATH=/feed", "PROTOCOL=HTTP/1.1", "HOST=box:8080",
                           "URL=http://box:8080/feed"}
            << none << 0;
        QTest::newRow("bare line feeds")
            << QByteArrayList{"GET /a HTTP/1.0\nHost: h\n\n"} << int(State::Complete)
            << QStringList{"URL_PATH=/a", "HOST=h"} << none << 0;
        QTest::newRow("blank line split across reads")
            << QByteArrayList{"GET / HTTP/1.1\r\nHost: h\r\n", "\r\n"} << int(State::Complete)
            << QStringList{"URL=http://h/"} << none << 0;
        QTest::newRow("headers cannot replace the request line")
            << QByteArrayList{"GET /feed HTTP/1.1\r\nURL_PATH: /index.html\r\nType: POST\r\nprotocol: x\r\nURL: y\r\n\r\n"}
            << int(State::Complete) << QStringList{"TYPE=GET", "URL_PATH=/feed", "PROTOCOL=HTTP/1.1", "URL=http:///feed"}
            << none << 0;
        QTest::newRow("value cut at a second colon")
            << QByteArrayList{"GET / HTTP/1.1\r\nX-Test: a: b\r\n\r\n"} << int(State::Complete)
            << QStringList{"X-TEST=a"} << none << 0;
        QTest::newRow("other method delivered without request fields")
            << QByteArrayList{"PUT /x HTTP/1.1\r\nHost: h\r\n\r\n"} << int(State::Complete)
            << QStringList{"HOST=h"} << QStringList{"TYPE", "URL_PATH", "PROTOCOL"} << 0;
        QTest::newRow("body in two reads")
            << QByteArrayList{"POST /p HTTP/1.1\r\nContent-Length: 10\r\n\r\nabcd", "efghij"}
            << int(State::Complete) << QStringList{"TYPE=POST", "CONTENT-LENGTH=10"} << none << 10;
        QTest::newRow("body still missing")
            << QByteArrayList{"POST /p HTTP/1.1\r\nContent-Length: 10\r\n\r\nabcd"} << int(State::ReadingBody)
            << none << none << 4;
        QTest::newRow("head not finished")
            << QByteArrayList{"GET / HTTP/1.1\r\nHost: h\r\n"} << int(State::ReadingHead) << none << none << 0;
        QTest::newRow("short request line")
            << QByteArrayList{"GET /\r\n\r\n"} << int(State::BadRequestLine) << none << none << 0;
        QTest::newRow("method alone")
            << QByteArrayList{"GET\r\n\r\n"} << int(State::BadRequestLine) << none << none << 0;
        QTest::newRow("head over 64 KiB")
            << QByteArrayList{"GET / HTTP/1.1\r\nX: " + QByteArray(64 * 1024, 'a') + "\r\n\r\n"}
            << int(State::HeadTooLarge) << none << none << 0;
        QTest::newRow("head over 64 KiB in small reads")
            << QByteArrayList(1100, "X-Pad: " + QByteArray(53, 'b') + "\r\n") << int(State::HeadTooLarge) << none
            << none << 0;
        QTest::newRow("content length over 16 MiB")
            << QByteArrayList{"POST / HTTP/1.1\r\nContent-Length: 16777217\r\n\r\n"} << int(State::BodyTooLarge)
            << none << none << 0;
        QTest::newRow("content length beyond 64 bits")
            << QByteArrayList{"POST / HTTP/1.1\r\nContent-Length: 99999999999999999999999\r\n\r\n"}
            << int(State::BodyTooLarge) << none << none << 0;
    }

    void parse()
    {
        QFETCH(QByteArrayList, chunks);
        QFETCH(int, state);
        QFETCH(QStringList, entries);
        QFETCH(QStringList, absent);
        QFETCH(int, bodySize);

        HTTPRequestParser parser;
        for (const QByteArray& chunk : chunks)
            parser.feed(chunk);
        QCOMPARE(int(parser.state()), state);
        for (const QString& entry : entries) {
            const qsizetype eq = entry.indexOf(u'=');
            QCOMPARE(parser.head().value(entry.left(eq)), entry.mid(eq + 1));
        }
        for (const QString& key : absent)
            QVERIFY2(!parser.head().contains(key), qPrintable(key));
        QCOMPARE(parser.body().size(), bodySize);
    }

    void deliveredOnlyOnce()
    {
        HTTPRequestParser parser;
        QCOMPARE(parser.feed("POST / HTTP/1.1\r\nContent-Length: 2\r\n\r\nab"), State::Complete);
        QCOMPARE(parser.feed("more"), State::Complete);
        QCOMPARE(parser.body(), QByteArray("ab"));
    }
};

} // namespace

QUIREPAD_REGISTER_TEST(RequestParserTest);
#include "tst_requestparser.moc"
