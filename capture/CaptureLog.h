#pragma once

#include <QLoggingCategory>

// Loading and printing of captured pages.
Q_DECLARE_LOGGING_CATEGORY(lcCapture)
// Messages a captured page sends through window.ssbcallback().
Q_DECLARE_LOGGING_CATEGORY(lcCaptureScript)
