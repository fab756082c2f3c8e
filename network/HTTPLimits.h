#pragma once

#include <QtGlobal>

#include <chrono>

namespace quirepad {

// Bounds on what one client may make the server hold. Requests beyond them
// are refused; a connection that makes no progress for idleTimeout closes,
// and so does one whose request is not all there within requestTimeout
// (a client trickling a byte now and then holds no slot for long).
struct HTTPLimits {
    qsizetype maxHeadBytes = 64 * 1024;
    qint64 maxBodyBytes = 16 * 1024 * 1024;
    std::chrono::milliseconds idleTimeout{30000};
    std::chrono::milliseconds requestTimeout{60000};
    int maxConnections = 256;
};

} // namespace quirepad
