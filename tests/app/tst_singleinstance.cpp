#include "LogCapture.h"
#include "TestRegistry.h"

#include "app/InstanceMessage.h"
#include "app/SingleInstance.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <QtEndian>

#include <cstring>
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

QByteArray header(QByteArrayView magic, quint16 version, quint32 length)
{
    QByteArray bytes(magic.data(), magic.size());
    char number[4];
    qToBigEndian<quint16>(version, number);
    bytes.append(number, 2);
    qToBigEndian<quint32>(length, number);
    bytes.append(number, 4);
    return bytes;
}

QByteArray cbor(const QCborMap& map)
{
    return map.toCborValue().toCbor();
}

QCborMap requestMap()
{
    return InstanceMessage::toCbor(sampleRequest());
}

QCborMap replyMap()
{
    return InstanceMessage::toCbor(InstanceReply { 0, QStringLiteral("out"), QStringLiteral("err") });
}

QCborMap without(QCborMap map, const QString& key)
{
    map.remove(key);
    return map;
}

QCborMap with(QCborMap map, const QString& key, const QCborValue& value)
{
    map.insert(key, value);
    return map;
}

int modeOf(const QString& path)
{
    struct stat info = {};
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return -1;
    return int(info.st_mode & 07777);
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

// The id of a process that existed a moment ago and has been reaped.
pid_t deadPid()
{
    const pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(0);
    if (pid > 0)
        ::waitpid(pid, nullptr, 0);
    return pid;
}

// What QLockFile writes for this process (pid, application name, host
// name and the lines after them), so a hand-made lock differs from a real
// one in nothing but what a test changes.
QList<QByteArray> realLockFileLines(const QTemporaryDir& tmp)
{
    QLockFile probe(tmp.filePath(QStringLiteral("probe.lock")));
    if (!probe.tryLock(0))
        return {};
    QFile file(tmp.filePath(QStringLiteral("probe.lock")));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll().split('\n');
}

bool writeLockFile(const QString& path, QList<QByteArray> lines, qint64 pid, const QDateTime& modified)
{
    lines[0] = QByteArray::number(pid);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    if (file.write(lines.join('\n')) < 0 || !file.flush())
        return false;
    return file.setFileTime(modified, QFileDevice::FileModificationTime);
}

// SingleInstance::forward() blocks, so it runs on a thread of its own while
// the main thread's event loop serves the instance under test.
class ForwardCall
{
public:
    ForwardCall(const InstanceRequest& request, const QString& runtimeDir, int timeoutMs = 10000)
    {
        m_thread.reset(QThread::create([this, request, runtimeDir, timeoutMs] {
            m_reply = SingleInstance::forward(request, runtimeDir, timeoutMs);
        }));
        m_thread->start();
    }
    ~ForwardCall() { m_thread->wait(); }
    ForwardCall(const ForwardCall&) = delete;
    ForwardCall& operator=(const ForwardCall&) = delete;

    bool isFinished() const { return m_thread->isFinished(); }

    // Serves the main event loop until the call returns.
    bool serveUntilFinished(int timeoutMs = 15000)
    {
        QElapsedTimer clock;
        clock.start();
        while (!m_thread->isFinished() && clock.elapsed() < timeoutMs)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        return m_thread->wait(0);
    }

    const std::optional<InstanceReply>& reply() const { return m_reply; }

private:
    std::unique_ptr<QThread> m_thread;
    std::optional<InstanceReply> m_reply;
};

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
        QVERIFY(bytes.startsWith("QPAD"));
        QCOMPARE(qFromBigEndian<quint16>(bytes.constData() + 4), quint16(1));
        QCOMPARE(qsizetype(qFromBigEndian<quint32>(bytes.constData() + 6)), bytes.size() - 10);

        InstanceMessageDecoder decoder;
        decoder.feed(bytes);
        const std::optional<InstanceRequest> decoded = decoder.takeRequest();
        QVERIFY2(decoded, qPrintable(decoder.errorString()));
        QCOMPARE(int(decoded->kind), kind);
        QCOMPARE(decoded->arguments, arguments);
        QCOMPARE(decoded->workingDirectory, cwd);
        QVERIFY(!decoder.hasError());
        QCOMPARE(decoder.bufferedBytes(), 0);
        QVERIFY(!decoder.takeRequest());
    }

    void replyRoundTrip_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");

        QTest::newRow("success") << 0 << "Grüße ✓\n" << QString();
        QTest::newRow("failure") << 2 << QString() << "quirepad: ошибка\n";
        QTest::newRow("negative") << -1 << "x"
                                  << "y";
        QTest::newRow("int max") << std::numeric_limits<int>::max() << "🖨"
                                 << "日本";
    }

    void replyRoundTrip()
    {
        QFETCH(int, status);
        QFETCH(QString, out);
        QFETCH(QString, err);

        InstanceMessageDecoder decoder;
        decoder.feed(InstanceMessage::encode(InstanceReply { status, out, err }));
        const std::optional<InstanceReply> decoded = decoder.takeReply();
        QVERIFY2(decoded, qPrintable(decoder.errorString()));
        QCOMPARE(decoded->status, status);
        QCOMPARE(decoded->out, out);
        QCOMPARE(decoded->err, err);
    }

    void frameFedOneByteAtATime()
    {
        const QByteArray bytes = InstanceMessage::encode(sampleRequest());
        InstanceMessageDecoder decoder;
        for (qsizetype i = 0; i + 1 < bytes.size(); ++i) {
            decoder.feed(bytes.mid(i, 1));
            QVERIFY2(!decoder.takeRequest(), qPrintable(QStringLiteral("message after %1 bytes").arg(i + 1)));
            QVERIFY2(!decoder.hasError(), qPrintable(decoder.errorString()));
        }
        decoder.feed(bytes.right(1));
        const std::optional<InstanceRequest> decoded = decoder.takeRequest();
        QVERIFY2(decoded, qPrintable(decoder.errorString()));
        QCOMPARE(*decoded, sampleRequest());
    }

    void severalFramesInOneChunk()
    {
        InstanceRequest second = sampleRequest();
        second.kind = InstanceRequest::Kind::Open;
        second.arguments = QStringList { "/tmp/a.pdf" };
        const InstanceRequest third { InstanceRequest::Kind::Command, { "--version" }, "/" };
        const QByteArray thirdBytes = InstanceMessage::encode(third);

        InstanceMessageDecoder decoder;
        decoder.feed(InstanceMessage::encode(sampleRequest()) + InstanceMessage::encode(second) + thirdBytes.left(7));
        QCOMPARE(decoder.takeRequest(), std::optional(sampleRequest()));
        QCOMPARE(decoder.takeRequest(), std::optional(second));
        QVERIFY(!decoder.takeRequest());
        QVERIFY(!decoder.hasError());
        QCOMPARE(decoder.bufferedBytes(), 7);

        decoder.feed(thirdBytes.mid(7));
        QCOMPARE(decoder.takeRequest(), std::optional(third));
        QCOMPARE(decoder.bufferedBytes(), 0);
    }

    void malformedFramesAreErrors_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("asReply");
        QTest::addColumn<QString>("error");

        const QByteArray request = cbor(requestMap());
        const QByteArray good = InstanceMessage::encode(sampleRequest());

        QTest::newRow("wrong magic") << header("QPAX", 1, quint32(request.size())) + request << false << "wrong magic";
        QTest::newRow("http request") << QByteArray("GET / HTTP/1.1\r\n\r\n") << false << "wrong magic";
        QTest::newRow("one wrong byte") << QByteArray("X") << false << "wrong magic";
        QTest::newRow("version 0") << header("QPAD", 0, quint32(request.size())) + request << false
                                   << "unsupported protocol version 0";
        QTest::newRow("version 2") << header("QPAD", 2, quint32(request.size())) + request << false
                                   << "unsupported protocol version 2";
        QTest::newRow("length over the limit")
            << header("QPAD", 1, InstanceMessage::maxPayloadSize + 1) << false << "exceeds the limit";
        QTest::newRow("length 4 GiB") << header("QPAD", 1, 0xffffffffu) << false << "exceeds the limit";
        QTest::newRow("truncated CBOR") << InstanceMessage::frame(request.chopped(5)) << false << "malformed CBOR";
        QTest::newRow("empty payload") << InstanceMessage::frame({}) << false << "malformed CBOR";
        QTest::newRow("bytes after the CBOR value")
            << InstanceMessage::frame(request + QByteArray(1, '\0')) << false << "trailing bytes";
        QTest::newRow("array instead of map")
            << InstanceMessage::frame(QCborValue(QCborArray { "print" }).toCbor()) << false << "not a CBOR map";
        QTest::newRow("kind missing") << InstanceMessage::frame(cbor(without(requestMap(), "kind"))) << false
                                      << "\"kind\" is missing";
        QTest::newRow("unknown kind") << InstanceMessage::frame(cbor(with(requestMap(), "kind", "delete"))) << false
                                      << "unknown request kind";
        QTest::newRow("args not an array") << InstanceMessage::frame(cbor(with(requestMap(), "args", "print"))) << false
                                           << "\"args\" is missing or not an array";
        QTest::newRow("args with a number")
            << InstanceMessage::frame(cbor(with(requestMap(), "args", QCborArray { "print", 3 }))) << false
            << "not a string";
        QTest::newRow("cwd missing") << InstanceMessage::frame(cbor(without(requestMap(), "cwd"))) << false
                                     << "\"cwd\" is missing";
        QTest::newRow("status not an integer") << InstanceMessage::frame(cbor(with(replyMap(), "status", "0"))) << true
                                               << "\"status\" is missing or not an integer";
        QTest::newRow("status out of range")
            << InstanceMessage::frame(cbor(with(replyMap(), "status", qint64(1) << 40))) << true << "out of range";
        QTest::newRow("err missing") << InstanceMessage::frame(cbor(without(replyMap(), "err"))) << true
                                     << "\"err\" is missing";
        QTest::newRow("request read as a reply") << good << true << "\"status\" is missing";
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
        QVERIFY(decoder.hasError());
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
        QVERIFY(slow.hasError());
        QVERIFY2(slow.errorString().contains(error), qPrintable(slow.errorString()));
    }

    void lengthAtTheLimitWaitsForItsPayload()
    {
        InstanceMessageDecoder decoder;
        decoder.feed(header("QPAD", 1, InstanceMessage::maxPayloadSize) + QByteArray(100, '\xa0'));
        QVERIFY(!decoder.takeRequest());
        QVERIFY2(!decoder.hasError(), qPrintable(decoder.errorString()));
        QCOMPARE(decoder.bufferedBytes(), 110);
    }

    // --- the instance lock ----------------------------------------------

    void defaultRuntimeDir_data()
    {
        QTest::addColumn<QByteArray>("xdgRuntimeDir");
        QTest::addColumn<QString>("expected");

        const QString fallback = QDir::tempPath() + QStringLiteral("/quirepad-%1").arg(::geteuid());
        QTest::newRow("set") << QByteArray("/run/user/4711") << "/run/user/4711/quirepad";
        QTest::newRow("trailing slash") << QByteArray("/run/user/4711/") << "/run/user/4711/quirepad";
        QTest::newRow("unset") << QByteArray() << fallback;
        QTest::newRow("relative") << QByteArray("run/user") << fallback;
    }

    void defaultRuntimeDir()
    {
        QFETCH(QByteArray, xdgRuntimeDir);
        QFETCH(QString, expected);

        const bool wasSet = qEnvironmentVariableIsSet("XDG_RUNTIME_DIR");
        const QByteArray previous = qgetenv("XDG_RUNTIME_DIR");
        auto restore = qScopeGuard([&] {
            if (wasSet)
                qputenv("XDG_RUNTIME_DIR", previous);
            else
                qunsetenv("XDG_RUNTIME_DIR");
        });
        if (xdgRuntimeDir.isNull())
            qunsetenv("XDG_RUNTIME_DIR");
        else
            qputenv("XDG_RUNTIME_DIR", xdgRuntimeDir);

        QCOMPARE(SingleInstance::defaultRuntimeDir(), expected);
    }

    void oneInstancePerRuntimeDir()
    {
        QTemporaryDir tmp;
        QVERIFY(tmp.isValid());
        const QString dir = tmp.filePath(QStringLiteral("nested/run"));

        auto first = std::make_unique<SingleInstance>(dir);
        first->setHandler([](const InstanceRequest&) { return InstanceReply { 0, QStringLiteral("first"), {} }; });
        QVERIFY2(first->tryToRun(), qPrintable(first->errorString()));
        QVERIFY(first->isLocked());
        QVERIFY(first->isListening());
        QCOMPARE(modeOf(dir), 0700);
        QVERIFY(QFileInfo::exists(first->lockFilePath()));
        QCOMPARE(first->socketPath(), dir + QStringLiteral("/quirepad.sock"));
        QVERIFY(QFileInfo(first->socketPath()).exists());

        SingleInstance second(dir);
        QVERIFY(!second.tryToRun());
        QVERIFY(!second.isLocked());
        QVERIFY(!second.isListening());
        QVERIFY2(second.errorString().isEmpty(), qPrintable(second.errorString()));

        // The refused start left the first instance reachable.
        {
            ForwardCall call(InstanceRequest {}, dir);
            QVERIFY(call.serveUntilFinished());
            QVERIFY(call.reply());
            QCOMPARE(call.reply()->out, QStringLiteral("first"));
        }

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
        const QString socketPath = dir + QStringLiteral("/quirepad.sock");
        QVERIFY(makeStaleSocketFile(socketPath));
        QVERIFY(QFileInfo::exists(socketPath));
        QVERIFY(!SingleInstance::forward(InstanceRequest {}, dir, 5000));

        SingleInstance instance(dir);
        instance.setHandler([](const InstanceRequest&) { return InstanceReply { 5, {}, {} }; });
        QVERIFY2(instance.tryToRun(), qPrintable(instance.errorString()));
        QVERIFY2(instance.isListening(), qPrintable(instance.errorString()));

        ForwardCall call(InstanceRequest {}, dir);
        QVERIFY(call.serveUntilFinished());
        QVERIFY(call.reply());
        QCOMPARE(call.reply()->status, 5);
    }

    void lockOfADeadProcessIsRemoved()
    {
        QTemporaryDir tmp;
        const QString dir = makePrivateDir(tmp, QStringLiteral("run"));
        QVERIFY(!dir.isEmpty());
        const QList<QByteArray> lines = realLockFileLines(tmp);
        QVERIFY(lines.size() >= 3);
        QCOMPARE(lines[0].toLongLong(), qint64(QCoreApplication::applicationPid()));
        const QString lockPath = dir + QStringLiteral("/quirepad.lock");

        // A live owner keeps the lock however old the file is.
        QVERIFY(writeLockFile(
            lockPath, lines, QCoreApplication::applicationPid(), QDateTime::currentDateTime().addSecs(-3600)));
        {
            SingleInstance instance(dir);
            QVERIFY(!instance.tryToRun());
            QVERIFY(QFileInfo::exists(lockPath));
        }

        const pid_t dead = deadPid();
        QVERIFY(dead > 0);
        QVERIFY(writeLockFile(lockPath, lines, dead, QDateTime::currentDateTime()));
        SingleInstance instance(dir);
        QVERIFY2(instance.tryToRun(), qPrintable(instance.errorString()));
        QVERIFY(instance.isListening());
        QLockFile probe(lockPath);
        qint64 owner = 0;
        QVERIFY(probe.getLockInfo(&owner, nullptr, nullptr));
        QCOMPARE(owner, qint64(QCoreApplication::applicationPid()));
    }

    void unusableSocketPathKeepsTheLock()
    {
        // A socket address holds at most 107 bytes: the lock is taken, but
        // nobody can be served.
        QTemporaryDir tmp;
        const QString dir = tmp.filePath(QString(120, QLatin1Char('d')));
        SingleInstance instance(dir);
        QVERIFY(instance.tryToRun());
        QVERIFY(instance.isLocked());
        QVERIFY(!instance.isListening());
        QVERIFY(!instance.errorString().isEmpty());

        SingleInstance second(dir);
        QVERIFY(!second.tryToRun());
        QVERIFY(!SingleInstance::forward(sampleRequest(), dir, 5000));
    }

    // --- forwarding ------------------------------------------------------

    void forwardReachesTheRunningInstance_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QStringList>("arguments");

        QTest::newRow("command") << int(InstanceRequest::Kind::Command) << QStringList { "print", "Grüße", "日本語" };
        QTest::newRow("open") << int(InstanceRequest::Kind::Open) << QStringList { "/tmp/ä b.pdf", "rel/🖨.ps" };
    }

    void forwardReachesTheRunningInstance()
    {
        QFETCH(int, kind);
        QFETCH(QStringList, arguments);

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

        const InstanceRequest request { InstanceRequest::Kind(kind), arguments, QStringLiteral("/home/ü/Документы") };
        ForwardCall call(request, dir);
        QVERIFY(call.serveUntilFinished());

        QVERIFY(call.reply());
        QCOMPARE(call.reply()->status, 7);
        QCOMPARE(call.reply()->out, QStringLiteral("Ausgabe ✓\n"));
        QCOMPARE(call.reply()->err, QStringLiteral("warnung: ß\n"));
        QVERIFY(received);
        QCOMPARE(*received, request);
        QVERIFY(onMainThread);
        QTRY_COMPARE(instance.activeConnections(), 0);
    }

    void forwardWithoutHandlerGetsAnError()
    {
        QTemporaryDir tmp;
        const QString dir = tmp.filePath(QStringLiteral("run"));
        SingleInstance instance(dir);
        QVERIFY(instance.tryToRun());

        ForwardCall call(InstanceRequest {}, dir);
        QVERIFY(call.serveUntilFinished());
        QVERIFY(call.reply());
        QVERIFY(call.reply()->status != 0);
        QVERIFY(!call.reply()->err.isEmpty());
    }

    void nestedEventLoopInHandlerKeepsServingOthers()
    {
        QTemporaryDir tmp;
        const QString dir = tmp.filePath(QStringLiteral("run"));
        SingleInstance instance(dir);
        bool fastDoneWhileSlowRan = false;
        std::unique_ptr<ForwardCall> fast;
        instance.setHandler([&](const InstanceRequest& request) {
            if (request.arguments.value(0) != QLatin1String("slow"))
                return InstanceReply { 0, QStringLiteral("fast"), {} };
            // While this request waits in a nested event loop, a second
            // client comes and must get its answer.
            fast = std::make_unique<ForwardCall>(
                InstanceRequest { InstanceRequest::Kind::Command, { "fast" }, "/" }, dir);
            QEventLoop loop;
            QTimer poll;
            QElapsedTimer clock;
            clock.start();
            connect(&poll, &QTimer::timeout, &loop, [&] {
                if (fast->isFinished() || clock.elapsed() > 15000)
                    loop.quit();
            });
            poll.start(5);
            loop.exec();
            fastDoneWhileSlowRan = fast->isFinished();
            return InstanceReply { 0, QStringLiteral("slow"), {} };
        });
        QVERIFY(instance.tryToRun());

        ForwardCall slow(InstanceRequest { InstanceRequest::Kind::Command, { "slow" }, "/" }, dir, 20000);
        QVERIFY(slow.serveUntilFinished(20000));

        QVERIFY(fast);
        QVERIFY(fastDoneWhileSlowRan);
        QVERIFY(fast->reply());
        QCOMPARE(fast->reply()->out, QStringLiteral("fast"));
        QVERIFY(slow.reply());
        QCOMPARE(slow.reply()->out, QStringLiteral("slow"));
    }

    void slowHandlerOutlastsTheIdleTimeout()
    {
        QTemporaryDir tmp;
        const QString dir = tmp.filePath(QStringLiteral("run"));
        SingleInstance instance(dir);
        instance.setIdleTimeout(std::chrono::milliseconds(50));
        instance.setHandler([](const InstanceRequest&) {
            QTest::qWait(400);
            return InstanceReply { 0, QStringLiteral("done"), {} };
        });
        QVERIFY(instance.tryToRun());

        ForwardCall call(sampleRequest(), dir);
        QVERIFY(call.serveUntilFinished());
        QVERIFY(call.reply());
        QCOMPARE(call.reply()->out, QStringLiteral("done"));
    }

    void clientGivingUpWhileTheHandlerRuns()
    {
        QTemporaryDir tmp;
        const QString dir = tmp.filePath(QStringLiteral("run"));
        SingleInstance instance(dir);
        int handled = 0;
        std::unique_ptr<ForwardCall> impatient;
        instance.setHandler([&](const InstanceRequest& request) {
            ++handled;
            if (request.arguments.value(0) == QLatin1String("impatient")) {
                // Waits until the client has given up and gone.
                QElapsedTimer clock;
                clock.start();
                while (!impatient->isFinished() && clock.elapsed() < 10000)
                    QTest::qWait(10);
                QTest::qWait(50);
            }
            return InstanceReply { 0, request.arguments.value(0), {} };
        });
        QVERIFY(instance.tryToRun());

        quirepad::test::LogCapture log;
        impatient = std::make_unique<ForwardCall>(
            InstanceRequest { InstanceRequest::Kind::Command, { "impatient" }, "/" }, dir, 200);
        QVERIFY(impatient->serveUntilFinished());
        QVERIFY(!impatient->reply());
        QCOMPARE(log.count(QStringLiteral("timed out")), 1);
        QTRY_COMPARE(instance.activeConnections(), 0);

        ForwardCall next(InstanceRequest { InstanceRequest::Kind::Command, { "next" }, "/" }, dir);
        QVERIFY(next.serveUntilFinished());
        QVERIFY(next.reply());
        QCOMPARE(next.reply()->out, QStringLiteral("next"));
        QCOMPARE(handled, 2);
    }

    void instanceDestroyedWhileAHandlerRuns()
    {
        QTemporaryDir tmp;
        const QString dir = tmp.filePath(QStringLiteral("run"));
        auto instance = std::make_unique<SingleInstance>(dir);
        instance->setHandler([&](const InstanceRequest&) {
            QTimer::singleShot(0, this, [&] { instance.reset(); });
            QElapsedTimer clock;
            clock.start();
            while (instance && clock.elapsed() < 5000)
                QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            return InstanceReply { 3, QStringLiteral("late"), {} };
        });
        QVERIFY(instance->tryToRun());

        ForwardCall call(InstanceRequest {}, dir);
        QVERIFY(call.serveUntilFinished());
        QVERIFY(!instance);
        QVERIFY(call.reply());
        QCOMPARE(call.reply()->status, 3);
        QCOMPARE(call.reply()->out, QStringLiteral("late"));
        // The detached connection deletes itself once it has answered.
        QTest::qWait(50);
    }

    void forwardWithoutInstanceIsNull_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::newRow("no runtime directory") << "missing";
        QTest::newRow("empty runtime directory") << "empty";
        QTest::newRow("socket file nobody listens on") << "stale socket";
        QTest::newRow("instance locked but not listening") << "lock only";
    }

    void forwardWithoutInstanceIsNull()
    {
        QFETCH(QString, setup);

        QTemporaryDir tmp;
        QString dir = tmp.filePath(QStringLiteral("run"));
        std::unique_ptr<QLockFile> lock;
        if (setup != QLatin1String("missing")) {
            dir = makePrivateDir(tmp, QStringLiteral("run"));
            QVERIFY(!dir.isEmpty());
        }
        if (setup == QLatin1String("stale socket"))
            QVERIFY(makeStaleSocketFile(dir + QStringLiteral("/quirepad.sock")));
        if (setup == QLatin1String("lock only")) {
            lock = std::make_unique<QLockFile>(dir + QStringLiteral("/quirepad.lock"));
            QVERIFY(lock->tryLock(0));
        }

        QElapsedTimer clock;
        clock.start();
        QVERIFY(!SingleInstance::forward(sampleRequest(), dir, 30000));
        // Far below the timeout: nobody to wait for.
        QVERIFY2(clock.elapsed() < 10000, qPrintable(QString::number(clock.elapsed())));
        if (setup == QLatin1String("missing"))
            QVERIFY(!QFileInfo::exists(dir));
    }

    void forwardTimesOutOnASilentServer()
    {
        QTemporaryDir tmp;
        const QString dir = makePrivateDir(tmp, QStringLiteral("run"));
        QVERIFY(!dir.isEmpty());
        // A server that accepts (in the kernel's backlog) but never answers.
        QLocalServer silent;
        QVERIFY(silent.listen(dir + QStringLiteral("/quirepad.sock")));

        quirepad::test::LogCapture log;
        QElapsedTimer clock;
        clock.start();
        QVERIFY(!SingleInstance::forward(sampleRequest(), dir, 300));
        QVERIFY(clock.elapsed() >= 250);
        QCOMPARE(log.count(QStringLiteral("timed out")), 1);
    }

    void brokenReplyIsNull()
    {
        QTemporaryDir tmp;
        const QString dir = makePrivateDir(tmp, QStringLiteral("run"));
        QVERIFY(!dir.isEmpty());
        QLocalServer server;
        QVERIFY(server.listen(dir + QStringLiteral("/quirepad.sock")));
        connect(&server, &QLocalServer::newConnection, this, [&server] {
            QLocalSocket* socket = server.nextPendingConnection();
            socket->write(header("QPAD", 9, 0));
            socket->disconnectFromServer();
        });

        quirepad::test::LogCapture log;
        ForwardCall call(sampleRequest(), dir);
        QVERIFY(call.serveUntilFinished());
        QVERIFY(!call.reply());
        QCOMPARE(log.count(QStringLiteral("broken reply")), 1);
    }

    // --- hostile clients and places --------------------------------------

    void hostileClientIsDropped_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("closeAfterWriting");

        QTest::newRow("garbage") << QByteArray("garbage garbage garbage") << false;
        QTest::newRow("huge length") << header("QPAD", 1, 0xffffffffu) << false;
        QTest::newRow("unknown version") << header("QPAD", 7, 4) + "abcd" << false;
        QTest::newRow("malformed CBOR") << InstanceMessage::frame("\xbf\x61") << false;
        QTest::newRow("wrong shape") << InstanceMessage::frame(cbor(with(requestMap(), "kind", 1))) << false;
        QTest::newRow("half a frame, then gone") << InstanceMessage::encode(sampleRequest()).left(20) << true;
        QTest::newRow("nothing, then gone") << QByteArray() << true;
    }

    void hostileClientIsDropped()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, closeAfterWriting);

        QTemporaryDir tmp;
        const QString dir = tmp.filePath(QStringLiteral("run"));
        SingleInstance instance(dir);
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
        if (closeAfterWriting)
            client.disconnectFromServer();
        else
            QTRY_COMPARE_WITH_TIMEOUT(client.state(), QLocalSocket::UnconnectedState, 5000);
        QTRY_COMPARE(instance.activeConnections(), 0);
        QCOMPARE(handled, 0);

        // The next client is served as usual.
        ForwardCall call(sampleRequest(), dir);
        QVERIFY(call.serveUntilFinished());
        QVERIFY(call.reply());
        QCOMPARE(call.reply()->out, sampleRequest().arguments.join(QLatin1Char(' ')));
        QCOMPARE(handled, 1);
    }

    void idleClientIsDropped()
    {
        QTemporaryDir tmp;
        SingleInstance instance(tmp.filePath(QStringLiteral("run")));
        instance.setIdleTimeout(std::chrono::milliseconds(200));
        QVERIFY(instance.tryToRun());

        quirepad::test::LogCapture log;
        QLocalSocket client;
        client.connectToServer(instance.socketPath());
        QVERIFY(client.waitForConnected(5000));
        client.write(InstanceMessage::encode(sampleRequest()).left(12));
        QVERIFY(client.flush());
        QTRY_COMPARE(instance.activeConnections(), 1);
        QTRY_COMPARE_WITH_TIMEOUT(client.state(), QLocalSocket::UnconnectedState, 5000);
        QCOMPARE(instance.activeConnections(), 0);
        QCOMPARE(log.count(QStringLiteral("idle")), 1);
    }

    void unsafeRuntimeDirIsRefused_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("error");

        QTest::newRow("mode 0777") << "0777"
                                   << "accessible to other users";
        QTest::newRow("mode 0750") << "0750"
                                   << "accessible to other users";
        QTest::newRow("mode 0701") << "0701"
                                   << "accessible to other users";
        QTest::newRow("owned by another user") << "foreign"
                                               << "not by this user";
        QTest::newRow("symbolic link") << "symlink"
                                       << "not a directory";
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
        QVERIFY(!instance.isListening());
        QVERIFY2(instance.errorString().contains(error), qPrintable(instance.errorString()));
        QVERIFY(!QFileInfo::exists(real + QStringLiteral("/quirepad.lock")));
        QCOMPARE(log.count(error), 1);

        QVERIFY(!SingleInstance::forward(sampleRequest(), dir, 2000));
        QCOMPARE(log.count(error), 2);
        QTest::qWait(50);
        QCOMPARE(baited.count(), 0);
        QVERIFY(!bait.hasPendingConnections());
    }
};

QUIREPAD_REGISTER_TEST(SingleInstanceTest);
#include "tst_singleinstance.moc"
