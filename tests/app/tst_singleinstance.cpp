#include "LogCapture.h"
#include "TestRegistry.h"

#include "app/CommandClient.h"
#include "app/InstanceMessage.h"
#include "app/SingleInstance.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QCoreApplication>
#include <QDataStream>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <optional>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace quirepad;

namespace {

InstanceRequest sampleRequest()
{
    return { InstanceRequest::Kind::Command,
        { QStringLiteral("print"), QStringLiteral("Grüße aus Köln"), QStringLiteral("日本語.pdf") },
        QStringLiteral("/home/ünïcode/Документы") };
}

QByteArray header(const QByteArray& magic, quint16 version, quint32 length)
{
    QByteArray bytes = magic;
    QDataStream(&bytes, QIODevice::Append) << version << length; // big-endian
    return bytes;
}

// A sample request (or reply) framed with one key changed; a null value
// removes the key.
QByteArray requestWith(const QString& key, const QCborValue& value, bool reply = false)
{
    QCborMap map
        = reply ? InstanceMessage::toCbor(InstanceReply { 0, "out", "err" }) : InstanceMessage::toCbor(sampleRequest());
    if (value.isNull())
        map.remove(key);
    else
        map.insert(key, value);
    return InstanceMessage::frame(map.toCborValue().toCbor());
}

// A runtime directory as tryToRun() creates it: private to this user.
QString makePrivateDir(const QTemporaryDir& tmp, const QString& name)
{
    const QString dir = tmp.filePath(name);
    if (!QDir().mkpath(dir) || ::chmod(QFile::encodeName(dir).constData(), 0700) != 0)
        return {};
    return dir;
}

// Leaves a socket file behind as a crashed server would: bound, never
// listened on, descriptor closed.
bool makeStaleSocketFile(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address {};
    if (size_t(name.size()) >= sizeof address.sun_path)
        return false;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.constData(), size_t(name.size()));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0)
        return false;
    const bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return bound;
}

// A lock file as QLockFile writes it (pid, application and host name), but
// naming the given process and dated as given.
bool writeLockFile(const QString& path, qint64 pid, const QDateTime& modified)
{
    QByteArrayList lines;
    QFile::remove(path);
    {
        QLockFile probe(path);
        QFile file(path);
        if (!probe.tryLock(0) || !file.open(QIODevice::ReadOnly))
            return false;
        lines = file.readAll().split('\n');
    }
    lines[0] = QByteArray::number(pid);
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(lines.join('\n')) > 0 && file.flush()
        && file.setFileTime(modified, QFileDevice::FileModificationTime);
}

// SingleInstance::forward() blocks, so it runs on a thread of its own while
// this thread's event loop serves the instance under test.
void servedWhile(const std::function<void()>& blocking)
{
    std::unique_ptr<QThread> thread(QThread::create(blocking));
    thread->start();
    while (!thread->isFinished())
        QTest::qWait(5);
    thread->wait();
}

// The instance's answer; nullopt when none came.
std::optional<InstanceReply> forwardServed(const InstanceRequest& request, const QString& dir)
{
    ForwardResult result;
    servedWhile([&] { result = SingleInstance::forward(request, dir); });
    return result.answered() ? std::optional(result.reply) : std::nullopt;
}

} // namespace

class SingleInstanceTest : public QObject
{
    Q_OBJECT

private slots:
    // --- the message format -------------------------------------------

    void requestRoundTrip_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("cwd");

