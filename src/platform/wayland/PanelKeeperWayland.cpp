#include "platform/wayland/PanelKeeperWayland.h"

#include "platform/PanelProperties.h"

#include <QEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QVariant>
#include <QWindow>

#include <qpa/qwindowsysteminterface.h>

#include <algorithm>
#include <chrono>

namespace quellora {
namespace {

using namespace std::chrono_literals;
using Keyboard = LayerSurface::Keyboard;

// A compositor that knows OnDemand takes the keyboard away by itself ...
constexpr auto slowReturn = 1s;
// ... the others give it to every panel that is clicked. By now the click may have asked for it.
constexpr auto quickReturn = 40ms;

// For the longest return of the keyboard that was seen on a busy machine, twice.
constexpr auto bounceDuration = 500ms;

qint64 area(const QRect &rect)
{
    return rect.isEmpty() ? 0 : qint64(rect.width()) * rect.height();
}

/// The screen with the frame's centre, else the one that shows most of it; null without screens.
QScreen *screenOf(const QRect &frame)
{
    if (QScreen *screen = QGuiApplication::screenAt(frame.center()))
        return screen;
    const QList<QScreen *> screens = QGuiApplication::screens();
    const auto shown = [&frame](const QScreen *screen) {
        return area(screen->geometry().intersected(frame));
    };
    // The first one, if none shows any of it: the primary screen.
    const auto best = std::max_element(
        screens.begin(), screens.end(),
        [&](const QScreen *one, const QScreen *other) { return shown(one) < shown(other); });
    return best == screens.end() ? nullptr : *best;
}

} // namespace

PanelKeeperWayland &PanelKeeperWayland::of(const WaylandConnection &connection,
                                           const WaylandKeyboard &keyboard, QWindow &window)
{
    auto *keeper = window.findChild<PanelKeeperWayland *>(QString(), Qt::FindDirectChildrenOnly);
    return keeper ? *keeper : *new PanelKeeperWayland(connection, keyboard, window);
}

PanelKeeperWayland::PanelKeeperWayland(const WaylandConnection &connection,
                                       const WaylandKeyboard &keyboard, QWindow &window)
    : QObject(&window)
    , m_connection(connection)
    , m_keyboard(keyboard)
    , m_window(window)
    , m_role(connection)
    , m_bounce(connection, keyboard)
{
    window.installEventFilter(this);
    // Earlier than the hide event: the surface still exists.
    connect(&window, &QWindow::visibleChanged, this, [this](bool isVisible) {
        if (isVisible)
            return;
        m_role.detach();
        if (!m_window.property(movesToScreenProperty).toBool())
            m_role.setKeyboard(Keyboard::None);
    });
    connect(&keyboard, &WaylandKeyboard::entered, this, &PanelKeeperWayland::focusEntered);
    connect(&keyboard, &WaylandKeyboard::left, this, &PanelKeeperWayland::focusLeft);
    m_bounceTimer.setSingleShot(true);
    m_bounceTimer.setInterval(m_role.hasOnDemand() ? slowReturn : quickReturn);
    connect(&m_bounceTimer, &QTimer::timeout, this, [this] {
        if (hasFocus() && m_role.keyboard() == Keyboard::None)
            m_bounce.start();
    });
    m_rehomeTimer.setSingleShot(true);
    m_rehomeTimer.setInterval(0);
    connect(&m_rehomeTimer, &QTimer::timeout, this, &PanelKeeperWayland::rehome);
    m_commitTimer.setSingleShot(true);
    m_commitTimer.setInterval(50ms);
    connect(&m_commitTimer, &QTimer::timeout, &m_role, &LayerSurface::commit);
    connect(&m_role, &LayerSurface::closed, &m_rehomeTimer, qOverload<>(&QTimer::start));
    // Queued: the toolkit hears of the same change with the events that follow.
    connect(&connection, &WaylandConnection::outputsChanged, this, &PanelKeeperWayland::followScale,
            Qt::QueuedConnection);
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens)
        followScreen(screen);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, [this](QScreen *screen) {
        followScreen(screen);
        if (m_window.isVisible() && !m_role.isAttached())
            m_rehomeTimer.start();
    });
}

void PanelKeeperWayland::followScreen(QScreen *screen)
{
    connect(screen, &QScreen::geometryChanged, this, [this, screen] {
        // The place is relative to the screen.
        if (screen != m_role.screen())
            return;
        m_role.place(m_window.geometry());
        m_role.commit();
    });
}

