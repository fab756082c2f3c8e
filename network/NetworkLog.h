#pragma once

#include <QLoggingCategory>

// Diagnostics of the HTTP server and its connections.
Q_DECLARE_LOGGING_CATEGORY(lcHttp)
