#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace quellora::screencapture {

/// Rectangle in device pixels; x grows to the right, y downwards.
struct Rect
{
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    int right() const { return x + width; }
    int bottom() const { return y + height; }
    bool isEmpty() const { return width <= 0 || height <= 0; }
    Rect translated(int dx, int dy) const { return {x + dx, y + dy, width, height}; }
    /// Grown by @p margin pixels on every side.
    Rect inflated(int margin) const;

    bool operator==(const Rect &) const = default;
};

/// The common part; empty (width and height 0) when there is none.
Rect intersected(const Rect &a, const Rect &b);

/// A set of pixels, stored as rectangles that do not overlap. The cost of an operation is the
/// product of the numbers of rectangles, which are small here; bounded() limits hostile shapes.
class Region
{
public:
    Region() = default;
    explicit Region(const Rect &rect) { unite(rect); }

    bool isEmpty() const { return m_rects.empty(); }
    std::span<const Rect> rects() const { return m_rects; }
    /// The smallest rectangle around everything.
    Rect bounds() const;

    void unite(const Rect &rect);
    void unite(const Region &other);
    void subtract(const Rect &rect);
    void subtract(std::span<const Rect> rects);
    Region intersected(const Rect &rect) const;
    Region intersected(std::span<const Rect> disjointRects) const;
    /// This region, or its bounds when it has more than @p maximumRects rectangles.
    Region bounded(std::size_t maximumRects) const;

private:
    std::vector<Rect> m_rects;
};

/// The part of the root window that belongs to monitors: the bounding box of all of them within
/// the root window, or the whole root window when no monitor is known.
Rect captureArea(int rootWidth, int rootHeight, std::span<const Rect> monitors);

/// The monitor to capture, clipped to the root window: the one with the pointer (the largest of
/// mirrored monitors), else the nearest; the first one when the pointer is unknown; the whole root
/// window when no monitor is known.
/// @param pointer position in root window coordinates, width and height 1; empty when unknown
Rect pointedMonitor(int rootWidth, int rootHeight, std::span<const Rect> monitors,
                    const Rect &pointer);

/// The parts of @p area that no monitor shows, as with monitors of different sizes side by side.
Region unseenRegion(const Rect &area, std::span<const Rect> monitors);

} // namespace quellora::screencapture
