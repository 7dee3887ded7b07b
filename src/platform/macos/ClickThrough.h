#pragma once

#include <QPointF>
#include <QRect>

#include <optional>

namespace quellora {

/// A position of the system's desktop, whose y grows upwards from the lower edge of the primary
/// screen, in the toolkit's, whose y grows downwards from that screen's upper edge. Points.
/// @param primaryHeight of the primary screen
QPointF fromDesktop(double x, double y, double primaryHeight);

/// Whether a window lets the pointer pass to what lies underneath; nullopt: as before.
///
/// The whole window takes it or does not, so the answer follows the pointer. While a button is
/// held nothing changes: a drag goes on where it began.
/// @param pointer in the toolkit's desktop coordinates, points
/// @param window the window's geometry there
/// @param responseRect what lets through, in the window; empty: nothing does
std::optional<bool> letsPointerPass(const QPointF &pointer, bool isButtonHeld, const QRect &window,
                                    const QRect &responseRect);

} // namespace quellora
