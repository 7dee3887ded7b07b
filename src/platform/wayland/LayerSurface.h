#pragma once

#include "platform/wayland/WaylandConnection.h"

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QScreen>

class QWindow;

namespace quellora {

/// The role that places a window's surface above all windows of one screen, full-screen ones
/// included (protocol zwlr_layer_shell_v1). A surface cannot move to another screen: end its role
/// and give it a new one. Main thread only; destroy before the connection.
class LayerSurface : public QObject
{
    Q_OBJECT
public:
    enum class Keyboard {
        None,
        /// Takes the keyboard at once and keeps it.
        Exclusive,
        /// The compositor gives it the keyboard when it is clicked, and away when another is.
        OnDemand,
    };

    /// Among the surfaces of this program.
    enum class Order {
        InFront,
        /// Below those in front, above ordinary windows.
        Behind,
    };

    explicit LayerSurface(const WaylandConnection &connection, QObject *parent = nullptr);
    ~LayerSurface() override;

    /// Gives a surface without contents the role. Waits for the compositor: one or two round trips.
    /// @param screen on which the surface is shown
    /// @param frame in points, on the desktop; may reach beyond the screen
    /// @return whether the surface may have contents now
    bool attach(wl_surface *surface, QScreen &screen, const QRect &frame);
    /// Ends the role: the compositor shows the surface no longer. The surface must still exist.
    void detach();
    bool isAttached() const { return m_role != nullptr; }
    /// The surface of attach(); null without role.
    wl_surface *surface() const { return m_surface; }
    /// The screen of attach(); null without role or if it is gone.
    QScreen *screen() const { return m_screen; }

    /// Moves and resizes. Takes effect with the next commit of the surface, so that a new size
    /// appears together with the contents of that size.
    void place(const QRect &frame);
    /// Applies what was changed since the last commit.
    void commit();

    /// Whether Keyboard::OnDemand is available; else it acts like Exclusive.
    bool hasOnDemand() const;
    Keyboard keyboard() const { return m_keyboard; }
    /// Kept when the role ends.
    void setKeyboard(Keyboard keyboard);

    /// Kept when the role ends. A compositor may draw the surfaces of one layer in any order. No
    /// effect on compositors of which a surface cannot change its layer.
    void setOrder(Order order);

    /// Makes the surface invisible, without changing its contents, its input region or the focus:
    /// the compositor shows nothing but its top left pixel, which is transparent. Applied in order
    /// with the requests that follow on the same connection, and not sent before its next flush: a
    /// frame between the two would show neither the surface nor what is requested next.
    /// @return whether it is covered
    bool cover();
    /// Sent at once.
    void uncover();

Q_SIGNALS:
    /// The compositor has ended the surface, e.g. because its screen is gone. The role has ended.
    void closed();

private:
    struct Listeners;

    /// Marks the whole surface as changed, for the next commit.
    void damageAll();

    const WaylandConnection &m_connection;
    // Before the role, which is destroyed first.
    wl_surface *m_surface = nullptr;
    WaylandPtr<zwlr_layer_surface_v1> m_role;
    WaylandPtr<wp_viewport> m_viewport;
    QPointer<QScreen> m_screen;
    QRect m_frame;
    Keyboard m_keyboard = Keyboard::None;
    Order m_order = Order::InFront;
    bool m_isConfigured = false;
    bool m_isClosed = false;
};

} // namespace quellora
