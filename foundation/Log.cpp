#include "foundation/Log.h"

Q_LOGGING_CATEGORY(lcFoundation, "quirepad.foundation", QtInfoMsg)
Q_LOGGING_CATEGORY(lcProcess, "quirepad.process", QtInfoMsg)
Q_LOGGING_CATEGORY(lcDesktop, "quirepad.desktop", QtInfoMsg)
