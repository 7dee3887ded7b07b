#pragma once

#include "platform/Platform.h"
#include "platform/linux/SelectionWatchX11.h"
#include "platform/linux/X11Connection.h"
#include "platform/linux/X11EventClock.h"

namespace quellora {

/// The floating panel on X11: a window that the window manager leaves alone, above all others. It
/// is on every desktop and in no task bar or switcher; moving and resizing it is the program's own
/// business. Other programs' windows come above it only when they do the same later. It never takes
/// the focus by itself, neither when it is shown nor when it is clicked; only makeKey() gives it
/// the keyboard, and hiding the window gives the keyboard back to the window manager's choice.
class PanelWindowX11 : public PanelWindow
{
public:
    explicit PanelWindowX11(const X11Connection &x11);

    Capability applyPanelTraits(QWindow &window) override;
    /// Always Unsupported: our own captures leave the window out, those of other programs cannot
    /// be prevented.
    Capability excludeFromCapture(QWindow &window) override;
    Capability setClickThrough(QWindow &window, const QRect &responseRect) override;
    Capability orderFront(QWindow &window) override;
    /// BestEffort while the window is not on the screen.
    Capability makeKey(QWindow &window) override;
    void resignKey(QWindow &window) override;
    bool isCompositing() const override { return m_compositor.isOwned(); }
    void onCompositingChanged(std::function<void()> handler) override;

private:
    X11Connection m_x11;
    X11EventClock m_clock;
    SelectionWatchX11 m_compositor;
};

} // namespace quellora
