#pragma once

#include <QDateTime>
#include <QString>

namespace quirepad {

// A new random UUID in canonical upper-case form (36 characters).
QString generateUUID();

// An identifier unique within this process: the low 32 bits hold the time
// of the first call (seconds since 1970), the high 32 bits a counter that
// starts at 1. Call from one thread only.
qint64 generateID64();

// The current date and time formatted with a Unicode date pattern
// ("yyyy-MM-dd HH.mm"), in the user's locale and time zone.
QString todays_date(const QString& format);

// The same as todays_date: the date argument is accepted and deliberately
// not used, so a pattern always shows the moment of formatting.
QString format_date(const QDateTime& date, const QString& format);

} // namespace quirepad
