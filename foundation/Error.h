#pragma once

#include <QString>

namespace quirepad {

// A failure described for the user: what went wrong, why, and what to do
// about it. The domain and code identify the failure for logs and callers.
struct Error {
    QString domain;
    int code = 0;
    QString description;
    QString failureReason;
    QString recoverySuggestion;
};

} // namespace quirepad
