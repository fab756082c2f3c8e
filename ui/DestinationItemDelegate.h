#pragma once

#include <QStyledItemDelegate>

namespace quirepad {

// A destination in the list: its icon, its name and, smaller and dimmed
// underneath, its type in words.
class DestinationItemDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

} // namespace quirepad
