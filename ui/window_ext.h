#pragma once

#include <QPoint>
#include <QRect>

#include <chrono>

class QWidget;

namespace quirepad {

// Window helpers shared by the floating windows of the interface.

// Keeps the window above ordinary windows (or lets it go back among them).
void setTopMost(QWidget& window, bool topMost);

// Shows the window with a short fade from transparent to opaque.
void fadeIn(QWidget& window, std::chrono::milliseconds duration = std::chrono::milliseconds(120));

// Moves a frame inside a visible area: a frame hanging over an edge is
// pushed back; a frame larger than the area keeps its left and top edges on
// the area's. The size never changes.
QRect constrainToVisibleFrame(const QRect& frame, const QRect& visible);

// The area of the screen under the point that windows may use (without
// panels and docks); the primary screen's when no screen holds the point.
QRect visibleFrameAt(const QPoint& point);

} // namespace quirepad
