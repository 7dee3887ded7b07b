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

/// A set of pixels, held as rectangles that do not overlap. Every operation costs the product of
/// the rectangle counts, which are small here; bounded() keeps hostile shapes from growing it.
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

/// The monitor to take a picture of: the one with the pointer, the largest where monitors show the
/// same place; the nearest when the pointer is on none; the first when it is on another display.
/// Within the root window, and all of it when no monitor is known.
/// @param pointer position in root window coordinates, width and height 1; empty when unknown
Rect pointedMonitor(int rootWidth, int rootHeight, std::span<const Rect> monitors,
                    const Rect &pointer);

/// The corners of @p area that no monitor shows (monitors of different sizes side by side).
Region unseenRegion(const Rect &area, std::span<const Rect> monitors);

} // namespace quellora::screencapture
