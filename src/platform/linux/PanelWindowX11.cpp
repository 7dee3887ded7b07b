#include "platform/linux/PanelWindowX11.h"

#include "platform/linux/PanelKeeperX11.h"
#include "platform/linux/WindowHintsX11.h"

#include <QSurfaceFormat>
#include <QVariant>
#include <QWindow>

namespace quellora {

PanelWindowX11::PanelWindowX11(const X11Connection &x11)
    : m_x11(x11), m_clock(x11), m_compositor(x11)
{}

Capability PanelWindowX11::applyPanelTraits(QWindow &window)
{
    // A translucent window needs its visual chosen before the native window exists.
    if (!window.handle()) {
        QSurfaceFormat format = window.requestedFormat();
        format.setAlphaBufferSize(8);
        window.setFormat(format);
    }
    constexpr Qt::WindowFlags panelFlags = Qt::Tool | Qt::FramelessWindowHint |
                                           Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint |
                                           Qt::WindowDoesNotAcceptFocus;
    const Qt::WindowFlags flags = (window.flags() & ~Qt::WindowType_Mask) | panelFlags;
    if (window.flags() != flags)
        window.setFlags(flags);
    // Writes a user time of 0: the window manager then leaves the focus alone on map.
    window.setProperty("_q_showWithoutActivating", true);
    PanelKeeperX11::of(m_x11, window).keepTraits();
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
    const xcb_window_t native = nativeWindow(window);
    if (native == XCB_NONE)
        return Capability::bestEffort(QStringLiteral("The window does not exist yet"));
    const auto cookie = xcb_set_input_focus_checked(m_x11.get(), XCB_INPUT_FOCUS_PARENT, native,
                                                    m_clock.lastTime());
    const XcbPtr<xcb_generic_error_t> error(xcb_request_check(m_x11.get(), cookie));
    if (error)
        return Capability::bestEffort(
            QStringLiteral("The window cannot take the keyboard now (X error %1)")
                .arg(error->error_code));
    return Capability::applied();
}

void PanelWindowX11::onCompositingChanged(std::function<void()> handler)
{
    m_compositor.onChanged(std::move(handler));
}

} // namespace quellora
