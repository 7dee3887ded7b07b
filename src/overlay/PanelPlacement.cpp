#include "overlay/PanelPlacement.h"

#include "base/Log.h"
#include "base/Text.h"

#include <QEasingCurve>
#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

#include <algorithm>
#include <utility>

namespace quellora {

namespace {

constexpr int zoomAnimationMs = 160;

void log(const QString &message)
{
    Log::event(QStringLiteral("[OverlayWindowController] ") + message);
}

} // namespace

PanelPlacement::PanelPlacement(QWindow &window, const VantiroConfig::Overlay &overlay,
                               QObject *parent)
    : QObject(parent), m_window(window), m_overlay(overlay)
{
    m_animation.setDuration(zoomAnimationMs);
    m_animation.setEasingCurve(QEasingCurve::OutCubic);
    connect(&m_animation, &QVariantAnimation::valueChanged, this,
            [this](const QVariant &frame) { m_window.setGeometry(frame.toRect()); });
    // Coalesces screen changes and runs after the list of screens has been updated.
    m_refitTimer.setSingleShot(true);
    m_refitTimer.setInterval(0);
    connect(&m_refitTimer, &QTimer::timeout, this, [this] {
        Q_EMIT screensChanged();
        refit();
    });
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens)
        watchScreen(screen);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, [this](QScreen *screen) {
        watchScreen(screen);
        m_refitTimer.start();
    });
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, [this] { m_refitTimer.start(); });
}

void PanelPlacement::watchScreen(QScreen *screen)
{
    const auto changed = [this] { m_refitTimer.start(); };
    connect(screen, &QScreen::geometryChanged, this, changed);
    connect(screen, &QScreen::availableGeometryChanged, this, changed);
}

void PanelPlacement::placeInitially()
{
    m_window.resize(qRound(m_overlay.width), qRound(m_overlay.height));
    m_placement = Placement{m_window.geometry()};
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen) {
        log(QStringLiteral("WARNING: NSScreen.main unavailable, using default origin"));
        m_window.setPosition(0, 0);
        return;
    }
    const QRect area = screen->availableGeometry();
    m_placement.frame.moveTopLeft(
        OverlayGeometry::initialPosition(area, {m_overlay.x, m_overlay.y}, m_window.size()));
    m_window.setGeometry(fittedFrame(m_placement));
    log(QStringLiteral("Positioned at (%1, %2) on screen (%3, %4, %5, %6)")
            .arg(decimalText(area.x() + m_overlay.x), decimalText(area.y() + m_overlay.y),
                 decimalText(area.x()), decimalText(area.y()), decimalText(area.width()),
                 decimalText(area.height())));
}

void PanelPlacement::restore(const QRect &frame)
{
    if (m_isZoomedLarge) {
        // It stays zoomed, and is there afterwards.
        m_placementBeforeZoom = placementFor(frame);
        m_placement.frame = m_placementBeforeZoom->frame;
        return;
    }
    m_placement = placementFor(frame);
    const QRect fitted = fittedFrame(m_placement);
    animateTo(fitted);
    log(QStringLiteral("Panel placed where it was left at (%1, %2), %3x%4")
            .arg(fitted.x())
            .arg(fitted.y())
            .arg(fitted.width())
            .arg(fitted.height()));
}

QRect PanelPlacement::fittedFrame(const Placement &placement) const
{
    if (const std::optional<QRect> area = placement.fillsScreen ? visibleArea() : std::nullopt)
        return *area;
    QList<QRect> areas;
    QList<QScreen *> screens = QGuiApplication::screens();
    // Primary screen first: it wins ties.
    std::stable_partition(screens.begin(), screens.end(), [](const QScreen *screen) {
        return screen == QGuiApplication::primaryScreen();
    });
    for (const QScreen *screen : std::as_const(screens))
        areas.append(screen->availableGeometry());
    return OverlayGeometry::fitted(placement.frame, placement.keep, areas);
}

PanelPlacement::Placement PanelPlacement::placementFor(const QRect &frame) const
{
    Placement placement{frame};
    if (fittedFrame(placement) == frame)
        return placement;
    // The user moved part of the panel off the screen: require only the control bar to be visible.
    placement.keep = OverlayGeometry::Keep::Bar;
    placement.frame = fittedFrame(placement);
    return placement;
}

void PanelPlacement::setUserFrame(const QRect &frame)
{
    m_animation.stop();
    m_placement = placementFor(frame);
    if (fittedFrame(m_placement) != frame)
        moveOntoScreen(fittedFrame(m_placement));
    Q_EMIT userFrameChanged();
}

void PanelPlacement::keepOnScreen()
{
    const Placement current{targetFrame(), OverlayGeometry::Keep::Bar};
    if (fittedFrame(current) != current.frame)
        refit();
}

void PanelPlacement::refit()
{
    if (const QRect frame = fittedFrame(m_placement); frame != targetFrame())
        moveOntoScreen(frame);
}

void PanelPlacement::moveOntoScreen(const QRect &frame)
{
    animateTo(frame);
    log(QStringLiteral("Panel kept on the screen at (%1, %2), %3x%4")
            .arg(frame.x())
            .arg(frame.y())
            .arg(frame.width())
            .arg(frame.height()));
}

std::optional<QRect> PanelPlacement::visibleArea() const
{
    const QScreen *screen =
        m_window.screen() ? m_window.screen() : QGuiApplication::primaryScreen();
    return screen ? std::optional(screen->availableGeometry()) : std::nullopt;
}

void PanelPlacement::handleZoomButton()
{
    const std::optional<QRect> area = visibleArea();
    if (!m_isZoomedLarge) {
        const QRect frame = targetFrame();
        m_placementBeforeZoom = frame == fittedFrame(m_placement) ? m_placement : Placement{frame};
        if (area) {
            m_placement = Placement{frame, OverlayGeometry::Keep::Panel, true};
            animateTo(*area);
        }
        m_isZoomedLarge = true;
        log(QStringLiteral("Zoom button — grew to fill the current screen's visible frame"));
    } else {
        m_placement = m_placementBeforeZoom.value_or(
            Placement{OverlayGeometry::restoredFrame(std::nullopt, area)});
        animateTo(fittedFrame(m_placement));
        m_isZoomedLarge = false;
        m_placementBeforeZoom.reset();
        log(QStringLiteral("Zoom button — restored to prior frame"));
    }
}

QRect PanelPlacement::targetFrame() const
{
    return m_animation.state() == QAbstractAnimation::Running ? m_animation.endValue().toRect()
                                                              : m_window.geometry();
}

void PanelPlacement::animateTo(const QRect &frame)
{
    m_animation.stop();
    if (!m_window.isVisible()) {
        m_window.setGeometry(frame);
        return;
    }
    m_animation.setStartValue(m_window.geometry());
    m_animation.setEndValue(frame);
    m_animation.start();
}

} // namespace quellora
