#include "platform/wayland/PanelWindowWayland.h"

#include "platform/wayland/PanelKeeperWayland.h"

#include <QCursor>
#include <QSurfaceFormat>
#include <QVariant>
#include <QWindow>

#include <utility>

namespace quellora {

PanelWindowWayland::PanelWindowWayland(const WaylandConnection &connection,
                                       const WaylandKeyboard &keyboard)
    : m_connection(connection), m_keyboard(keyboard), m_follower(connection)
{}

PanelKeeperWayland &PanelWindowWayland::keeper(QWindow &window) const
{
    return PanelKeeperWayland::of(m_connection, m_keyboard, window);
}

Capability PanelWindowWayland::applyPanelTraits(QWindow &window)
{
    // Without window manager, the toolkit leaves the surface's role to the keeper.
    constexpr Qt::WindowFlags panelFlags =
        Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint |
        Qt::WindowDoesNotAcceptFocus | Qt::BypassWindowManagerHint;
    const Qt::WindowFlags flags = (window.flags() & ~Qt::WindowType_Mask) | panelFlags;
    const bool wasVisible = window.isVisible();
    if (window.flags() != flags) {
        // The format and these flags are fixed once the native window exists.
        window.destroy();
        QSurfaceFormat format = window.requestedFormat();
        format.setAlphaBufferSize(8);
        window.setFormat(format);
        window.setFlags(flags);
    }
    keeper(window);
    if (!m_panels.contains(&window)) {
        m_panels.removeIf([](const QPointer<QWindow> &panel) { return panel.isNull(); });
        m_panels.append(&window);
        // The one below comes to the front again.
        QObject::connect(&window, &QWindow::visibleChanged, &window, [this](bool isVisible) {
            for (qsizetype i = m_panels.size() - 1; !isVisible && i >= 0; --i) {
                const QPointer<QWindow> &panel = m_panels.at(i);
                if (panel && panel->isVisible())
                    return keepInFront(*panel);
            }
        });
    }
    if (wasVisible)
        window.show();
    return Capability::applied();
}

Capability PanelWindowWayland::excludeFromCapture(QWindow &)
{
    return Capability::unsupported(
        QStringLiteral("Our own captures leave the window out, but other programs' captures "
                       "cannot be prevented on Wayland"));
}

Capability PanelWindowWayland::setClickThrough(QWindow &window, const QRect &responseRect)
{
    keeper(window).keepClickThrough(responseRect);
    return Capability::applied();
}

void PanelWindowWayland::keepInFront(QWindow &front) const
{
    keeper(front).setOrder(LayerSurface::Order::InFront);
    for (const QPointer<QWindow> &panel : m_panels) {
        if (panel && panel != &front && panel->geometry().intersects(front.geometry()))
            keeper(*panel).setOrder(LayerSurface::Order::Behind);
    }
}

Capability PanelWindowWayland::orderFront(QWindow &window)
{
    keepInFront(window);
    window.show();
    window.raise();
    return Capability::applied();
}

Capability PanelWindowWayland::makeKey(QWindow &window)
{
    if (!keeper(window).takeKeyboard())
        return Capability::bestEffort(QStringLiteral("The window is not shown yet"));
    return Capability::applied();
}

void PanelWindowWayland::resignKey(QWindow &window)
{
    keeper(window).returnKeyboard();
}

Capability PanelWindowWayland::followPointer(QWindow &window, std::function<void(QPointF)> onMoved)
{
    // The toolkit knows the position from the press that starts it.
    if (!m_follower.start(QCursor::pos(), std::move(onMoved)))
        return Capability::unsupported(
            QStringLiteral("The compositor does not report how the pointer moves"));
    QObject::connect(&keeper(window), &PanelKeeperWayland::rehomed, &m_follower,
                     &PointerFollower::awaitEnter, Qt::UniqueConnection);
    return Capability::applied();
}

bool PanelWindowWayland::cover()
{
    bool isCovered = false;
    for (const QPointer<QWindow> &panel : std::as_const(m_panels)) {
        if (panel && keeper(*panel).cover())
            isCovered = true;
    }
    return isCovered;
}

void PanelWindowWayland::uncover()
{
    for (const QPointer<QWindow> &panel : std::as_const(m_panels)) {
        if (panel)
            keeper(*panel).uncover();
    }
}

wl_surface *PanelWindowWayland::panelSurface() const
{
    for (const QPointer<QWindow> &panel : m_panels) {
        if (panel && keeper(*panel).screen())
            return WaylandConnection::surface(*panel);
    }
    return nullptr;
}

QScreen *PanelWindowWayland::screenWithPanel() const
{
    for (const QPointer<QWindow> &panel : m_panels) {
        QScreen *screen = panel ? keeper(*panel).screen() : nullptr;
        if (screen)
            return screen;
    }
    return nullptr;
}

} // namespace quellora