        QTest::newRow("command with unicode") << int(InstanceRequest::Kind::Command)
                                              << QStringList { "print", "Grüße", "日本語", "🖨 emoji" } << "/tmp/ßü";
        QTest::newRow("open with awkward paths")
            << int(InstanceRequest::Kind::Open)
            << QStringList { "/a b/c.pdf", "line\nbreak.ps", QString(), QStringLiteral("nul\u0000inside") } << "/";
        QTest::newRow("no arguments, no directory")
            << int(InstanceRequest::Kind::Command) << QStringList {} << QString();
    }

    void requestRoundTrip()
    {
        QFETCH(int, kind);
        QFETCH(QStringList, arguments);
        QFETCH(QString, cwd);
        const InstanceRequest request { InstanceRequest::Kind(kind), arguments, cwd };

        const QByteArray bytes = InstanceMessage::encode(request);
        QCOMPARE(bytes.left(10), header("QPAD", 1, quint32(bytes.size() - 10)));
        InstanceMessageDecoder decoder;
        decoder.feed(bytes);
        QCOMPARE(decoder.takeRequest(), std::optional(request));
        QVERIFY2(!decoder.hasError(), qPrintable(decoder.errorString()));
        QCOMPARE(decoder.bufferedBytes(), 0);
        QVERIFY(!decoder.takeRequest());
    }

    void replyRoundTrip()
    {
        for (const InstanceReply& reply : { InstanceReply { 0, "Grüße ✓\n", {} },
                 InstanceReply { std::numeric_limits<int>::max(), {}, "quirepad: ошибка\n" } }) {
            InstanceMessageDecoder decoder;
            decoder.feed(InstanceMessage::encode(reply));
            QCOMPARE(decoder.takeReply(), std::optional(reply));
        }
    }

    void framesSplitAnywhere()
    {
        const InstanceRequest second { InstanceRequest::Kind::Open, { "/tmp/a.pdf" }, "/" };
        const QByteArray first = InstanceMessage::encode(sampleRequest());
        const QByteArray bytes = first + InstanceMessage::encode(second);

        // Byte by byte: each message comes out with its last byte, not before.
        InstanceMessageDecoder slow;
        for (qsizetype i = 0; i < bytes.size(); ++i) {
            slow.feed(bytes.mid(i, 1));
            const std::optional<InstanceRequest> request = slow.takeRequest();
            QVERIFY2(!slow.hasError(), qPrintable(slow.errorString()));
            if (i + 1 == first.size())
                QCOMPARE(request, std::optional(sampleRequest()));
            else if (i + 1 == bytes.size())
                QCOMPARE(request, std::optional(second));
            else
                QVERIFY2(!request, qPrintable(QStringLiteral("message after %1 bytes").arg(i + 1)));
        }

        // Two messages and the start of a third in one chunk.
        InstanceMessageDecoder fast;
        fast.feed(bytes + first.left(7));
        QCOMPARE(fast.takeRequest(), std::optional(sampleRequest()));
        QCOMPARE(fast.takeRequest(), std::optional(second));
        QVERIFY(!fast.takeRequest());
        QCOMPARE(fast.bufferedBytes(), 7);
        fast.feed(first.mid(7));
        QCOMPARE(fast.takeRequest(), std::optional(sampleRequest()));
        QCOMPARE(fast.bufferedBytes(), 0);
    }

    void malformedFramesAreErrors_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("asReply");
        QTest::addColumn<QString>("error");

        const QByteArray payload = InstanceMessage::toCbor(sampleRequest()).toCborValue().toCbor();
        const QCborValue removed(nullptr);
        QTest::newRow("wrong magic") << header("QPAX", 1, quint32(payload.size())) + payload << false << "wrong magic";
        QTest::newRow("version 2") << header("QPAD", 2, quint32(payload.size())) + payload << false
                                   << "unsupported protocol version 2";
        QTest::newRow("length over the limit")
            << header("QPAD", 1, InstanceMessage::maxPayloadSize + 1) << false << "exceeds the limit";
        QTest::newRow("truncated CBOR") << InstanceMessage::frame(payload.chopped(5)) << false << "malformed CBOR";
        QTest::newRow("bytes after the CBOR value")
            << InstanceMessage::frame(payload + QByteArray(1, '\0')) << false << "trailing bytes";
        QTest::newRow("array instead of map")
            << InstanceMessage::frame(QCborValue(QCborArray { "print" }).toCbor()) << false << "not a CBOR map";
        QTest::newRow("kind missing") << requestWith("kind", removed) << false << "\"kind\" is missing";
        QTest::newRow("unknown kind") << requestWith("kind", "delete") << false << "unknown request kind";
        QTest::newRow("args not an array")
            << requestWith("args", "print") << false << "\"args\" is missing or not an array";
        QTest::newRow("args with a number")
            << requestWith("args", QCborArray { "print", 3 }) << false << "not a string";
        QTest::newRow("cwd missing") << requestWith("cwd", removed) << false << "\"cwd\" is missing";
        QTest::newRow("status not an integer")
            << requestWith("status", "0", true) << true << "\"status\" is missing or not an integer";
        QTest::newRow("status out of range") << requestWith("status", qint64(1) << 40, true) << true << "out of range";
        QTest::newRow("request read as a reply")
            << InstanceMessage::encode(sampleRequest()) << true << "\"status\" is missing";
    }

    void malformedFramesAreErrors()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, asReply);
        QFETCH(QString, error);

        auto take = [asReply](InstanceMessageDecoder& decoder) {
            return asReply ? decoder.takeReply().has_value() : decoder.takeRequest().has_value();
        };

        InstanceMessageDecoder decoder;
        decoder.feed(bytes);
        QVERIFY(!take(decoder));
        QVERIFY2(decoder.errorString().contains(error), qPrintable(decoder.errorString()));
        QCOMPARE(decoder.bufferedBytes(), 0);

        // A broken stream stays broken: a good frame after it is not read.
        decoder.feed(asReply ? InstanceMessage::encode(InstanceReply {}) : InstanceMessage::encode(sampleRequest()));
        QVERIFY(!take(decoder));
        QCOMPARE(decoder.bufferedBytes(), 0);

        // Fed byte by byte the verdict is the same.
        InstanceMessageDecoder slow;
        for (char byte : bytes) {
            slow.feed(QByteArrayView(&byte, 1));
            take(slow);
        }
        QVERIFY2(slow.errorString().contains(error), qPrintable(slow.errorString()));
    }

    // --- the instance lock ----------------------------------------------

    void oneInstancePerRuntimeDir()
    {
        QTemporaryDir tmp;
        const QString dir = tmp.filePath(QStringLiteral("nested/run"));

        auto first = std::make_unique<SingleInstance>(dir);
        first->setHandler([](const InstanceRequest&) { return InstanceReply { 0, QStringLiteral("first"), {} }; });
        QVERIFY2(first->tryToRun(), qPrintable(first->errorString()));
        QVERIFY(first->isLocked());
        QVERIFY(first->isListening());
        struct stat info = {};
        QVERIFY(::stat(QFile::encodeName(dir).constData(), &info) == 0 && (info.st_mode & 07777) == 0700);

        SingleInstance second(dir);
        QVERIFY(!second.tryToRun());
        QVERIFY(!second.isLocked());
        QVERIFY2(second.errorString().isEmpty(), qPrintable(second.errorString()));

        // The refused start left the first instance reachable.
        const std::optional<InstanceReply> reply = forwardServed(InstanceRequest {}, dir);
        QVERIFY(reply);
        QCOMPARE(reply->out, QStringLiteral("first"));

        first.reset();
        QVERIFY(!QFileInfo::exists(dir + QStringLiteral("/quirepad.sock")));
        QVERIFY(!QFileInfo::exists(dir + QStringLiteral("/quirepad.lock")));
        QVERIFY2(second.tryToRun(), qPrintable(second.errorString()));
        QVERIFY(second.isListening());
    }

    void staleSocketFileDoesNotBlock()
    {
        QTemporaryDir tmp;
        const QString dir = makePrivateDir(tmp, QStringLiteral("run"));
        QVERIFY(!dir.isEmpty());
        QVERIFY(makeStaleSocketFile(dir + QStringLiteral("/quirepad.sock")));

        SingleInstance instance(dir);
        instance.setHandler([](const InstanceRequest&) { return InstanceReply { 5, {}, {} }; });
        QVERIFY2(instance.tryToRun(), qPrintable(instance.errorString()));
        QVERIFY2(instance.isListening(), qPrintable(instance.errorString()));
        const std::optional<InstanceReply> reply = forwardServed(InstanceRequest {}, dir);
        QVERIFY(reply);
        QCOMPARE(reply->status, 5);
    }

    void lockOfADeadProcessIsRemoved()
    {
        QTemporaryDir tmp;
        const QString dir = makePrivateDir(tmp, QStringLiteral("run"));
        QVERIFY(!dir.isEmpty());
        const QString lockPath = dir + QStringLiteral("/quirepad.lock");

        // A live owner keeps the lock however old the file is.
        const qint64 self = QCoreApplication::applicationPid();
        QVERIFY(writeLockFile(lockPath, self, QDateTime::currentDateTime().addSecs(-3600)));
        QVERIFY(!SingleInstance(dir).tryToRun());
        QVERIFY(QFileInfo::exists(lockPath));

        const pid_t dead = ::fork();
        if (dead == 0)
            ::_exit(0);
        QVERIFY(dead > 0 && ::waitpid(dead, nullptr, 0) == dead);
        QVERIFY(writeLockFile(lockPath, dead, QDateTime::currentDateTime()));
        SingleInstance instance(dir);
        QVERIFY2(instance.tryToRun(), qPrintable(instance.errorString()));
        QVERIFY(instance.isListening());
        qint64 owner = 0;
        QVERIFY(QLockFile(lockPath).getLockInfo(&owner, nullptr, nullptr));
        QCOMPARE(owner, self);
    }

    // --- forwarding ------------------------------------------------------

    void forwardReachesTheRunningInstance()
    {
        QTemporaryDir tmp;
        const QString dir = tmp.filePath(QStringLiteral("run"));
        SingleInstance instance(dir);
        std::optional<InstanceRequest> received;
        bool onMainThread = false;
        instance.setHandler([&](const InstanceRequest& request) {
            received = request;
            onMainThread = QThread::currentThread() == QCoreApplication::instance()->thread();
            return InstanceReply { 7, QStringLiteral("Ausgabe ✓\n"), QStringLiteral("warnung: ß\n") };
        });
        QVERIFY2(instance.tryToRun(), qPrintable(instance.errorString()));

        const InstanceRequest request { InstanceRequest::Kind::Open, { "/tmp/ä b.pdf", "rel/🖨.ps" },
            "/home/ü/Документы" };
        const std::optional<InstanceReply> reply = forwardServed(request, dir);
        QCOMPARE(
            reply, std::optional(InstanceReply { 7, QStringLiteral("Ausgabe ✓\n"), QStringLiteral("warnung: ß\n") }));
        QCOMPARE(received, std::optional(request));
        QVERIFY(onMainThread);
        QTRY_COMPARE(instance.activeConnections(), 0);
    }

    void forwardWithoutInstanceIsNull_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::newRow("no runtime directory") << "missing";
        QTest::newRow("socket file nobody listens on") << "stale socket";
        QTest::newRow("instance locked but not listening") << "lock only";
    }

    void forwardWithoutInstanceIsNull()
    {
        QFETCH(QString, setup);

        QTemporaryDir tmp;
        const QString dir = setup == "missing" ? tmp.filePath("run") : makePrivateDir(tmp, QStringLiteral("run"));
        QVERIFY(!dir.isEmpty());
        QLockFile lock(dir + QStringLiteral("/quirepad.lock"));
        if (setup == "stale socket")
            QVERIFY(makeStaleSocketFile(dir + QStringLiteral("/quirepad.sock")));
        else if (setup == "lock only")
            QVERIFY(lock.tryLock(0));

        QCOMPARE(SingleInstance::forward(sampleRequest(), dir).outcome, ForwardResult::Outcome::NoInstance);
        if (setup == "missing")
            QVERIFY(!QFileInfo::exists(dir));
    }

    // Once an instance may have the request, the client never does the work
    // itself: it waits for the answer as long as the connection lasts, and
    // without one ends with the "unavailable" status.
    void commandRunsExactlyOnce_data()
    {
        QTest::addColumn<QString>("instance");
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("instanceRuns");
        QTest::addColumn<int>("localRuns");
        QTest::addColumn<QString>("said");
        QTest::newRow("no instance") << "none" << 3 << 0 << 1 << "done here";
        QTest::newRow("slower than a second") << "slow" << 0 << 1 << 0 << "done there";
        QTest::newRow("takes no requests yet") << "busy" << 75 << 0 << 0 << "takes no requests yet";
        QTest::newRow("drops the connection") << "drop" << 75 << 1 << 0 << "closed the connection without answering";
        QTest::newRow("never accepts, then ends") << "silent" << 75 << 0 << 0 << "did not answer";
    }

    void commandRunsExactlyOnce()
    {
        QFETCH(QString, instance);
        QFETCH(int, instanceRuns);
        QFETCH(int, localRuns);
        QFETCH(QString, said);

        QTemporaryDir tmp;
        const QString dir = makePrivateDir(tmp, QStringLiteral("run"));
        QVERIFY(!dir.isEmpty());
        const QString socketPath = dir + QStringLiteral("/quirepad.sock");
        int served = 0;
        SingleInstance real(dir);
        auto raw = std::make_unique<QLocalServer>(); // accepts in the kernel, answers never
        if (instance == "slow" || instance == "busy") {
            if (instance == "slow")
                real.setHandler([&](const InstanceRequest&) {
                    ++served;
                    QTest::qWait(1000);
                    return InstanceReply { 0, QStringLiteral("done there\n"), {} };
                });
            QVERIFY(real.tryToRun());
        } else if (instance != "none") {
            QVERIFY(raw->listen(socketPath));
            if (instance == "drop")
                connect(raw.get(), &QLocalServer::newConnection, this, [&] {
                    QLocalSocket* peer = raw->nextPendingConnection();
                    connect(peer, &QLocalSocket::readyRead, peer, [&served, peer] {
                        ++served;
                        peer->abort();
                    });
                });
            else
                QTimer::singleShot(300, this, [&raw] { raw.reset(); });
        }

        std::atomic<int> local = 0, notices = 0;
        CommandClient client(
            [&](const InstanceRequest&) {
                ++local;
                return InstanceReply { 3, QStringLiteral("done here\n"), {} };
            },
            dir);
        ForwardOptions options;
        options.noticeAfter = std::chrono::milliseconds(50);
        options.waiting = [&] { ++notices; };
        client.setOptions(options);
        InstanceReply reply;
        servedWhile([&] { reply = client.run(sampleRequest()); });

        QTEST(reply.status, "status");
        QVERIFY2((reply.out + reply.err).contains(said), qPrintable(reply.out + reply.err));
        QCOMPARE(served, instanceRuns);
        QCOMPARE(int(local), localRuns);
        if (instance == "slow")
            QCOMPARE(int(notices), 1);
    }

    // --- hostile clients and places --------------------------------------

    void hostileClientIsDropped_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("then"); // "wait": for the server to hang up, "stall", "close"

        const QByteArray half = InstanceMessage::encode(sampleRequest()).left(20);
        QTest::newRow("garbage") << QByteArray("garbage garbage garbage") << "wait";
        QTest::newRow("huge length") << header("QPAD", 1, 0xffffffffu) << "wait";
        QTest::newRow("wrong shape") << requestWith("kind", 1) << "wait";
        QTest::newRow("half a frame, then silence") << half << "stall";
        QTest::newRow("half a frame, then gone") << half << "close";
        QTest::newRow("nothing, then gone") << QByteArray() << "close";
    }

    void hostileClientIsDropped()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, then);

        QTemporaryDir tmp;
        const QString dir = tmp.filePath(QStringLiteral("run"));
        SingleInstance instance(dir);
        // Only a stalled client may be left to the idle timeout.
        instance.setIdleTimeout(std::chrono::milliseconds(then == "stall" ? 200 : 60000));
        int handled = 0;
        instance.setHandler([&](const InstanceRequest& request) {
            ++handled;
            return InstanceReply { 0, request.arguments.join(QLatin1Char(' ')), {} };
        });
        QVERIFY(instance.tryToRun());

        QLocalSocket client;
        client.connectToServer(instance.socketPath());
        QVERIFY(client.waitForConnected(5000));
        QTRY_COMPARE(instance.activeConnections(), 1);
        client.write(bytes);
        QVERIFY(client.flush() || bytes.isEmpty());
        if (then == "close")
            client.disconnectFromServer();
        else
            QTRY_COMPARE_WITH_TIMEOUT(client.state(), QLocalSocket::UnconnectedState, 5000);
        QTRY_COMPARE(instance.activeConnections(), 0);
        QCOMPARE(handled, 0);

        // The next client is served as usual.
        const std::optional<InstanceReply> reply = forwardServed(sampleRequest(), dir);
        QVERIFY(reply);
        QCOMPARE(reply->out, sampleRequest().arguments.join(QLatin1Char(' ')));
        QCOMPARE(handled, 1);
    }

    void unsafeRuntimeDirIsRefused_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("error");

        QTest::newRow("mode 0750") << QString("0750") << QString("accessible to other users");
        QTest::newRow("owned by another user") << QString("foreign") << QString("not by this user");
        QTest::newRow("symbolic link") << QString("symlink") << QString("not a folder");
    }

    void unsafeRuntimeDirIsRefused()
    {
        QFETCH(QString, kind);
        QFETCH(QString, error);

        QTemporaryDir tmp;
        const QString real = makePrivateDir(tmp, QStringLiteral("real"));
        QVERIFY(!real.isEmpty());
        QString dir = real;
        if (kind.startsWith(QLatin1Char('0'))) {
            QVERIFY(::chmod(QFile::encodeName(real).constData(), kind.toUInt(nullptr, 8)) == 0);
        } else if (kind == QLatin1String("foreign")) {
            if (::geteuid() != 0)
                QSKIP("handing a directory to another user needs root");
            QVERIFY(::chown(QFile::encodeName(real).constData(), 65534, 65534) == 0);
        } else {
            dir = tmp.filePath(QStringLiteral("link"));
            QVERIFY(QFile::link(real, dir));
        }

        // Something listens there: only the refusal keeps forward() away.
        QLocalServer bait;
        QVERIFY2(bait.listen(real + QStringLiteral("/quirepad.sock")), qPrintable(bait.errorString()));
        QSignalSpy baited(&bait, &QLocalServer::newConnection);

        quirepad::test::LogCapture log;
        SingleInstance instance(dir);
        QVERIFY(!instance.tryToRun());
        QVERIFY(!instance.isLocked());
        QVERIFY2(instance.errorString().contains(error), qPrintable(instance.errorString()));
        QVERIFY(!QFileInfo::exists(real + QStringLiteral("/quirepad.lock")));

        QCOMPARE(SingleInstance::forward(sampleRequest(), dir).outcome, ForwardResult::Outcome::NoInstance);
        QCOMPARE(log.count(error), 2);
        QTest::qWait(50);
        QCOMPARE(baited.count(), 0);
        QVERIFY(!bait.hasPendingConnections());
    }
};

QUIREPAD_REGISTER_TEST(SingleInstanceTest);
#include "tst_singleinstance.moc"
