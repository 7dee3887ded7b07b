#include "platform/macos/ClickThrough.h"

namespace quellora {

QPointF fromDesktop(double x, double y, double primaryHeight)
{
    return {x, primaryHeight - y};
}

std::optional<bool> letsPointerPass(const QPointF &pointer, bool isButtonHeld, const QRect &window,
                                    const QRect &responseRect)
{
    if (responseRect.isEmpty())
        return false;
    if (isButtonHeld)
        return std::nullopt;
    // The rectangle may extend beyond the window.
    const QRect area = responseRect.translated(window.topLeft()).intersected(window);
    // Positions are fractions of points, so the right and lower edges are outside.
    return pointer.x() >= area.x() && pointer.x() < area.x() + area.width() &&
           pointer.y() >= area.y() && pointer.y() < area.y() + area.height();
}

} // namespace quellora
