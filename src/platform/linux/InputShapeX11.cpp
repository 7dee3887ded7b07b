#include "platform/linux/InputShapeX11.h"

#include <QList>
#include <QtMath>

#include <xcb/shape.h>

namespace quellora {
namespace {

QRect scaled(const QRect &rect, qreal scale)
{
    // Rounds each edge, so that adjacent rectangles neither overlap nor leave a gap.
    const int left = qRound(rect.x() * scale);
    const int top = qRound(rect.y() * scale);
    const int right = qRound((rect.x() + rect.width()) * scale);
    const int bottom = qRound((rect.y() + rect.height()) * scale);
    return {left, top, right - left, bottom - top};
}

} // namespace

QRegion inputRegion(const QSize &windowSize, const QRect &responseRect, qreal scale)
{
    const QRegion window(scaled(QRect({}, windowSize), scale));
    return window.subtracted(scaled(responseRect, scale));
}

void setInputShape(const X11Connection &x11, xcb_window_t window, const QRegion &region)
{
    QList<xcb_rectangle_t> rectangles;
    rectangles.reserve(region.rectCount());
    for (const QRect &rect : region)
        rectangles.append({static_cast<int16_t>(rect.x()), static_cast<int16_t>(rect.y()),
                           static_cast<uint16_t>(rect.width()),
                           static_cast<uint16_t>(rect.height())});
    xcb_shape_rectangles(x11.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT,
                         XCB_CLIP_ORDERING_UNSORTED, window, 0, 0,
                         static_cast<uint32_t>(rectangles.size()), rectangles.constData());
    x11.flush();
}

void resetInputShape(const X11Connection &x11, xcb_window_t window)
{
    xcb_shape_mask(x11.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, window, 0, 0, XCB_NONE);
    x11.flush();
}

} // namespace quellora
