#include "platform/linux/PanelWindowX11.h"

#include "platform/linux/PanelKeeperX11.h"

#include <QSurfaceFormat>
#include <QVariant>
#include <QWindow>

namespace quellora {

PanelWindowX11::PanelWindowX11(const X11Connection &x11)
    : m_x11(x11), m_clock(x11), m_compositor(x11, "_NET_WM_CM_S")
{}

Capability PanelWindowX11::applyPanelTraits(QWindow &window)
{
    // Bypasses the window manager, because several of them place a focused full-screen window above
    // all managed windows regardless of their states. The states are set anyway for compositors
    // and other clients that read them.
    constexpr Qt::WindowFlags panelFlags =
        Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint |
        Qt::WindowDoesNotAcceptFocus | Qt::BypassWindowManagerHint;
    const Qt::WindowFlags flags = (window.flags() & ~Qt::WindowType_Mask) | panelFlags;
    if (window.flags() != flags) {
        // The visual and these flags are fixed once the native window exists.
        const bool wasVisible = window.isVisible();
        window.destroy();
        QSurfaceFormat format = window.requestedFormat();
        format.setAlphaBufferSize(8);
        window.setFormat(format);
        window.setFlags(flags);
        window.setProperty("_q_showWithoutActivating", true);
        PanelKeeperX11::of(m_x11, window).keepTraits();
        if (wasVisible)
            window.show();
    } else {
        PanelKeeperX11::of(m_x11, window).keepTraits();
    }
    return Capability::applied();
}

Capability PanelWindowX11::excludeFromCapture(QWindow &window)
{
    PanelKeeperX11::of(m_x11, window).keepCaptureExclusion();
    return Capability::unsupported(
        QStringLiteral("Our own captures leave the window out, but other programs' captures "
                       "cannot be prevented on X11"));
}

Capability PanelWindowX11::setClickThrough(QWindow &window, const QRect &responseRect)
{
    PanelKeeperX11::of(m_x11, window).keepClickThrough(responseRect);
    if (qEnvironmentVariableIsSet("WAYLAND_DISPLAY"))
        return Capability::bestEffort(
            QStringLiteral("Clicks over the answer reach X programs only"));
    return Capability::applied();
}

Capability PanelWindowX11::orderFront(QWindow &window)
{
    window.show();
    window.raise();
    return Capability::applied();
}

Capability PanelWindowX11::makeKey(QWindow &window)
{
    if (!window.handle())
        return Capability::bestEffort(QStringLiteral("The window does not exist yet"));
    if (const int status = PanelKeeperX11::of(m_x11, window).takeFocus(m_clock.lastTime()))
        return Capability::bestEffort(
            QStringLiteral("The window cannot take the keyboard now (X error %1)").arg(status));
    return Capability::applied();
}

void PanelWindowX11::resignKey(QWindow &window)
{
    PanelKeeperX11::of(m_x11, window).returnFocus(m_clock.lastTime());
}

void PanelWindowX11::onCompositingChanged(std::function<void()> handler)
{
    m_compositor.onChanged(std::move(handler));
}

} // namespace quellora
