#include "network/NetworkLog.h"

Q_LOGGING_CATEGORY(lcHttp, "quirepad.http", QtInfoMsg)
Q_LOGGING_CATEGORY(lcDnsSd, "quirepad.dnssd", QtInfoMsg)
