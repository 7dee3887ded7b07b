#pragma once

#include "Geometry.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace quellora::screencapture {

/// A viewable child of the root window at the time of the capture.
struct TopLevel
{
    std::uint32_t window = 0;
    std::uint32_t visual = 0;
    int depth = 24;
    /// With the border, in root window coordinates.
    Rect rect;
    int borderWidth = 0;
    /// Bounding shape in root window coordinates, rectangles that do not overlap.
    std::vector<Rect> shape;
    /// 255 is opaque.
    std::uint32_t opacity = 255;
    /// One of our windows, left out of the picture.
    bool excluded = false;

    /// The window without its border.
    Rect innerRect() const { return rect.inflated(-borderWidth); }
    bool hasAlpha() const { return depth == 32; }
};

/// One window's part of the area to recompose.
struct PlannedLayer
{
    /// Position in the list given to planCapture().
    std::size_t index = 0;
    /// The pixels to draw, in root window coordinates.
    Region visible;
    /// The pixels of `visible` that one of our windows covers.
    Region obscured;
    /// Whether to apply opacity and alpha; otherwise pixels are copied.
    bool blended = false;
};

/// How to get a picture of the screen without our windows.
struct CapturePlan
{
    /// The area to recompose from window contents; empty when the screen can be used as it is.
    Region patch;
    /// Bottom to top.
    std::vector<PlannedLayer> layers;
    /// Where the desktop's background shows.
    Region background;
};

/// Whether a window belongs to the server itself, such as the composite overlay or the screen
/// saver: its id has no client bits. Some servers list such windows among the root window's
/// children.
constexpr bool isServerId(std::uint32_t window, std::uint32_t resourceIdMask)
{
    return (window & ~resourceIdMask) == 0;
}

/// How far beyond our windows the picture is recomposed when a compositor is running: it may draw
/// shadows around them, and its last frame may show them at a slightly different place.
inline constexpr int compositorMargin = 64;

/// Plans the picture of @p area.
/// @param windows bottom to top
/// @param compositing whether a compositor is running; alpha and opacity are ignored otherwise
CapturePlan planCapture(std::span<const TopLevel> windows, const Rect &area, bool compositing);

} // namespace quellora::screencapture
