#pragma once

#include "Geometry.h"
#include "PixelFormat.h"

#include <cstddef>
#include <cstdint>

namespace quellora::screencapture {

/// The picture being composed: a view of 32-bit words 0x??RRGGBB (the top byte is ignored) that
/// covers
/// @p area of the root window. All drawing is clipped to it.
struct Canvas
{
    std::uint32_t *pixels = nullptr;
    /// In root window coordinates.
    Rect area;
    /// Words from one line to the next.
    std::size_t stride = 0;

    std::uint32_t *at(int x, int y) const
    {
        return pixels + static_cast<std::size_t>(y - area.y) * stride +
               static_cast<std::size_t>(x - area.x);
    }
};

/// Pixels of one drawable as the display server sent them.
struct SourceImage
{
    const std::byte *data = nullptr;
    std::size_t bytesPerLine = 0;
    PixelFormat format;
    /// In root window coordinates.
    Rect rect;

    const std::byte *at(int x, int y) const
    {
        return data + static_cast<std::size_t>(y - rect.y) * bytesPerLine +
               static_cast<std::size_t>(x - rect.x) * format.bytesPerPixel();
    }
};

/// Composes @p source over the backdrop: premultiplied colours, "over" operator, each product
/// rounded to nearest as the Render extension does. Sums beyond 255 (colour greater than alpha)
/// saturate.
/// @param opacity 0..255, multiplied into colour and alpha first
std::uint32_t blendOver(std::uint32_t backdrop, std::uint32_t source, std::uint32_t opacity);

/// Copies @p source inside @p clip, ignoring alpha.
void drawOpaque(const Canvas &canvas, const SourceImage &source, const Region &clip);

/// Blends @p source inside @p clip.
void drawBlended(const Canvas &canvas, const SourceImage &source, const Region &clip,
                 std::uint32_t opacity);

/// Fills @p clip with one colour 0x??RRGGBB.
void fillRegion(const Canvas &canvas, const Region &clip, std::uint32_t colour);

/// Repeats @p tile, anchored at the root window's origin, over @p clip. The tile's own position is
/// ignored.
void drawTiled(const Canvas &canvas, const SourceImage &tile, const Region &clip);

/// The most frequent colour on a coarse grid inside @p region; 0 for an empty region.
std::uint32_t dominantColour(const Canvas &canvas, const Region &region);

} // namespace quellora::screencapture
