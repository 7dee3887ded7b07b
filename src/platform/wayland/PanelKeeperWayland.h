#pragma once

#include "platform/wayland/FocusBounce.h"
#include "platform/wayland/LayerSurface.h"
#include "platform/wayland/WaylandKeyboard.h"

#include <QDeadlineTimer>
#include <QObject>
#include <QRect>
#include <QTimer>

class QScreen;
class QWindow;

namespace quellora {

/// Keeps one panel window above all others: gives its surface the layer role whenever it is shown,
/// on the screen where its centre is, and lets the role follow the window's frame. The toolkit
/// makes a new surface each time the window is shown. A child object of its window. Main thread
/// only.
class PanelKeeperWayland : public QObject
{
    Q_OBJECT
public:
    /// The keeper of this window; created on the first call.
    static PanelKeeperWayland &of(const WaylandConnection &connection,
                                  const WaylandKeyboard &keyboard, QWindow &window);

    /// @param responseRect in points; if empty, the whole window receives events
    void keepClickThrough(const QRect &responseRect);
    /// Takes the keyboard until returnKeyboard(), the user clicks another window, or the window is
    /// hidden.
    /// @return false while the window is not shown
    bool takeKeyboard();
    void returnKeyboard();

    /// Above this program's other windows in the same layer, or below them.
    void setOrder(LayerSurface::Order order) { m_role.setOrder(order); }

    /// Makes the window invisible without hiding it, for a picture of the screen.
    /// @return whether it is shown and covered now
    bool cover() { return m_role.cover(); }
    void uncover() { m_role.uncover(); }
    /// The screen on which the window is shown; null if it is hidden.
    QScreen *screen() const { return m_role.screen(); }

    bool eventFilter(QObject *watched, QEvent *event) override;

Q_SIGNALS:
    /// The window has a new surface at this place of the desktop.
    void rehomed(QPoint place);

private:
    PanelKeeperWayland(const WaylandConnection &connection, const WaylandKeyboard &keyboard,
                       QWindow &window);
    void attach();
    /// Shows the window with a new surface, on the screen where it belongs now.
    void rehome();
    void followFrame();
    void followScreen(QScreen *screen);
    void followScale();
    void applyInputRegion();
    void setKeyboard(LayerSurface::Keyboard keyboard);
    bool hasFocus() const;
    void focusEntered(wl_surface *surface);
    void focusLeft(wl_surface *surface);

    const WaylandConnection &m_connection;
    const WaylandKeyboard &m_keyboard;
    QWindow &m_window;
    LayerSurface m_role;
    QRect m_responseRect;
    QRect m_placed;
    /// Of the screen when the surface was made.
    qreal m_scale = 1;
    FocusBounce m_bounce;
    /// Until it is clear that the compositor leaves the keyboard to a panel that does not want it.
    QTimer m_bounceTimer;
    /// Until then, a loss of the focus is that of a return that was cancelled.
    QDeadlineTimer m_insistUntil;
    QTimer m_rehomeTimer;
    /// Applies a new size whose contents do not come.
    QTimer m_commitTimer;
};

} // namespace quellora
