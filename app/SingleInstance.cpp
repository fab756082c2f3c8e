#include "SingleInstance.h"

#include "foundation/GlobalEnv.h"
#include "foundation/UserFolders.h"
#include "foundation/safefile.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QLockFile>
#include <QPointer>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <exception>
#include <limits>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcInstance, "quirepad.instance", QtInfoMsg)

namespace quirepad {

namespace {

const QString kLockFileName = QStringLiteral("quirepad.lock");
const QString kSocketName = QStringLiteral("quirepad.sock");

// Sockets are read in slices of this size, so one connection never makes
// the server buffer more than a frame and a slice.
constexpr qint64 kReadSlice = 64 * 1024;

// The user id of the process at the other end of a connected local socket.
std::optional<uid_t> peerUid(qintptr descriptor)
{
    struct ucred credentials = {};
    socklen_t length = sizeof credentials;
    if (descriptor < 0 || ::getsockopt(int(descriptor), SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
        return std::nullopt;
    return credentials.uid;
}

QString joinPath(const QString& dir, const QString& name)
{
    return dir + QLatin1Char('/') + name;
}

} // namespace

// One client of the server, from its first byte to the reply. It reads a
// single request, answers it and closes; every connection has its own
// decoder and idle timer, so a handler running a nested event loop for one
// connection leaves the others working.
class SingleInstance::Connection : public QObject
{
public:
    Connection(QLocalSocket* socket, SingleInstance* owner)
        : QObject(owner)
        , m_owner(owner)
        , m_socket(socket)
    {
        m_socket->setParent(this);
        m_socket->setReadBufferSize(kReadSlice);

        m_idleTimer.setSingleShot(true);
        m_idleTimer.setInterval(owner->m_idleTimeout);
        connect(&m_idleTimer, &QTimer::timeout, this, &Connection::dropIdle);
        connect(m_socket, &QLocalSocket::readyRead, this, &Connection::readAvailable);
        connect(m_socket, &QLocalSocket::disconnected, this, &Connection::peerClosed);

        m_idleTimer.start();
    }

    bool isBusy() const { return m_busy; }
    bool isFinished() const { return m_done; }

private:
    void readAvailable()
    {
        if (m_busy || m_done)
            return;
        m_idleTimer.start();
        while (m_socket->bytesAvailable() > 0) {
            const QByteArray slice = m_socket->read(kReadSlice);
            if (slice.isEmpty())
                break;
            m_decoder.feed(slice);
            if (std::optional<InstanceRequest> request = m_decoder.takeRequest()) {
                serve(*request);
                return;
            }
            if (m_decoder.hasError()) {
                qCWarning(lcInstance) << "dropping a connection that sent a broken request:" << m_decoder.errorString();
                m_socket->abort();
                finish();
                return;
            }
        }
    }

    void serve(const InstanceRequest& request)
    {
        m_busy = true;
        m_idleTimer.stop();
        const InstanceReply reply = m_owner
            ? m_owner->handle(request)
            : InstanceReply { InstanceReply::unavailableStatus, {},
                  QStringLiteral("quirepad: the running Quirepad is shutting down; try again\n") };
        m_busy = false;

        QByteArray frame = InstanceMessage::encode(reply);
        if (frame.isEmpty()) {
            qCWarning(lcInstance) << "reply too large to send back";
            frame = InstanceMessage::encode(
                InstanceReply { 1, {}, QStringLiteral("quirepad: the reply is too large to forward\n") });
        }
        if (m_socket->state() == QLocalSocket::ConnectedState) {
            m_socket->write(frame);
            m_socket->disconnectFromServer(); // closes once the reply is written
        }
        if (m_socket->state() == QLocalSocket::UnconnectedState) {
            finish();
            return;
        }
        if (!m_done)
            m_idleTimer.start(); // a peer that never reads its reply
    }

    void peerClosed()
    {
        // While the handler runs the connection stays: serve() still
        // needs it when the handler returns.
        if (!m_busy)
            finish();
    }

    void dropIdle()
    {
        if (m_busy || m_done)
            return;
        qCWarning(lcInstance) << "dropping a connection idle for" << m_idleTimer.interval() << "ms";
        m_socket->abort();
        finish();
    }

    void finish()
    {
        if (m_done)
            return;
        m_done = true;
        m_idleTimer.stop();
        deleteLater();
    }

    QPointer<SingleInstance> m_owner;
    QLocalSocket* m_socket; // child
    QTimer m_idleTimer;
    InstanceMessageDecoder m_decoder;
    bool m_busy = false;
    bool m_done = false;
};

QString SingleInstance::defaultRuntimeDir()
{
    const QString runtime = UserFolders::current().runtimeDir;
    if (!runtime.isEmpty())
        return joinPath(runtime, QStringLiteral("quirepad"));
    // No runtime folder: a private one in the cache, never a guessable name
    // in a folder every user can write.
    return joinPath(QDir::cleanPath(GlobalEnv::instance().value(QStringLiteral("APP_CACHES")).toString()),
                    QStringLiteral("run"));
}

SingleInstance::SingleInstance(const QString& runtimeDir, QObject* parent)
    : QObject(parent)
    , m_runtimeDir(QDir::cleanPath(runtimeDir))
{
}

SingleInstance::~SingleInstance()
{
    // A connection whose handler is still running (a nested event loop
    // under this destructor) must outlive this object: it finishes its
    // reply and deletes itself.
    const QObjectList children = this->children();
    for (QObject* child : children) {
        if (auto* connection = dynamic_cast<Connection*>(child); connection && connection->isBusy())
            connection->setParent(nullptr);
    }
    // Stop listening before unlocking: once the lock is free a new
    // instance may put its own socket where ours was.
    m_server.reset();
    m_lock.reset();
}

QString SingleInstance::socketPath() const
{
    return joinPath(m_runtimeDir, kSocketName);
}

QString SingleInstance::lockFilePath() const
{
    return joinPath(m_runtimeDir, kLockFileName);
}

bool SingleInstance::isLocked() const
{
    return m_lock && m_lock->isLocked();
}

bool SingleInstance::isListening() const
{
    return m_server && m_server->isListening();
}

bool SingleInstance::tryToRun()
{
    if (isLocked())
        return true;
    m_error.clear();

    QString reason;
    if (!ensure_private_dir(m_runtimeDir, &reason)) {
        m_error = reason;
        qCWarning(lcInstance).noquote() << "refusing to run as the single instance:" << reason;
        return false;
    }

    auto lock = std::make_unique<QLockFile>(lockFilePath());
    // The lock lasts as long as the program: only a dead owner makes it
    // stale, never its age.
    lock->setStaleLockTime(0);
    if (!lock->tryLock(0)) {
        if (lock->error() == QLockFile::LockFailedError) {
            qint64 pid = 0;
            lock->getLockInfo(&pid, nullptr, nullptr);
            qCInfo(lcInstance) << "another instance runs, pid" << pid;
            return false;
        }
        m_error = QStringLiteral("cannot create lock file %1").arg(lockFilePath());
        qCWarning(lcInstance).noquote() << m_error;
        return false;
    }
    m_lock = std::move(lock);

    // Holding the lock, any socket file left here belongs to a dead instance.
    QLocalServer::removeServer(socketPath());
    auto server = std::make_unique<QLocalServer>();
    server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server->listen(socketPath())) {
        m_error = QStringLiteral("cannot listen on %1: %2").arg(socketPath(), server->errorString());
        qCWarning(lcInstance).noquote() << m_error << "- later starts will not reach this instance";
        return true;
    }
    connect(server.get(), &QLocalServer::newConnection, this, &SingleInstance::acceptConnections);
    m_server = std::move(server);
    qCDebug(lcInstance) << "listening on" << socketPath();
    return true;
}

int SingleInstance::activeConnections() const
{
    int count = 0;
    for (const QObject* child : children()) {
        const auto* connection = dynamic_cast<const Connection*>(child);
        count += connection && !connection->isFinished() ? 1 : 0;
    }
    return count;
}

void SingleInstance::setHandler(Handler handler)
{
    m_handler = std::move(handler);
}

void SingleInstance::setIdleTimeout(std::chrono::milliseconds timeout)
{
    m_idleTimeout = timeout;
}

void SingleInstance::acceptConnections()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        const std::optional<uid_t> uid = peerUid(socket->socketDescriptor());
        if (uid != ::geteuid()) {
            qCWarning(lcInstance) << "refusing a connection from uid" << (uid ? qint64(*uid) : -1);
            socket->abort();
            socket->deleteLater();
            continue;
        }
        new Connection(socket, this); // owned by this; deletes itself when done
    }
}

