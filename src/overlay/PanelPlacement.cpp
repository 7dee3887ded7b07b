#include "overlay/PanelPlacement.h"

#include "app/Log.h"
#include "app/Text.h"
#include "overlay/ui/OverlayGeometry.h"

#include <QEasingCurve>
#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

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
}

void PanelPlacement::placeInitially()
{
    m_window.resize(qRound(m_overlay.width), qRound(m_overlay.height));
    const QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen) {
        log(QStringLiteral("WARNING: NSScreen.main unavailable, using default origin"));
        m_window.setPosition(0, 0);
        return;
    }
    const QRect area = screen->availableGeometry();
    m_window.setPosition(
        OverlayGeometry::initialPosition(area, {m_overlay.x, m_overlay.y}, m_window.size()));
    log(QStringLiteral("Positioned at (%1, %2) on screen (%3, %4, %5, %6)")
            .arg(decimalText(area.x() + m_overlay.x), decimalText(area.y() + m_overlay.y),
                 decimalText(area.x()), decimalText(area.y()), decimalText(area.width()),
                 decimalText(area.height())));
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
        m_priorFrameBeforeZoom = targetFrame();
        if (area)
            moveTo(*area);
        m_isZoomedLarge = true;
        log(QStringLiteral("Zoom button — grew to fill the current screen's visible frame"));
    } else {
        moveTo(OverlayGeometry::restoredFrame(m_priorFrameBeforeZoom, area));
        m_isZoomedLarge = false;
        m_priorFrameBeforeZoom.reset();
        log(QStringLiteral("Zoom button — restored to prior frame"));
    }
    Q_EMIT isZoomedLargeChanged(m_isZoomedLarge);
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
