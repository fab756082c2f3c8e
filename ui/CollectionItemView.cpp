#include "ui/CollectionItemView.h"

#include <QApplication>
#include <QIcon>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

namespace quirepad {

namespace {

QIcon iconOf(const QVariantMap& item, const QWidget& widget)
{
    const QIcon icon = item.value(QStringLiteral("icon")).value<QIcon>();
    return icon.isNull() ? widget.style()->standardIcon(QStyle::SP_FileIcon) : icon;
}

} // namespace

CollectionItemView::CollectionItemView(const QVariantMap& item, int cellSize, QWidget* parent)
    : QWidget(parent)
    , m_item(item)
{
    setFixedSize(cellSize, cellSize);
    setAttribute(Qt::WA_Hover);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 10, 8, 6);
    layout->setSpacing(4);

    m_button = new QToolButton(this);
    m_button->setProperty("tag", kButtonTag);
    m_button->setIcon(iconOf(item, *this));
    m_button->setIconSize(QSize(kIconSize, kIconSize));
    m_button->setAutoRaise(true);
    m_button->setFocusPolicy(Qt::NoFocus);
    m_button->setToolTip(title());
    m_button->setAccessibleName(title());
    layout->addWidget(m_button, 0, Qt::AlignHCenter);

    m_title = new QLabel(this);
    m_title->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
    m_title->setWordWrap(true);
    // Wrapped over two lines at most; a longer title is elided.
    const QFontMetrics metrics(m_title->font());
    const int lineWidth = cellSize - 16;
    m_title->setText(metrics.elidedText(title(), Qt::ElideRight, lineWidth * 2 - metrics.averageCharWidth() * 3));
    m_title->setMaximumHeight(metrics.lineSpacing() * 2 + 2);
    m_title->setAttribute(Qt::WA_TransparentForMouseEvents);
    layout->addWidget(m_title, 1);

    connect(m_button, &QToolButton::clicked, this, [this] { emit triggered(this); });
}

QString CollectionItemView::title() const
{
    return m_item.value(QStringLiteral("title")).toString();
}

QToolButton* CollectionItemView::buttonWithTag(int tag) const
{
    for (QToolButton* button : findChildren<QToolButton*>())
        if (button->property("tag").toInt() == tag)
            return button;
    return nullptr;
}

void CollectionItemView::setSelected(bool selected)
{
    if (m_selected == selected)
        return;
    m_selected = selected;
    m_title->setForegroundRole(selected ? QPalette::HighlightedText : QPalette::WindowText);
    update();
}

void CollectionItemView::paintEvent(QPaintEvent*)
{
    if (!m_selected && !underMouse())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor fill = palette().color(QPalette::Highlight);
    if (!m_selected)
        fill.setAlpha(50);
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()).adjusted(3, 3, -3, -3), 10, 10);
    painter.fillPath(path, fill);
}

void CollectionItemView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton)
        emit pressed(this);
    QWidget::mousePressEvent(event);
}

void CollectionItemView::mouseDoubleClickEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        emit pressed(this);
        emit doubleClicked(this);
        return;
    }
    QWidget::mouseDoubleClickEvent(event);
}

} // namespace quirepad
