#pragma once

#include <QByteArray>
#include <QMarginsF>
#include <QPageLayout>
#include <QPageSize>
#include <QVariant>

namespace quirepad {

// Page settings of a capture, read from a property list (XML or binary):
//   PaperSize     a name ("A4", "Letter", also "iso-a4", "na-letter") or
//                 "{w, h}" in points
//   Orientation   0 portrait, 1 landscape
//   LeftMargin, RightMargin, TopMargin, BottomMargin   points
// Whatever is missing or unusable keeps its default: the locale's paper
// (Letter where US units are the norm, else A4), portrait, no margins.
struct PrintInfo
{
    QPageSize pageSize;
    QPageLayout::Orientation orientation = QPageLayout::Portrait;
    QMarginsF margins; // points

    static PrintInfo defaults();
    static PrintInfo fromPlist(const QByteArray& bytes);
    static PrintInfo fromMap(const QVariantMap& map);

    // A paper name or "{w, h}"; an invalid QPageSize when it is neither.
    static QPageSize parsePaperSize(const QString& text);

    QPageLayout pageLayout() const;
};

} // namespace quirepad
