#include "capture/CaptureLog.h"

Q_LOGGING_CATEGORY(lcCapture, "quirepad.capture", QtInfoMsg)
Q_LOGGING_CATEGORY(lcCaptureScript, "quirepad.capture.script", QtInfoMsg)
