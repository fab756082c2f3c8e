#include "ui/DestinationItemDelegate.h"

#include "ui/DestinationListModel.h"

#include <QApplication>
#include <QPainter>

namespace quirepad {

namespace {
constexpr int kPadding = 6;
}

QSize DestinationItemDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const
{
    const int text = option.fontMetrics.height() * 2 + 2;
    return { option.rect.width(), std::max(text, option.decorationSize.height()) + 2 * kPadding };
}

void DestinationItemDelegate::paint(
    QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyleOptionViewItem background = option;
    initStyleOption(&background, index);
    background.text.clear();
    background.icon = QIcon();
    QStyle* style = option.widget ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &background, painter, option.widget);

    const QRect area = option.rect.adjusted(kPadding, kPadding, -kPadding, -kPadding);
    const QSize iconSize = option.decorationSize;
    const QRect iconRect(
        area.left(), area.top() + (area.height() - iconSize.height()) / 2, iconSize.width(), iconSize.height());
    const bool selected = option.state & QStyle::State_Selected;
    index.data(Qt::DecorationRole)
        .value<QIcon>()
        .paint(painter, iconRect, Qt::AlignCenter, selected ? QIcon::Selected : QIcon::Normal);

    const QRect textRect = area.adjusted(iconSize.width() + kPadding + 2, 0, 0, 0);
    const int line = option.fontMetrics.height();
    const int top = textRect.top() + (textRect.height() - 2 * line - 2) / 2;
    painter->save();
    const QPalette::ColorGroup group = option.state & QStyle::State_Enabled ? QPalette::Normal : QPalette::Disabled;
    QColor main = option.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);
    painter->setPen(main);
    const QString name
        = option.fontMetrics.elidedText(index.data(Qt::DisplayRole).toString(), Qt::ElideRight, textRect.width());
    painter->drawText(QRect(textRect.left(), top, textRect.width(), line), Qt::AlignLeft | Qt::AlignVCenter, name);
    QFont small = option.font;
    small.setPointSizeF(small.pointSizeF() * 0.88);
    painter->setFont(small);
    main.setAlphaF(0.65);
    painter->setPen(main);
    painter->drawText(QRect(textRect.left(), top + line + 2, textRect.width(), line), Qt::AlignLeft | Qt::AlignVCenter,
        index.data(DestinationListModel::TypeTitleRole).toString());
    painter->restore();
}

} // namespace quirepad
