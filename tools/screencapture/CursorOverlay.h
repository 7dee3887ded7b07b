#pragma once

#include "Canvas.h"
#include "XConnection.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace quellora::screencapture {

/// The mouse cursor as the display server shows it.
struct CursorPicture
{
    /// Premultiplied 0xAARRGGBB words, without padding.
    std::vector<std::uint32_t> pixels;
    /// In root window coordinates.
    Rect rect;
};

/// @return nothing without the XFixes extension
std::optional<CursorPicture> readCursor(const XConnection &x);

/// Blends the cursor over the picture, clipped to it.
void drawCursor(const Canvas &canvas, const CursorPicture &cursor);

} // namespace quellora::screencapture
