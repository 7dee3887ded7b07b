#pragma once

#include "platform/Platform.h"
#include "platform/linux/SelectionWatchX11.h"
#include "platform/linux/X11Connection.h"
#include "platform/linux/X11EventClock.h"

namespace quellora {

/// The floating panel on X11: an unmanaged (override-redirect) window above all others, on every
/// desktop and in no task bar or switcher. The program has to move and resize it. Only unmanaged
/// windows that are raised later can cover it. Neither showing nor clicking it moves the focus;
/// only makeKey() gives it the keyboard, and hiding it returns the keyboard to the previous window.
class PanelWindowX11 : public PanelWindow
{
public:
    explicit PanelWindowX11(const X11Connection &x11);

    Capability applyPanelTraits(QWindow &window) override;
    /// Always Unsupported: this program's own captures omit the window, but other programs'
    /// captures cannot be prevented.
    Capability excludeFromCapture(QWindow &window) override;
    Capability setClickThrough(QWindow &window, const QRect &responseRect) override;
    Capability orderFront(QWindow &window) override;
    /// BestEffort while the window is not visible.
    Capability makeKey(QWindow &window) override;
    void resignKey(QWindow &window) override;
    /// Window managers raise managed windows below unmanaged ones.
    bool coversDialogs() const override { return true; }
    bool isCompositing() const override { return m_compositor.isOwned(); }
    void onCompositingChanged(std::function<void()> handler) override;

private:
    X11Connection m_x11;
    X11EventClock m_clock;
    SelectionWatchX11 m_compositor;
};

} // namespace quellora
