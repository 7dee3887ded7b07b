#include "platform/macos/PanelWindowMac.h"

#include "platform/macos/PanelKeeperMac.h"

#include <QSurfaceFormat>
#include <QVariant>
#include <QWindow>

namespace quellora {

Capability PanelWindowMac::applyPanelTraits(QWindow &window)
{
    // Qt creates an NSPanel for tool windows. Its stay-on-top and no-shadow flags would override
    // the level and the shadow whenever Qt applies them.
    constexpr Qt::WindowFlags panelFlags = Qt::Tool | Qt::FramelessWindowHint;
    constexpr Qt::WindowFlags otherFlags =
        Qt::WindowType_Mask | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint;
    const Qt::WindowFlags flags = (window.flags() & ~otherFlags) | panelFlags;
    if (window.flags() != flags) {
        // Transparency and window class are fixed once the native window exists.
        const bool wasVisible = window.isVisible();
        window.destroy();
        QSurfaceFormat format = window.requestedFormat();
        format.setAlphaBufferSize(8);
        window.setFormat(format);
        window.setFlags(flags | Qt::WindowDoesNotAcceptFocus);
        window.setProperty("_q_showWithoutActivating", true);
        const Capability traits = PanelKeeperMac::of(window).keepTraits();
        if (wasVisible)
            window.show();
        return traits;
    }
    return PanelKeeperMac::of(window).keepTraits();
}

Capability PanelWindowMac::excludeFromCapture(QWindow &window)
{
    return PanelKeeperMac::of(window).keepCaptureExclusion();
}

Capability PanelWindowMac::setClickThrough(QWindow &window, const QRect &responseRect)
{
    return PanelKeeperMac::of(window).keepClickThrough(responseRect);
}

Capability PanelWindowMac::orderFront(QWindow &window)
{
    return PanelKeeperMac::of(window).orderFront();
}

Capability PanelWindowMac::makeKey(QWindow &window)
{
    return PanelKeeperMac::of(window).takeKeyboard();
}

void PanelWindowMac::resignKey(QWindow &window)
{
    PanelKeeperMac::of(window).returnKeyboard();
}

} // namespace quellora
