#include "capture/PrintInfo.h"

#include "capture/CaptureLog.h"
#include "foundation/PlistReader.h"

#include <QLocale>
#include <QRegularExpression>
#include <QSizeF>

#include <cmath>

namespace quirepad {

namespace {

// Nothing printable is larger than this (200 inches); bigger values are
// taken for garbage.
constexpr double kMaxPoints = 200.0 * 72.0;

std::optional<double> number(const QVariant& value)
{
    bool ok = false;
    double n = 0;
    switch (value.typeId()) {
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Bool:
        n = value.toDouble(&ok);
        break;
    case QMetaType::QString:
        n = value.toString().trimmed().toDouble(&ok);
        break;
    default:
        return std::nullopt;
    }
    if (!ok || !std::isfinite(n))
        return std::nullopt;
    return n;
}

} // namespace

PrintInfo PrintInfo::defaults()
{
    PrintInfo info;
    info.pageSize = QPageSize(QLocale::system().measurementSystem() == QLocale::ImperialUSSystem ? QPageSize::Letter
                                                                                                  : QPageSize::A4);
    return info;
}

QPageSize PrintInfo::parsePaperSize(const QString& text)
{
    const QString name = text.trimmed();
    if (name.isEmpty() || name.size() > 64)
        return {};

    static const QRegularExpression pair(QStringLiteral("^\\{\\s*([-+0-9.eE]+)\\s*,\\s*([-+0-9.eE]+)\\s*\\}$"));
    const QRegularExpressionMatch m = pair.match(name);
    if (m.hasMatch()) {
        bool okW = false, okH = false;
        const double w = m.captured(1).toDouble(&okW);
        const double h = m.captured(2).toDouble(&okH);
        if (!okW || !okH || !std::isfinite(w) || !std::isfinite(h) || w < 1 || h < 1 || w > kMaxPoints || h > kMaxPoints)
            return {};
        // A known size under its own name when it is one.
        return QPageSize(QSizeF(w, h), QPageSize::Point, QString(), QPageSize::FuzzyMatch);
    }

    // "iso-a4", "na-letter", "jis-b5": the prefix names the family only.
    QString bare = name;
    bare.remove(QRegularExpression(QStringLiteral("^(iso|na|jis)[-_]"), QRegularExpression::CaseInsensitiveOption));
    for (int id = 0; id <= int(QPageSize::LastPageSize); ++id) {
        const auto sizeId = QPageSize::PageSizeId(id);
        if (sizeId == QPageSize::Custom)
            continue;
        if (QPageSize::key(sizeId).compare(bare, Qt::CaseInsensitive) == 0
            || QPageSize::name(sizeId).compare(name, Qt::CaseInsensitive) == 0)
            return QPageSize(sizeId);
    }
    return {};
}

PrintInfo PrintInfo::fromMap(const QVariantMap& map)
{
    PrintInfo info = defaults();

    const QVariant paper = map.value(QStringLiteral("PaperSize"));
    if (paper.typeId() == QMetaType::QString) {
        const QPageSize size = parsePaperSize(paper.toString());
        if (size.isValid())
            info.pageSize = size;
        else
            qCInfo(lcCapture).noquote() << "unknown paper size, using" << info.pageSize.name();
    }

    if (const auto o = number(map.value(QStringLiteral("Orientation"))); o && (*o == 0 || *o == 1))
        info.orientation = *o == 1 ? QPageLayout::Landscape : QPageLayout::Portrait;

    const auto margin = [&](const char* key) -> double {
        const auto n = number(map.value(QLatin1String(key)));
        return n && *n >= 0 && *n <= kMaxPoints ? *n : 0.0;
    };
    QMarginsF margins(margin("LeftMargin"), margin("TopMargin"), margin("RightMargin"), margin("BottomMargin"));
    // Margins that leave no room for the page's content are not margins.
    QSizeF paperSize = info.pageSize.size(QPageSize::Point);
    if (info.orientation == QPageLayout::Landscape)
        paperSize.transpose();
    if (margins.left() + margins.right() >= paperSize.width() - 1
        || margins.top() + margins.bottom() >= paperSize.height() - 1) {
        qCInfo(lcCapture) << "margins larger than the paper, using none";
        margins = QMarginsF();
    }
    info.margins = margins;
    return info;
}

PrintInfo PrintInfo::fromPlist(const QByteArray& bytes)
{
    if (bytes.isEmpty())
        return defaults();
    const std::optional<QVariant> value = PlistReader::fromData(bytes);
    if (!value || value->typeId() != QMetaType::QVariantMap) {
        qCInfo(lcCapture) << "page settings unreadable, using the defaults";
        return defaults();
    }
    return fromMap(value->toMap());
}

QPageLayout PrintInfo::pageLayout() const
{
    QPageLayout layout(pageSize, orientation, QMarginsF(), QPageLayout::Point, QMarginsF());
    layout.setMargins(margins);
    return layout;
}

} // namespace quirepad
