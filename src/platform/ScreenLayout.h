#pragma once

#include <QList>
#include <QRect>
#include <QSize>

namespace quellora {

/// The screens as they lie beside each other, in the units of a picture or multiples of them.
struct ScreenLayout
{
    QList<QRect> screens;
    /// The screen that a picture of one screen shows.
    int chosen = 0;

    /// All screens of the application, in points and in the toolkit's order.
    static ScreenLayout inPoints();
    /// The same in pixels, for systems whose toolkit divides sizes by the scale, but not positions.
    static ScreenLayout inPixels();
};

/// The part of a picture of all screens that shows the chosen one. The picture is taken to cover
/// the rectangle around all screens, with the same number of pixels per unit everywhere.
/// @return the whole picture if its shape says otherwise, or there is one screen only
QRect chosenPart(const QSize &picture, const ScreenLayout &layout);

} // namespace quellora
