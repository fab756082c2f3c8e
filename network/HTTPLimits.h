#pragma once

#include <QtGlobal>

#include <chrono>

namespace quirepad {

// Bounds on what one client may make the server hold. Requests beyond them
// are refused; a connection that makes no progress for idleTimeout closes.
struct HTTPLimits {
    qsizetype maxHeadBytes = 64 * 1024;
    qint64 maxBodyBytes = 16 * 1024 * 1024;
    std::chrono::milliseconds idleTimeout{30000};
    int maxConnections = 256;
};

} // namespace quirepad
