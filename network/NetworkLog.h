#pragma once

#include <QLoggingCategory>

// Diagnostics of the HTTP server and its connections.
Q_DECLARE_LOGGING_CATEGORY(lcHttp)
// Diagnostics of service discovery and the AirPrint record.
Q_DECLARE_LOGGING_CATEGORY(lcDnsSd)
