#include "network/NetworkLog.h"

Q_LOGGING_CATEGORY(lcHttp, "quirepad.http", QtInfoMsg)
