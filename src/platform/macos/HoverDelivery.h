#pragma once

#include <QPointF>

class QWindow;

namespace quellora {

/// Sends hover events to a window. Qt drops pointer moves without a button while the program is not
/// active, which the panel's program rarely is. Main thread only.
class HoverDelivery
{
public:
    explicit HoverDelivery(QWindow &window) : m_window(window) {}

    /// @param pointer in Qt's desktop coordinates, points
    /// @param isOver whether the pointer's events are for the window
    void pointerMoved(const QPointF &pointer, bool isOver);
    /// Stops without sending a leave event: Qt delivers the pointer events itself from now on.
    void reset() { m_isOver = false; }

private:
    QWindow &m_window;
    bool m_isOver = false;
};

} // namespace quellora
