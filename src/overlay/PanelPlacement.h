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

/// Positions the panel: initial placement, zooming, and moving it back onto a screen when screens
/// change. Remembers the requested frame and restores it when a disconnected screen returns. All
/// frames are in points. Main thread only.
class PanelPlacement : public QObject
{
    Q_OBJECT
public:
    /// @param window the panel; must outlive this object
    PanelPlacement(QWindow &window, const VantiroConfig::Overlay &overlay,
                   QObject *parent = nullptr);

    /// Sizes the panel and moves it to its configured position on the primary screen, or as close
    /// to it as the screen allows. Logs the position.
    void placeInitially();
    /// Moves the panel to @p frame, adjusted so that the control bar is on a screen. Logs the
    /// position.
    void restore(const QRect &frame);
    /// Leaves the panel where its running animation has brought it, for the user who moves it.
    void stopMoving() { m_animation.stop(); }
    /// Remembers @p frame, to which the user has moved or resized the panel, adjusted so that the
    /// control bar is on a screen.
    void setUserFrame(const QRect &frame);
    /// Moves the panel back if its control bar is not on a screen.
    void keepOnScreen();
    /// Toggles between the screen's available area and the frame before zooming.
    void handleZoomButton();
    /// The requested frame; that before zooming while the panel fills the screen.
    QRect requestedFrame() const { return m_placement.frame; }
    /// The end frame of the running animation, else the window's frame.
    QRect targetFrame() const;

Q_SIGNALS:
    /// The user has moved or resized the panel.
    void userFrameChanged();
    /// The screens have changed; emitted before the panel is moved because of it.
    void screensChanged();

private:
    struct Placement
    {
        QRect frame;
        OverlayGeometry::Keep keep = OverlayGeometry::Keep::Panel;
        /// Use the available area of the panel's screen instead of the frame.
        bool fillsScreen = false;
    };

    /// Available area of the panel's screen; nullopt without a screen.
    std::optional<QRect> visibleArea() const;
    void watchScreen(QScreen *screen);
    /// The frame for @p placement on the current screens.
    QRect fittedFrame(const Placement &placement) const;
    /// A placement that keeps @p frame if possible, with only the control bar visible if needed.
    Placement placementFor(const QRect &frame) const;
    /// Moves the window to the fitted frame of the requested placement.
    void refit();
    /// Moves the window and logs that it was moved back onto a screen.
    void moveOntoScreen(const QRect &frame);
    /// Animates a visible window; moves a hidden one at once.
    void animateTo(const QRect &frame);

    QWindow &m_window;
    VantiroConfig::Overlay m_overlay;
    QVariantAnimation m_animation;
    /// The requested placement; the window differs from it while it does not fit on a screen.
    Placement m_placement;
    std::optional<Placement> m_placementBeforeZoom;
    QTimer m_refitTimer;
    bool m_isZoomedLarge = false;
};

} // namespace quellora
