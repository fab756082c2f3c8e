#pragma once

#include "InstanceMessage.h"

#include <QLoggingCategory>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>

class QLocalServer;
class QLockFile;

// Locking the instance, the local socket and forwarded requests.
Q_DECLARE_LOGGING_CATEGORY(lcInstance)

namespace quirepad {

// How a request sent to the running instance fared.
struct ForwardResult {
    enum class Outcome {
        NoInstance, // nobody listens; nothing was sent, the caller may do the work
        Answered, // reply holds the instance's answer
        // An instance holds the socket, or has the request, but no answer
        // came back: the work may still be done there, so never by the caller.
        Unanswered,
    };

    Outcome outcome = Outcome::NoInstance;
    InstanceReply reply; // Answered
    QString problem; // Unanswered: why, as a phrase

    bool answered() const { return outcome == Outcome::Answered; }
};

struct ForwardOptions {
    // How long the instance may take to accept the connection.
    std::chrono::milliseconds connectTimeout { std::chrono::seconds(10) };
    // There is no limit on the answer while the connection stays open;
    // waiting (when set) is called once the answer has taken this long.
    std::chrono::milliseconds noticeAfter { std::chrono::seconds(3) };
    std::function<void()> waiting;
};

// Keeps quirepad to one running instance per user. The first process to
// call tryToRun() holds a lock file in a private runtime directory and
// listens on a local socket beside it; later starts forward their request
// over that socket and print the reply instead of doing the work twice.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    using Handler = std::function<InstanceReply(const InstanceRequest&)>;

    static constexpr std::chrono::milliseconds defaultIdleTimeout { std::chrono::seconds(30) };

    // $XDG_RUNTIME_DIR/quirepad, or <temp>/quirepad-<uid> without it. Only
    // computes the path; tryToRun() creates the directory (mode 0700).
    static QString defaultRuntimeDir();

    explicit SingleInstance(const QString& runtimeDir = defaultRuntimeDir(), QObject* parent = nullptr);
    ~SingleInstance() override;

    // Takes the instance lock and starts listening for other starts.
    // Answers false when another live process holds the lock, and also
    // when the runtime directory is unsafe (see errorString()). A lock left
    // by a dead process and a socket file nobody listens on are removed.
    bool tryToRun();

    bool isLocked() const;
    bool isListening() const;
    // Clients connected right now (served or waiting for their request).
    int activeConnections() const;
    // Why tryToRun() refused or could not listen; empty otherwise.
    QString errorString() const { return m_error; }

    QString runtimeDir() const { return m_runtimeDir; }
    QString socketPath() const;
    QString lockFilePath() const;

    // Called on the main thread for every request that arrives; its reply
    // goes back to the forwarding process. It may run a nested event loop:
    // other connections are served meanwhile.
    void setHandler(Handler handler);

    // How long a connection may stay silent before it is dropped.
    void setIdleTimeout(std::chrono::milliseconds timeout);

    // Sends a request to the instance that runs for runtimeDir and waits
    // for its reply, without an event loop, for as long as the connection
    // stays open. NoInstance when nobody listens (no socket, or the
    // connection is refused), and also, logged, when the directory is
    // unsafe or the listener is another user's: nothing was sent then.
    // Unanswered, logged, when the instance does not accept the
    // connection in time, or the connection ends without a whole reply.
    static ForwardResult forward(const InstanceRequest& request, const QString& runtimeDir = defaultRuntimeDir(),
        const ForwardOptions& options = {});

private:
    class Connection;

    void acceptConnections();
    InstanceReply handle(const InstanceRequest& request) const;

    QString m_runtimeDir;
    std::unique_ptr<QLockFile> m_lock;
    std::unique_ptr<QLocalServer> m_server;
    Handler m_handler;
    std::chrono::milliseconds m_idleTimeout = defaultIdleTimeout;
    QString m_error;
};

} // namespace quirepad
