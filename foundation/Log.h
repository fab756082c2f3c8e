#pragma once

#include <QLoggingCategory>

// Diagnostics of the runtime foundation; enable with
// QT_LOGGING_RULES="quirepad.*.debug=true".
Q_DECLARE_LOGGING_CATEGORY(lcFoundation)
Q_DECLARE_LOGGING_CATEGORY(lcProcess)
// Dialogs, notifications and the desktop session (file manager, power).
Q_DECLARE_LOGGING_CATEGORY(lcDesktop)
