#pragma once

#include <QPointF>
#include <QRect>

#include <optional>

namespace quellora {

/// Converts a desktop position from AppKit's coordinates (y upwards from the lower edge of the
/// primary screen) to Qt's (y downwards from its upper edge), in points.
/// @param primaryHeight height of the primary screen
QPointF fromDesktop(double x, double y, double primaryHeight);

/// Whether the window should pass pointer events to what lies underneath; nullopt for no change.
///
/// The setting applies to the whole window, so it follows the pointer. It does not change while a
/// button is held: a drag ends where it began.
/// @param pointer in Qt's desktop coordinates, points
/// @param window the window's geometry in the same coordinates
/// @param responseRect the click-through area in the window; may be empty
std::optional<bool> letsPointerPass(const QPointF &pointer, bool isButtonHeld, const QRect &window,
                                    const QRect &responseRect);

} // namespace quellora
