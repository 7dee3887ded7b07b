#include "platform/linux/PanelKeeperX11.h"

#include "platform/linux/InputShapeX11.h"
#include "platform/linux/WindowHintsX11.h"

#include <QEvent>
#include <QPlatformSurfaceEvent>
#include <QWindow>

namespace quellora {

PanelKeeperX11 &PanelKeeperX11::of(const X11Connection &x11, QWindow &window)
{
    auto *keeper = window.findChild<PanelKeeperX11 *>(QString(), Qt::FindDirectChildrenOnly);
    return keeper ? *keeper : *new PanelKeeperX11(x11, window);
}

PanelKeeperX11::PanelKeeperX11(const X11Connection &x11, QWindow &window)
    : QObject(&window), m_x11(x11), m_window(window)
{
    window.installEventFilter(this);
    // Moving to a screen of another scale changes the pixels but not always the size in points.
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

void PanelKeeperX11::keepClickThrough(const QRect &responseRect)
{
    m_responseRect = responseRect;
    applyShape();
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
        // Arrives before the native window is mapped, when properties still speak for it.
        apply();
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
    applyTraits();
    applyShape();
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
