#include "overlay/OverlayGeometry.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace quellora {

namespace {

/// Line height of the strip's controls.
constexpr double stripLine = 16;
/// Share of the layout that text takes: how much the compact thresholds follow the text size.
constexpr double textShare = 0.6;

} // namespace

double OverlayGeometry::scaledStripHeight(double textScale)
{
    return stripHeight + std::max(std::round(stripLine * textScale) - stripLine, 0.0);
}

QRectF OverlayGeometry::responseRect(const QSizeF &window, double bottomPanelsHeight,
                                     double textScale)
{
    const double height =
        std::max(availablePanelsHeight(window, textScale) - bottomPanelsHeight, 0.0);
    return {0, window.height() - bottomPanelsHeight - height,
            std::max(window.width() - responseScrollbarWidth, 0.0), height};
}

double OverlayGeometry::availablePanelsHeight(const QSizeF &window, double textScale)
{
    return std::max(window.height() - barHeight - scaledStripHeight(textScale), 0.0);
}

bool OverlayGeometry::isCompact(const QSizeF &window, double textScale)
{
    const double growth = 1 + textShare * (std::max(textScale, 1.0) - 1);
    return window.width() < compactBelowWidth * growth ||
           window.height() < compactBelowHeight * growth;
}

QPoint OverlayGeometry::initialPosition(const QRect &visibleArea, const QPointF &offset,
                                        const QSize &window)
{
    return {visibleArea.x() + qRound(offset.x()),
            visibleArea.y() + visibleArea.height() - qRound(offset.y()) - window.height()};
}

QRect OverlayGeometry::fitted(const QRect &frame, Keep keep, const QList<QRect> &visibleAreas)
{
    const auto fittedTo = [&](const QRect &area) {
        const int width = std::min(frame.width(), std::max(area.width(), minWindowWidth));
        const int height = std::min(frame.height(), std::max(area.height(), minWindowHeight));
        const int requiredHeight = keep == Keep::Panel ? height : qRound(barHeight);
        // Clamp left and top last, so a frame that does not fit overflows at the right and bottom.
        const int x = std::max(std::min(frame.x(), area.x() + area.width() - width), area.x());
        const int y =
            std::max(std::min(frame.y(), area.y() + area.height() - requiredHeight), area.y());
        return QRect(x, y, width, height);
    };
    const auto cost = [&](const QRect &other) {
        return std::abs(other.x() - frame.x()) + std::abs(other.y() - frame.y()) + frame.width() -
               other.width() + frame.height() - other.height();
    };
    QRect best = frame;
    for (qsizetype i = 0; i < visibleAreas.size(); ++i) {
        const QRect candidate = fittedTo(visibleAreas.at(i));
        if (i == 0 || cost(candidate) < cost(best))
            best = candidate;
    }
    return best;
}

QRect OverlayGeometry::restoredFrame(const std::optional<QRect> &priorFrame,
                                     const std::optional<QRect> &visibleArea)
{
    if (priorFrame)
        return *priorFrame;
    QRect frame(0, 0, defaultZoomOutWidth, defaultZoomOutHeight);
    if (visibleArea)
        frame.moveCenter(visibleArea->center());
    return frame;
}

QRect OverlayGeometry::resized(const QRect &frame, Qt::Edges edges, const QPoint &delta)
{
    int left = frame.x();
    int top = frame.y();
    int right = frame.x() + frame.width();
    int bottom = frame.y() + frame.height();
    if (edges.testFlag(Qt::LeftEdge))
        left = std::min(left + delta.x(), right - minWindowWidth);
    else if (edges.testFlag(Qt::RightEdge))
        right = std::max(right + delta.x(), left + minWindowWidth);
    if (edges.testFlag(Qt::TopEdge))
        top = std::min(top + delta.y(), bottom - minWindowHeight);
    else if (edges.testFlag(Qt::BottomEdge))
        bottom = std::max(bottom + delta.y(), top + minWindowHeight);
    return {left, top, right - left, bottom - top};
}

} // namespace quellora
