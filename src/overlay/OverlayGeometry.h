#pragma once

#include <QList>
#include <QPoint>
#include <QRect>
#include <QRectF>
#include <QSize>
#include <QSizeF>

#include <optional>

namespace quellora {

/// Layout constants and geometry of the overlay, in points, with y downward unless stated
/// otherwise. The constants are those of the normal text size.
struct OverlayGeometry
{
    static constexpr int minWindowWidth = 320;
    static constexpr int minWindowHeight = 280;
    static constexpr int defaultZoomOutWidth = 624;
    static constexpr int defaultZoomOutHeight = 744;
    static constexpr double barHeight = 34;
    static constexpr double stripHeight = 38;
    static constexpr double responseScrollbarWidth = 28;
    static constexpr double compactBelowWidth = 440;
    static constexpr double compactBelowHeight = 420;

    /// The answer's rectangle in the window, which clicks pass through.
    /// @param textScale factor of the text size, here and below
    static QRectF responseRect(const QSizeF &window, double bottomPanelsHeight,
                               double textScale = 1);
    /// Height of the strip with its text.
    static double scaledStripHeight(double textScale);
    /// Height shared by the answer and the bottom panels.
    static double availablePanelsHeight(const QSizeF &window, double textScale = 1);
    /// Whether the window is too small for the full layout; larger text needs a larger window.
    static bool isCompact(const QSizeF &window, double textScale = 1);
    /// Top-left corner of a panel whose bottom-left corner is at @p offset from the bottom-left
    /// corner of the screen's available area. In @p offset, y grows upward.
    static QPoint initialPosition(const QRect &visibleArea, const QPointF &offset,
                                  const QSize &window);
    /// The part of the panel that must be on a screen.
    enum class Keep {
        /// The whole panel, if the screen has room for the minimum size.
        Panel,
        /// Only the control bar: the user has moved the rest off the screen's bottom edge.
        Bar,
    };
    /// Moves @p frame onto the screen that needs the least change, i.e. the smallest sum of
    /// distance moved and size lost. A frame larger than the screen shrinks to fit, down to the
    /// minimum size, and then overflows at the right and bottom.
    /// @param visibleAreas available areas of the screens; ties go to the first. If empty, returns
    ///        @p frame unchanged.
    static QRect fitted(const QRect &frame, Keep keep, const QList<QRect> &visibleAreas);
    /// Frame after un-zooming: @p priorFrame, else the default size centred in the available area,
    /// else the default size at the origin if there is no screen.
    static QRect restoredFrame(const std::optional<QRect> &priorFrame,
                               const std::optional<QRect> &visibleArea);
    /// @p frame with @p edges moved by @p delta, but not below the minimum size. The opposite edges
    /// do not move.
    static QRect resized(const QRect &frame, Qt::Edges edges, const QPoint &delta);
};

} // namespace quellora
