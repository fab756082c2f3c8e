#pragma once

#include <QVariantList>
#include <QWidget>

#include <memory>
#include <vector>

namespace quirepad {

class CollectionItemView;

// A grid of item cells with a single selection, driven by keyboard and
// mouse: focus selects the first item, Return presses the selected item's
// button, the arrows move, typing selects by name (indexForName), and a
// double click fires the grid's action (doubleAction) on the next turn of
// the event loop.
class MYCollectionView : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kCellSize = 128;

    explicit MYCollectionView(QWidget* parent = nullptr);
    ~MYCollectionView() override;

    // One cell per item (a map with "title" and "icon"); clears the selection.
    void setContent(const QVariantList& items);
    QVariantList content() const { return m_content; }
    int count() const { return int(m_views.size()); }
    CollectionItemView* itemViewAt(int index) const;
    int indexOfView(const CollectionItemView* view) const;

    // -1 when nothing is selected.
    int selectionIndex() const { return m_selection; }
    void setSelectionIndex(int index);
    // How many cells fit across the view.
    int rowLength() const;

    // The index of the item the typed text names, or -1. The plain grid
    // knows no names.
    virtual int indexForName(const QString& text) const;

    // Handles one key as the grid does; answers whether it was used.
    bool keyDown(QKeyEvent* event);

signals:
    // An item's button was pressed (by the mouse or by Return).
    void itemTriggered(quirepad::CollectionItemView* view);
    // The grid's action, after a double click on a selected item.
    void doubleAction(quirepad::MYCollectionView* view);
    void selectionChanged(int index);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void layoutItems();
    // The selection, or the first item when there are items and none is selected.
    int effectiveSelection() const;

    QVariantList m_content;
    std::vector<std::unique_ptr<CollectionItemView>> m_views; // children of this view
    int m_selection = -1;
};

} // namespace quirepad