InstanceReply SingleInstance::handle(const InstanceRequest& request) const
{
    if (!m_handler)
        return { InstanceReply::unavailableStatus, {},
            QStringLiteral("quirepad: the running Quirepad takes no requests yet; try again\n") };
    // A copy: the handler may replace itself, or this object may go away,
    // while it runs.
    const Handler handler = m_handler;
    try {
        return handler(request);
    } catch (const std::exception& e) {
        qCWarning(lcInstance) << "request failed:" << e.what();
        return { 1, {}, QStringLiteral("quirepad: %1\n").arg(QString::fromLocal8Bit(e.what())) };
    } catch (...) {
        qCWarning(lcInstance) << "request failed with an unknown exception";
        return { 1, {}, QStringLiteral("quirepad: internal error\n") };
    }
}

ForwardResult SingleInstance::forward(
    const InstanceRequest& request, const QString& runtimeDir, const ForwardOptions& options)
{
    const QString dir = QDir::cleanPath(runtimeDir);
    QString reason;
    switch (inspect_private_dir(dir, &reason)) {
    case PrivateDirState::Missing:
        qCDebug(lcInstance) << "no runtime directory" << dir << "- no instance runs";
        return {};
    case PrivateDirState::Unsafe:
        qCWarning(lcInstance).noquote() << "not forwarding to the running instance:" << reason;
        return {};
    case PrivateDirState::Safe:
        break;
    }

    const QByteArray frame = InstanceMessage::encode(request);
    if (frame.isEmpty()) {
        qCWarning(lcInstance) << "request too large to forward";
        return {};
    }

    const auto unanswered = [](const QString& problem) {
        // The caller tells its user; this is for the log.
        qCInfo(lcInstance).noquote() << "no answer from the running instance:" << problem;
        return ForwardResult { ForwardResult::Outcome::Unanswered, {}, problem };
    };

    QLocalSocket socket;
    socket.connectToServer(joinPath(dir, kSocketName));
    if (!socket.waitForConnected(int(qMin<qint64>(options.connectTimeout.count(), std::numeric_limits<int>::max())))) {
        const QLocalSocket::LocalSocketError error = socket.error();
        if (error == QLocalSocket::ServerNotFoundError || error == QLocalSocket::ConnectionRefusedError) {
            qCDebug(lcInstance) << "no instance listens in" << dir;
            return {};
        }
        return unanswered(QStringLiteral("it does not take the connection (%1)").arg(socket.errorString()));
    }
    if (peerUid(socket.socketDescriptor()) != ::geteuid()) {
        qCWarning(lcInstance) << "the process listening in" << dir << "belongs to another user";
        return {};
    }

    // From here on the instance may have the request: the caller must not
    // do the work too, so there is no time limit while the connection lasts.
    QElapsedTimer clock;
    clock.start();
    bool noticePending = bool(options.waiting);
    // One step of the exchange (bytes written, bytes arrived); false when
    // the connection ended or failed.
    const auto await = [&](const std::function<bool(int)>& step) {
        for (;;) {
            const qint64 untilNotice
                = noticePending ? qMax<qint64>(0, options.noticeAfter.count() - clock.elapsed()) : -1;
            if (step(int(qMin<qint64>(untilNotice, std::numeric_limits<int>::max()))))
                return true;
            if (socket.state() != QLocalSocket::ConnectedState || untilNotice < 0)
                return false;
            if (clock.elapsed() >= options.noticeAfter.count()) {
                noticePending = false;
                options.waiting();
            }
        }
    };

    socket.write(frame);
    while (socket.bytesToWrite() > 0) {
        if (!await([&](int ms) { return socket.waitForBytesWritten(ms); }))
            return unanswered(
                QStringLiteral("the connection ended while the request was sent (%1)").arg(socket.errorString()));
    }

    InstanceMessageDecoder decoder;
    for (;;) {
        decoder.feed(socket.readAll());
        if (std::optional<InstanceReply> reply = decoder.takeReply())
            return { ForwardResult::Outcome::Answered, *reply, {} };
        if (decoder.hasError())
            return unanswered(QStringLiteral("its answer is broken (%1)").arg(decoder.errorString()));
        if (socket.state() != QLocalSocket::ConnectedState)
            return unanswered(QStringLiteral("it closed the connection without answering"));
        // Data arrived, or the peer closed: the next pass reads whatever
        // came before the close.
        if (!await([&](int ms) { return socket.waitForReadyRead(ms); })
            && socket.state() == QLocalSocket::ConnectedState)
            return unanswered(QStringLiteral("waiting for its answer failed (%1)").arg(socket.errorString()));
    }
}

} // namespace quirepad
