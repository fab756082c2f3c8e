#include "ui/window_ext.h"

#include <QGuiApplication>
#include <QPropertyAnimation>
#include <QScreen>
#include <QWidget>

#include <algorithm>

namespace quirepad {

void setTopMost(QWidget& window, bool topMost)
{
    const bool visible = window.isVisible();
    window.setWindowFlag(Qt::WindowStaysOnTopHint, topMost);
    if (visible) // changing the flags hides a shown window
        window.show();
}

void fadeIn(QWidget& window, std::chrono::milliseconds duration)
{
    // One animation per window, owned by it; a new fade replaces a running one.
    auto* animation = window.findChild<QPropertyAnimation*>(QStringLiteral("quirepad-fade-in"));
    if (!animation) {
        animation = new QPropertyAnimation(&window, "windowOpacity", &window);
        animation->setObjectName(QStringLiteral("quirepad-fade-in"));
    }
    animation->stop();
    animation->setDuration(int(duration.count()));
    animation->setStartValue(0.0);
    animation->setEndValue(1.0);
    window.setWindowOpacity(0.0);
    window.show();
    animation->start();
}

QRect constrainToVisibleFrame(const QRect& frame, const QRect& visible)
{
    if (!visible.isValid())
        return frame;
    QRect result = frame;
    // Right and bottom first, so that an oversized frame ends up aligned
    // with the left and top edges.
    if (result.right() > visible.right())
        result.moveRight(visible.right());
    if (result.bottom() > visible.bottom())
        result.moveBottom(visible.bottom());
    if (result.left() < visible.left())
        result.moveLeft(visible.left());
    if (result.top() < visible.top())
        result.moveTop(visible.top());
    return result;
}

QRect visibleFrameAt(const QPoint& point)
{
    QScreen* screen = QGuiApplication::screenAt(point);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry() : QRect();
}

} // namespace quirepad
