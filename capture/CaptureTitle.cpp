#include "capture/CaptureTitle.h"

#include "foundation/fileutil.h"

namespace quirepad {

namespace {
constexpr int kNameMax = 255;
// As long as ".pdf.title" but one extension, for fit_file_name to keep.
const QString kRoomSuffix = QStringLiteral(".xxxxxxxxx");
} // namespace

QString capture_file_stem(const QString& title)
{
    QString stem;
    stem.reserve(title.size());
    for (qsizetype i = 0; i < title.size(); ++i) {
        const QChar c = title.at(i);
        const char16_t u = c.unicode();
        if (u == u'/' || u == 0)
            continue;
        // C0, DEL and C1 controls, line and paragraph separators, and
        // format characters such as bidi overrides (which make a name read
        // other than it is).
        if (u < 0x20 || (u >= 0x7f && u <= 0x9f) || u == 0x2028 || u == 0x2029
            || c.category() == QChar::Other_Format) {
            stem += QLatin1Char(' ');
            continue;
        }
        if (c.isHighSurrogate() || c.isLowSurrogate()) {
            // Only whole pairs stay.
            if (c.isHighSurrogate() && i + 1 < title.size() && title.at(i + 1).isLowSurrogate()) {
                stem += c;
                stem += title.at(++i);
            }
            continue;
        }
        stem += c;
    }
    stem = stem.simplified();
    while (stem.startsWith(QLatin1Char('.')))
        stem.remove(0, 1);
    stem = stem.trimmed();
    if (stem.isEmpty())
        return QStringLiteral("Untitled");
    // fit_file_name keeps what follows the last dot: give it a stand-in
    // for the longest suffix the stem gets, then take that off again.
    const QString fitted = fit_file_name(stem + kRoomSuffix, kNameMax);
    stem = fitted.left(fitted.size() - kRoomSuffix.size()).trimmed();
    return stem.isEmpty() ? QStringLiteral("Untitled") : stem;
}

} // namespace quirepad
