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
    // Several changes at once are one; by then all screens are known.
    m_refit.setSingleShot(true);
    m_refit.setInterval(0);
    connect(&m_refit, &QTimer::timeout, this, &PanelPlacement::refit);
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens)
        followScreen(screen);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, [this](QScreen *screen) {
        followScreen(screen);
        m_refit.start();
    });
    connect(qGuiApp, &QGuiApplication::screenRemoved, this, [this] { m_refit.start(); });
}

void PanelPlacement::followScreen(QScreen *screen)
{
    const auto changed = [this] { m_refit.start(); };
    connect(screen, &QScreen::geometryChanged, this, changed);
    connect(screen, &QScreen::availableGeometryChanged, this, changed);
}

void PanelPlacement::placeInitially()
{
    m_window.resize(qRound(m_overlay.width), qRound(m_overlay.height));
    m_place = Place{m_window.geometry()};
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen) {
        log(QStringLiteral("WARNING: NSScreen.main unavailable, using default origin"));
        m_window.setPosition(0, 0);
        return;
    }
    const QRect area = screen->availableGeometry();
    m_place.frame.moveTopLeft(
        OverlayGeometry::initialPosition(area, {m_overlay.x, m_overlay.y}, m_window.size()));
    m_window.setGeometry(frameOf(m_place));
    log(QStringLiteral("Positioned at (%1, %2) on screen (%3, %4, %5, %6)")
            .arg(decimalText(area.x() + m_overlay.x), decimalText(area.y() + m_overlay.y),
                 decimalText(area.x()), decimalText(area.y()), decimalText(area.width()),
                 decimalText(area.height())));
}

QRect PanelPlacement::frameOf(const Place &place) const
{
    if (const std::optional<QRect> area = place.fillsScreen ? visibleArea() : std::nullopt)
        return *area;
    QList<QRect> areas;
    QList<QScreen *> screens = QGuiApplication::screens();
    // Where two are equally near, the main one.
    std::stable_partition(screens.begin(), screens.end(), [](const QScreen *screen) {
        return screen == QGuiApplication::primaryScreen();
    });
    for (const QScreen *screen : std::as_const(screens))
        areas.append(screen->availableGeometry());
    return OverlayGeometry::fitted(place.frame, place.keep, areas);
}

PanelPlacement::Place PanelPlacement::placeAt(const QRect &frame) const
{
    Place place{frame};
    if (frameOf(place) == frame)
        return place;
    // Part of it hangs over the edge: it may stay so.
    place.keep = OverlayGeometry::Keep::Bar;
    place.frame = frameOf(place);
    return place;
}

void PanelPlacement::placedByUser(const QRect &frame)
{
    m_animation.stop();
    m_place = placeAt(frame);
    if (frameOf(m_place) != frame)
        keepIn(frameOf(m_place));
}

void PanelPlacement::keepOnScreen()
{
    const Place now{targetFrame(), OverlayGeometry::Keep::Bar};
    if (frameOf(now) != now.frame)
        refit();
}

void PanelPlacement::refit()
{
    if (const QRect frame = frameOf(m_place); frame != targetFrame())
        keepIn(frame);
}

void PanelPlacement::keepIn(const QRect &frame)
{
    moveTo(frame);
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
        m_priorFrameBeforeZoom = frame == frameOf(m_place) ? m_place : Place{frame};
        if (area) {
            m_place = Place{frame, OverlayGeometry::Keep::Panel, true};
            moveTo(*area);
        }
        m_isZoomedLarge = true;
        log(QStringLiteral("Zoom button — grew to fill the current screen's visible frame"));
    } else {
        m_place = m_priorFrameBeforeZoom.value_or(
            Place{OverlayGeometry::restoredFrame(std::nullopt, area)});
        moveTo(frameOf(m_place));
        m_isZoomedLarge = false;
        m_priorFrameBeforeZoom.reset();
        log(QStringLiteral("Zoom button — restored to prior frame"));
    }
}

QRect PanelPlacement::targetFrame() const
{
    return m_animation.state() == QAbstractAnimation::Running ? m_animation.endValue().toRect()
                                                              : m_window.geometry();
}

void PanelPlacement::moveTo(const QRect &frame)
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
