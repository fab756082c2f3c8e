#pragma once

#include <QVariantMap>
#include <QWidget>

class QLabel;
class QToolButton;

namespace quirepad {

// One cell of a MYCollectionView: the item's icon on a button (tag 100)
// above its title. Pressing the button triggers the item; a click elsewhere
// in the cell selects it, a double click asks the grid for its action.
class CollectionItemView : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kButtonTag = 100;
    static constexpr int kIconSize = 64;

    // item: the represented object, with the keys "title" and "icon".
    explicit CollectionItemView(const QVariantMap& item, int cellSize, QWidget* parent = nullptr);

    QVariantMap representedObject() const { return m_item; }
    QString title() const;
    // The child button carrying the tag, or nullptr.
    QToolButton* buttonWithTag(int tag) const;

    bool isSelected() const { return m_selected; }
    void setSelected(bool selected);

signals:
    void triggered(quirepad::CollectionItemView* view);
    void pressed(quirepad::CollectionItemView* view);
    void doubleClicked(quirepad::CollectionItemView* view);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;

private:
    QVariantMap m_item;
    QToolButton* m_button = nullptr; // child
    QLabel* m_title = nullptr;       // child
    bool m_selected = false;
};

} // namespace quirepad
