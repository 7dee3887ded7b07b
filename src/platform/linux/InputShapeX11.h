#pragma once

#include "platform/linux/X11Connection.h"

#include <QRect>
#include <QRegion>
#include <QSize>

namespace quellora {

/// The part of a window that receives pointer events, in device pixels: everything except the
/// response rectangle; the whole window if the two do not intersect.
/// @param windowSize, responseRect in points
/// @param scale device pixels per point
QRegion inputRegion(const QSize &windowSize, const QRect &responseRect, qreal scale);

/// Sets the region that receives pointer events; elsewhere they go to the window underneath.
void setInputShape(const X11Connection &x11, xcb_window_t window, const QRegion &region);

/// Makes the whole window receive pointer events again.
void resetInputShape(const X11Connection &x11, xcb_window_t window);

} // namespace quellora
