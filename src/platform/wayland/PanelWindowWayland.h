#pragma once

#include "platform/Platform.h"
#include "platform/wayland/PointerFollower.h"
#include "platform/wayland/WaylandConnection.h"

#include <QList>
#include <QPointer>

class QScreen;

namespace quellora {

class PanelKeeperWayland;
class WaylandKeyboard;

/// The floating panel on Wayland: a surface in the compositor's layer above the windows,
/// full-screen ones included, on every desktop and in no task bar or switcher. The program has to
/// move and resize it. Neither showing nor clicking it gives it the keyboard, only makeKey() does;
/// it goes back to another window when the user clicks that, and when the panel is hidden.
class PanelWindowWayland : public PanelWindow
{
public:
    /// Must be set in the environment while a panel is shown. Not for child processes.
    static constexpr auto bypassVariable = "QT_WAYLAND_USE_BYPASSWINDOWMANAGERHINT";

    /// @param connection has a layer shell; both must outlive the object and the windows
    PanelWindowWayland(const WaylandConnection &connection, const WaylandKeyboard &keyboard);

    Capability applyPanelTraits(QWindow &window) override;
    /// Always Unsupported: this program's own pictures leave the window out, but other programs'
    /// pictures cannot be prevented.
    Capability excludeFromCapture(QWindow &window) override;
    Capability setClickThrough(QWindow &window, const QRect &responseRect) override;
    Capability orderFront(QWindow &window) override;
    /// BestEffort while the window is not visible.
    Capability makeKey(QWindow &window) override;
    void resignKey(QWindow &window) override;
    /// Every compositor composites.
    bool isCompositing() const override { return true; }
    void onCompositingChanged(std::function<void()>) override {}
    Capability followPointer(QWindow &window, std::function<void(QPointF)> onMoved) override;
    void stopFollowingPointer() override { m_follower.stop(); }
    /// The layers are above all windows.
    bool coversDialogs() const override { return true; }

    /// Makes the panels invisible for a picture, without hiding them. What follows on the same
    /// connection sees none of them.
    /// @return whether one is shown and covered now
    bool cover();
    void uncover();
    /// The screen with a panel; null if none is shown.
    QScreen *screenWithPanel() const;
    /// The surface of a panel that is shown; null if none is.
    wl_surface *panelSurface() const;

private:
    PanelKeeperWayland &keeper(QWindow &window) const;
    /// Puts one panel in front of those that it covers.
    void keepInFront(QWindow &front) const;

    const WaylandConnection &m_connection;
    const WaylandKeyboard &m_keyboard;
    PointerFollower m_follower;
    QList<QPointer<QWindow>> m_panels;
};

} // namespace quellora
