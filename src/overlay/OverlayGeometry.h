#pragma once

#include <QList>
#include <QPoint>
#include <QRect>
#include <QRectF>
#include <QSize>
#include <QSizeF>

#include <optional>

namespace quellora {

/// Fixed measures and rectangles of the overlay, in points. y grows downward unless said otherwise.
struct OverlayGeometry
{
    static constexpr int minWindowWidth = 320;
    static constexpr int minWindowHeight = 280;
    static constexpr int defaultZoomOutWidth = 624;
    static constexpr int defaultZoomOutHeight = 744;
    static constexpr double barH = 34;
    static constexpr double stripH = 38;
    static constexpr double responseScrollbarWidth = 28;
    static constexpr double leftBorderWidth = 4;
    static constexpr double compactBelowWidth = 440;
    static constexpr double compactBelowHeight = 420;

    /// The area of the answer, whose pointer events go to the application underneath.
    static QRectF responseRect(const QSizeF &window, double bottomPanelsHeight);
    /// Height that the bottom panels may share with the answer.
    static double availablePanelsHeight(const QSizeF &window);
    static bool isCompact(const QSizeF &window);
    /// Top-left corner of a panel whose lower-left corner lies at @p offset from the lower-left
    /// corner of the screen's visible area, x rightward and y upward.
    static QPoint initialPosition(const QRect &visibleArea, const QPointF &offset,
                                  const QSize &window);
    /// What must be on a screen.
    enum class Keep {
        /// The whole panel, as far as a screen holds one of the minimum size.
        Panel,
        /// The control bar: the user lets the rest hang over the screen's edge.
        Bar,
    };
    /// The frame nearest to @p frame, by movement and shrinking together, that lies on one of the
    /// screens. It moves in by as little as needed; a panel larger than the screen shrinks, down to
    /// the minimum size, and only then sticks out at the right and at the bottom.
    /// @param visibleAreas of the screens, the preferred one first; empty leaves the frame as it is
    static QRect fitted(const QRect &frame, Keep keep, const QList<QRect> &visibleAreas);
    /// Frame after un-zooming: the remembered one, else the built-in size in the middle of the
    /// visible area, else at the origin when there is no screen.
    static QRect restoredFrame(const std::optional<QRect> &priorFrame,
                               const std::optional<QRect> &visibleArea);
    /// @p frame with some of its edges moved by @p delta, never smaller than the minimum size; the
    /// opposite edges stay where they are.
    static QRect resized(const QRect &frame, Qt::Edges edges, const QPoint &delta);
};

} // namespace quellora
