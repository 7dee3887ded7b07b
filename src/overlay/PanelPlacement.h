#pragma once

#include "base/VantiroConfig.h"
#include "overlay/OverlayGeometry.h"

#include <QRect>
#include <QTimer>
#include <QVariantAnimation>

#include <optional>

class QScreen;
class QWindow;

namespace quellora {

/// Where the panel stands: its first position, the frame before and after the zoom button, and the
/// nearest place on a screen when there is none where it should be. It remembers where it was put,
/// and goes back there when a screen that was missing returns. Points, main thread only.
class PanelPlacement : public QObject
{
    Q_OBJECT
public:
    /// @param window the panel; must outlive this object
    PanelPlacement(QWindow &window, const VantiroConfig::Overlay &overlay,
                   QObject *parent = nullptr);

    /// Sizes the panel and moves it to its place on the main screen, or as near to it as the screen
    /// allows; logs where.
    void placeInitially();
    /// The user has moved or resized the panel to @p frame: that is its place from now on, with the
    /// control bar on a screen.
    void placedByUser(const QRect &frame);
    /// Brings the panel back when its control bar is not on a screen.
    void keepOnScreen();
    /// Grows the panel to its screen's visible area, or restores the frame from before.
    void handleZoomButton();
    /// The frame that the window has or is moving to.
    QRect targetFrame() const;

private:
    struct Place
    {
        QRect frame;
        OverlayGeometry::Keep keep = OverlayGeometry::Keep::Panel;
        /// The visible area of the screen it is on, instead of the frame.
        bool fillsScreen = false;
    };

    std::optional<QRect> visibleArea() const;
    void followScreen(QScreen *screen);
    QRect frameOf(const Place &place) const;
    Place placeAt(const QRect &frame) const;
    void refit();
    void keepIn(const QRect &frame);
    void moveTo(const QRect &frame);

    QWindow &m_window;
    VantiroConfig::Overlay m_overlay;
    QVariantAnimation m_animation;
    /// Where it should be.
    Place m_place;
    std::optional<Place> m_priorFrameBeforeZoom;
    QTimer m_refit;
    bool m_isZoomedLarge = false;
};

} // namespace quellora
