#pragma once

#include "InstanceMessage.h"

#include <QLoggingCategory>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QLocalServer;
class QLockFile;

// Locking the instance, the local socket and forwarded requests.
Q_DECLARE_LOGGING_CATEGORY(lcInstance)

namespace quirepad {

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
    // for its reply, without an event loop. nullopt when no instance
    // listens (the caller then does the work itself), and also, logged,
    // when the directory is unsafe, the time runs out or the reply is
    // broken.
    static std::optional<InstanceReply> forward(
        const InstanceRequest& request, const QString& runtimeDir = defaultRuntimeDir(), int timeoutMs = 30000);

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
