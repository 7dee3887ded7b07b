#include "platform/ScreenLayout.h"

#include <QGuiApplication>
#include <QScreen>

#include <cmath>
#include <cstdlib>

namespace quellora {
namespace {

/// Deviation in pixels of a picture's height from what its width says.
constexpr int shapeTolerance = 4;

} // namespace

ScreenLayout ScreenLayout::inPoints()
{
    ScreenLayout layout;
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (const QScreen *screen : screens)
        layout.screens.append(screen->geometry());
    return layout;
}

ScreenLayout ScreenLayout::inPixels()
{
    ScreenLayout layout;
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (const QScreen *screen : screens)
        layout.screens.append({screen->geometry().topLeft(),
                               (QSizeF(screen->size()) * screen->devicePixelRatio()).toSize()});
    return layout;
}

QRect chosenPart(const QSize &picture, const ScreenLayout &layout)
{
    const QRect whole({}, picture);
    if (layout.screens.size() < 2 || layout.chosen < 0 || layout.chosen >= layout.screens.size())
        return whole;
    QRect all;
    for (const QRect &screen : layout.screens)
        all |= screen;
    if (all.isEmpty() || picture.isEmpty())
        return whole;
    const double scale = static_cast<double>(picture.width()) / all.width();
    if (std::abs(all.height() * scale - picture.height()) > shapeTolerance)
        return whole;
    const QRect screen = layout.screens.at(layout.chosen).translated(-all.topLeft());
    const auto scaled = [scale](int length) {
        return static_cast<int>(std::lround(length * scale));
    };
    const QPoint corner(scaled(screen.x()), scaled(screen.y()));
    const QPoint end(scaled(screen.x() + screen.width()), scaled(screen.y() + screen.height()));
    return QRect(corner, QSize(end.x() - corner.x(), end.y() - corner.y())) & whole;
}

} // namespace quellora
