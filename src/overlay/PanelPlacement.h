#pragma once

#include "app/VantiroConfig.h"

#include <QRect>
#include <QVariantAnimation>

#include <optional>

class QWindow;

namespace quellora {

/// Where the panel stands: its first position, and the frame before and after the zoom button.
/// Points, main thread only.
class PanelPlacement : public QObject
{
    Q_OBJECT
public:
    /// @param window the panel; must outlive this object
    PanelPlacement(QWindow &window, const VantiroConfig::Overlay &overlay,
                   QObject *parent = nullptr);

    /// Sizes the panel and moves it to its place on the main screen; logs where.
    void placeInitially();
    /// Grows the panel to its screen's visible area, or restores the frame from before.
    void handleZoomButton();
    bool isZoomedLarge() const { return m_isZoomedLarge; }
    /// The frame that the window has or is moving to.
    QRect targetFrame() const;

Q_SIGNALS:
    void isZoomedLargeChanged(bool isZoomedLarge);

private:
    std::optional<QRect> visibleArea() const;
    void moveTo(const QRect &frame);

    QWindow &m_window;
    VantiroConfig::Overlay m_overlay;
    QVariantAnimation m_animation;
    std::optional<QRect> m_priorFrameBeforeZoom;
    bool m_isZoomedLarge = false;
};

} // namespace quellora
