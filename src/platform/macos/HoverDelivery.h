#pragma once

#include <QPointF>

class QWindow;

namespace quellora {

/// Lets a window know about a pointer that moves over it without a button held. The toolkit drops
/// such moves while the program is not active, and the panel's program seldom is. Main thread only.
class HoverDelivery
{
public:
    explicit HoverDelivery(QWindow &window) : m_window(window) {}

    /// @param pointer in the toolkit's desktop coordinates, points
    /// @param isOver whether the pointer's events are for the window
    void pointerMoved(const QPointF &pointer, bool isOver);
    /// The toolkit reports the pointer itself from now on; the window hears nothing of it.
    void leaveToToolkit() { m_isOver = false; }

private:
    QWindow &m_window;
    bool m_isOver = false;
};

} // namespace quellora
