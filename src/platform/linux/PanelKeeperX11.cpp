#include "platform/linux/PanelKeeperX11.h"

#include "platform/linux/InputShapeX11.h"
#include "platform/linux/WindowHintsX11.h"

#include <QEvent>
#include <QPlatformSurfaceEvent>
#include <QWindow>

#include <utility>

namespace quellora {
namespace {

constexpr auto opacityProperty = "_NET_WM_WINDOW_OPACITY";

xcb_window_t focusedWindow(const X11Connection &x11)
{
    const XcbPtr<xcb_get_input_focus_reply_t> reply(
        xcb_get_input_focus_reply(x11.get(), xcb_get_input_focus(x11.get()), nullptr));
    return reply ? reply->focus : xcb_window_t(XCB_NONE);
}

int setFocus(const X11Connection &x11, xcb_window_t window, xcb_timestamp_t time)
{
    const auto cookie =
        xcb_set_input_focus_checked(x11.get(), XCB_INPUT_FOCUS_PARENT, window, time);
    const XcbPtr<xcb_generic_error_t> error(xcb_request_check(x11.get(), cookie));
    return error ? error->error_code : 0;
}

} // namespace

PanelKeeperX11 &PanelKeeperX11::of(const X11Connection &x11, QWindow &window)
{
    auto *keeper = window.findChild<PanelKeeperX11 *>(QString(), Qt::FindDirectChildrenOnly);
    return keeper ? *keeper : *new PanelKeeperX11(x11, window);
}

PanelKeeperX11::PanelKeeperX11(const X11Connection &x11, QWindow &window)
    : QObject(&window), m_x11(x11), m_window(window)
{
    window.installEventFilter(this);
    // A screen with another scale changes the size in pixels, but not always the size in points.
    connect(&window, &QWindow::screenChanged, this, &PanelKeeperX11::applyShape);
}

void PanelKeeperX11::keepTraits()
{
    m_traits = true;
    applyTraits();
}

void PanelKeeperX11::keepCaptureExclusion()
{
    m_excluded = true;
    apply();
}

void PanelKeeperX11::setVeiled(bool isVeiled)
{
    if (m_veiled == isVeiled)
        return;
    m_veiled = isVeiled;
    applyVeil();
}

void PanelKeeperX11::keepClickThrough(const QRect &responseRect)
{
    m_responseRect = responseRect;
    applyShape();
}

int PanelKeeperX11::takeFocus(xcb_timestamp_t time)
{
    const xcb_window_t native = nativeWindow(m_window);
    const xcb_window_t before = focusedWindow(m_x11);
    int status = setFocus(m_x11, native, time);
    // A press triggered by assistive software has no timestamp. The server ignores the request if
    // the last known timestamp is older than the last focus change.
    if (status == 0 && focusedWindow(m_x11) != native)
        status = setFocus(m_x11, native, XCB_CURRENT_TIME);
    if (status == 0 && before != native)
        m_previousFocus = before;
    return status;
}

void PanelKeeperX11::returnFocus(xcb_timestamp_t time)
{
    const xcb_window_t native = nativeWindow(m_window);
    if (!m_previousFocus || native == XCB_NONE || focusedWindow(m_x11) != native)
        return;
    const xcb_window_t previous = *std::exchange(m_previousFocus, std::nullopt);
    // In a Wayland session the keyboard was with a program that is no X client. Focusing the root
    // window makes the compositor focus the window that had it before.
    if (previous == XCB_NONE)
        setFocus(m_x11, m_x11.root(), XCB_CURRENT_TIME);
    else
        setFocus(m_x11, previous, time);
}

void PanelKeeperX11::restoreFocusAfterHide()
{
    const xcb_window_t previous = std::exchange(m_previousFocus, std::nullopt).value_or(XCB_NONE);
    if (previous == XCB_NONE)
        return;
    // Hiding a focused window moves the focus to the root window. If another window has the focus,
    // the user has chosen it.
    if (const xcb_window_t now = focusedWindow(m_x11);
        now == m_x11.root() || now == XCB_INPUT_FOCUS_POINTER_ROOT || now == XCB_NONE)
        setFocus(m_x11, previous, XCB_CURRENT_TIME);
}

bool PanelKeeperX11::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::PlatformSurface:
        if (static_cast<QPlatformSurfaceEvent *>(event)->surfaceEventType() ==
            QPlatformSurfaceEvent::SurfaceCreated) {
            m_shaped = false;
            apply();
        }
        break;
    case QEvent::Show:
        // Sent before the native window is mapped, while its properties still determine its state.
        Q_EMIT showing();
        apply();
        break;
    case QEvent::Hide:
        restoreFocusAfterHide();
        break;
    case QEvent::Resize:
        applyShape();
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void PanelKeeperX11::apply()
{
    const xcb_window_t native = nativeWindow(m_window);
    if (native == XCB_NONE)
        return;
    if (m_excluded)
        setCardinal(m_x11, native, captureExclusionProperty, 1);
    if (m_veiled)
        applyVeil();
    applyTraits();
    applyShape();
}

void PanelKeeperX11::applyVeil()
{
    const xcb_window_t native = nativeWindow(m_window);
    if (native == XCB_NONE)
        return;
    if (m_veiled)
        setCardinal(m_x11, native, opacityProperty, 0);
    else
        // The panel itself never uses the property: it draws its own opacity.
        xcb_delete_property(m_x11.get(), native, m_x11.atom(opacityProperty));
    m_x11.flush();
}

void PanelKeeperX11::applyTraits()
{
    if (!m_traits)
        return;
    addWindowStates(m_x11, m_window,
                    {"_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY", "_NET_WM_STATE_SKIP_TASKBAR",
                     "_NET_WM_STATE_SKIP_PAGER"});
    showOnAllDesktops(m_x11, m_window);
}

void PanelKeeperX11::applyShape()
{
    const xcb_window_t native = nativeWindow(m_window);
    if (native == XCB_NONE)
        return;
    if (!m_responseRect.isEmpty()) {
        setInputShape(m_x11, native,
                      inputRegion(m_window.size(), m_responseRect, m_window.devicePixelRatio()));
        m_shaped = true;
    } else if (m_shaped) {
        resetInputShape(m_x11, native);
        m_shaped = false;
    }
}

} // namespace quellora