void PanelKeeperWayland::followScale()
{
    // The toolkit does not change the scale of a surface that exists.
    const QScreen *screen = m_role.screen();
    if (screen && screen->devicePixelRatio() != m_scale)
        m_rehomeTimer.start();
}

void PanelKeeperWayland::keepClickThrough(const QRect &responseRect)
{
    m_responseRect = responseRect;
    applyInputRegion();
}

bool PanelKeeperWayland::takeKeyboard()
{
    if (!m_role.isAttached())
        return false;
    // The keyboard that is being given back may leave only after this.
    if (m_bounceTimer.isActive() || m_bounce.isRunning())
        m_insistUntil = QDeadlineTimer(bounceDuration);
    m_bounceTimer.stop();
    m_bounce.cancel();
    if (!hasFocus() || m_role.keyboard() == Keyboard::None)
        setKeyboard(Keyboard::Exclusive);
    return true;
}

void PanelKeeperWayland::returnKeyboard()
{
    setKeyboard(Keyboard::None);
    if (hasFocus())
        m_bounceTimer.start();
}

void PanelKeeperWayland::setKeyboard(Keyboard keyboard)
{
    if (keyboard == m_role.keyboard())
        return;
    m_role.setKeyboard(keyboard);
    m_role.commit();
}

bool PanelKeeperWayland::hasFocus() const
{
    return m_role.isAttached() && m_keyboard.focus() == m_role.surface();
}

void PanelKeeperWayland::focusEntered(wl_surface *surface)
{
    if (surface != m_role.surface())
        return;
    // The toolkit takes the window for active only after another answer of the compositor. Until
    // then no shortcut works.
    QWindowSystemInterface::handleWindowActivated<QWindowSystemInterface::SynchronousDelivery>(
        &m_window, Qt::OtherFocusReason);
    // It was taken with Exclusive, which a click elsewhere does not end.
    if (m_role.keyboard() == Keyboard::Exclusive && m_role.hasOnDemand())
        setKeyboard(Keyboard::OnDemand);
    else if (m_role.keyboard() == Keyboard::None)
        m_bounceTimer.start();
}

void PanelKeeperWayland::focusLeft(wl_surface *surface)
{
    if (surface != m_role.surface())
        return;
    const bool insists = m_role.keyboard() == Keyboard::Exclusive && !m_insistUntil.hasExpired();
    // The user has chosen another window. Some compositors give the keyboard right back to a
    // surface that still wants it.
    setKeyboard(Keyboard::None);
    if (insists)
        setKeyboard(Keyboard::Exclusive);
}

bool PanelKeeperWayland::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::Show:
        // Sent after the surface is made and before it has contents.
        attach();
        break;
    case QEvent::Hide:
        // The surface is gone; without the native window, the toolkit makes the next one before the
        // show event.
        m_window.destroy();
        break;
    case QEvent::Resize:
        applyInputRegion();
        followFrame();
        break;
    case QEvent::Move:
        followFrame();
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void PanelKeeperWayland::attach()
{
    QScreen *screen = screenOf(m_window.geometry());
    m_placed = m_window.geometry();
    m_scale = screen ? screen->devicePixelRatio() : 1;
    if (screen)
        m_role.attach(WaylandConnection::surface(m_window), *screen, m_placed);
    applyInputRegion();
}

void PanelKeeperWayland::rehome()
{
    if (!m_window.isVisible())
        return;
    m_window.setProperty(movesToScreenProperty, true);
    m_window.hide();
    m_window.show();
    m_window.setProperty(movesToScreenProperty, QVariant());
    Q_EMIT rehomed(m_placed.topLeft());
}

void PanelKeeperWayland::followFrame()
{
    const QRect frame = m_window.geometry();
    if (!m_role.isAttached() || frame == m_placed)
        return;
    const bool isResized = frame.size() != m_placed.size();
    m_placed = frame;
    if (QScreen *screen = QGuiApplication::screenAt(frame.center());
        screen && screen != m_role.screen()) {
        m_rehomeTimer.start();
        return;
    }
    m_role.place(frame);
    // The contents of a new size come with the toolkit's next commit.
    if (isResized)
        m_commitTimer.start();
    else
        m_role.commit();
}

void PanelKeeperWayland::applyInputRegion()
{
    const QRegion whole(QRect(QPoint(0, 0), m_window.size()));
    QRegion region = whole - m_responseRect;
    if (region == whole)
        region = QRegion();
    else if (region.isEmpty())
        // Nothing of the window; an empty mask stands for all of it.
        region = QRect(-1, -1, 1, 1);
    m_window.setMask(region);
    m_role.commit();
}

} // namespace quellora
