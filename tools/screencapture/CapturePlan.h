#pragma once

#include "Geometry.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace quellora::screencapture {

/// A viewable child of the root window, as it stood when the picture was taken.
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
    /// One of ours: stays out of the picture.
    bool excluded = false;

    /// The window without its border.
    Rect innerRect() const { return rect.inflated(-borderWidth); }
    bool hasAlpha() const { return depth == 32; }
};

/// One window's share in the part of the picture that must be put together anew.
struct PlannedLayer
{
    /// Position in the list given to planCapture().
    std::size_t index = 0;
    /// The pixels to draw, in root window coordinates.
    Region visible;
    /// The pixels of `visible` that one of our windows lies upon.
    Region obscured;
    /// Whether opacity and alpha count; otherwise pixels are copied.
    bool blended = false;
};

/// How to get a picture of the screen without our windows.
struct CapturePlan
{
    /// The part to put together from window contents; empty when the screen can be taken as it is.
    Region patch;
    /// Bottom to top.
    std::vector<PlannedLayer> layers;
    /// Where the desktop's background shows.
    Region background;
};

/// Whether a window id is one of the server's own, without a client's bits: a compositor's overlay
/// or the screen saver. Some servers list such windows among the root window's children; they are
/// no part of the stack that a picture is put together from.
constexpr bool isServerId(std::uint32_t window, std::uint32_t resourceIdMask)
{
    return (window & ~resourceIdMask) == 0;
}

/// How far beyond our windows the picture is put together anew when a compositor is running:
/// it may draw shadows around them, and its last frame may show them slightly elsewhere.
inline constexpr int compositorMargin = 64;

/// Plans the picture of @p area.
/// @param windows bottom to top
/// @param compositing whether a compositor draws the screen. Without one, alpha and opacity have
/// no effect on the screen and therefore none in the picture.
CapturePlan planCapture(std::span<const TopLevel> windows, const Rect &area, bool compositing);

} // namespace quellora::screencapture
