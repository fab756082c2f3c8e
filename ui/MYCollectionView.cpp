#include "ui/MYCollectionView.h"

#include "ui/CollectionItemView.h"

#include <QFocusEvent>
#include <QKeyEvent>
#include <QTimer>
#include <QToolButton>

#include <algorithm>

namespace quirepad {

MYCollectionView::MYCollectionView(QWidget* parent)
    : QWidget(parent)
{
    setFocusPolicy(Qt::StrongFocus);
}

MYCollectionView::~MYCollectionView() = default;

void MYCollectionView::setContent(const QVariantList& items)
{
    setSelectionIndex(-1);
    m_views.clear();
    m_content = items;
    for (const QVariant& item : items) {
        auto view = std::make_unique<CollectionItemView>(item.toMap(), kCellSize, this);
        connect(view.get(), &CollectionItemView::triggered, this, &MYCollectionView::itemTriggered);
        connect(view.get(), &CollectionItemView::pressed, this, [this](CollectionItemView* pressedView) {
            setFocus(Qt::MouseFocusReason);
            setSelectionIndex(indexOfView(pressedView));
        });
        connect(view.get(), &CollectionItemView::doubleClicked, this, [this] {
            if (m_selection < 0)
                return;
            // Fired from the event loop, not from inside the mouse event.
            QTimer::singleShot(0, this, [this] { emit doubleAction(this); });
        });
        view->show();
        m_views.push_back(std::move(view));
    }
    layoutItems();
    if (hasFocus() && !m_views.empty())
        setSelectionIndex(0);
}

CollectionItemView* MYCollectionView::itemViewAt(int index) const
{
    return index >= 0 && index < count() ? m_views[size_t(index)].get() : nullptr;
}

int MYCollectionView::indexOfView(const CollectionItemView* view) const
{
    const auto found = std::find_if(m_views.begin(), m_views.end(), [view](const auto& v) { return v.get() == view; });
    return found == m_views.end() ? -1 : int(found - m_views.begin());
}

void MYCollectionView::setSelectionIndex(int index)
{
    if (index < -1 || index >= count())
        index = -1;
    if (index == m_selection)
        return;
    if (CollectionItemView* old = itemViewAt(m_selection))
        old->setSelected(false);
    m_selection = index;
    if (CollectionItemView* now = itemViewAt(m_selection))
        now->setSelected(true);
    emit selectionChanged(m_selection);
}

int MYCollectionView::rowLength() const
{
    return std::max(1, width() / kCellSize);
}

int MYCollectionView::indexForName(const QString&) const
{
    return -1;
}

int MYCollectionView::effectiveSelection() const
{
    if (m_views.empty())
        return -1;
    return m_selection < 0 ? 0 : m_selection;
}

bool MYCollectionView::keyDown(QKeyEvent* event)
{
    const int current = effectiveSelection();
    const int last = count() - 1;
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (CollectionItemView* view = itemViewAt(current)) {
            if (QToolButton* button = view->buttonWithTag(CollectionItemView::kButtonTag)) {
                button->click();
                return true;
            }
        }
        return false;
    case Qt::Key_Left:
        if (current > 0)
            setSelectionIndex(current - 1);
        return current >= 0;
    case Qt::Key_Right:
        if (current >= 0 && current < last)
            setSelectionIndex(current + 1);
        return current >= 0;
    case Qt::Key_Down:
        if (current >= 0)
            setSelectionIndex(std::min(current + rowLength(), last));
        return current >= 0;
    case Qt::Key_Up:
        if (current >= 0)
            setSelectionIndex(std::max(current - rowLength(), 0));
        return current >= 0;
    default:
        break;
    }
    const QString text = event->text();
    if (text.isEmpty() || !text.at(0).isPrint())
        return false;
    const int found = indexForName(text);
    if (found < 0)
        return false;
    setSelectionIndex(found);
    return true;
}

void MYCollectionView::keyPressEvent(QKeyEvent* event)
{
    if (keyDown(event))
        event->accept();
    else
        QWidget::keyPressEvent(event); // the standard handling: up to the window
}

void MYCollectionView::focusInEvent(QFocusEvent* event)
{
    QWidget::focusInEvent(event);
    if (!m_views.empty())
        setSelectionIndex(0);
}

void MYCollectionView::focusOutEvent(QFocusEvent* event)
{
    QWidget::focusOutEvent(event);
    setSelectionIndex(-1);
}

void MYCollectionView::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    layoutItems();
}

void MYCollectionView::layoutItems()
{
    const int columns = rowLength();
    for (int i = 0; i < count(); ++i)
        m_views[size_t(i)]->move((i % columns) * kCellSize, (i / columns) * kCellSize);
}

} // namespace quirepad
