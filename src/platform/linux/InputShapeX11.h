#pragma once

#include "platform/linux/X11Connection.h"

#include <QRect>
#include <QRegion>
#include <QSize>

namespace quellora {

/// The part of a window that takes pointer events, in device pixels: everything but the response
/// rectangle. The whole window when the rectangle does not meet it.
/// @param windowSize, responseRect in points
/// @param scale device pixels per point
QRegion inputRegion(const QSize &windowSize, const QRect &responseRect, qreal scale);

/// Sets the region that takes pointer events; elsewhere they reach the window beneath.
void setInputShape(const X11Connection &x11, xcb_window_t window, const QRegion &region);

/// Makes the whole window take pointer events again.
void resetInputShape(const X11Connection &x11, xcb_window_t window);

} // namespace quellora
