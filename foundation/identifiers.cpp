#include "foundation/identifiers.h"

#include <QUuid>

#include <unicode/calendar.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/unistr.h>

#include <ctime>
#include <memory>

namespace quirepad {

QString generateUUID()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

qint64 generateID64()
{
    static quint64 node = 0;
    static quint64 counter = 1;
    if (node == 0)
        node = quint64(std::time(nullptr)) & 0xffffffffu;
    const quint64 id = node | (counter << 32);
    ++counter;
    return qint64(id);
}

QString todays_date(const QString& format)
{
    UErrorCode status = U_ZERO_ERROR;
    const icu::UnicodeString pattern(reinterpret_cast<const UChar*>(format.utf16()), int32_t(format.size()));
    icu::SimpleDateFormat formatter(pattern, icu::Locale::getDefault(), status);
    if (U_FAILURE(status))
        return {};
    icu::UnicodeString text;
    formatter.format(icu::Calendar::getNow(), text);
    return QString(reinterpret_cast<const QChar*>(text.getBuffer()), text.length());
}

QString format_date(const QDateTime& /*date*/, const QString& format)
{
    return todays_date(format);
}

} // namespace quirepad
