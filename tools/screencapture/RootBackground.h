#pragma once

#include "CapturePlan.h"
#include "XConnection.h"

#include <optional>

namespace quellora::screencapture {

/// A picture of the desktop's background.
struct RootBackground
{
    xcb_pixmap_t pixmap = XCB_PIXMAP_NONE;
    /// The pixmap's size and its place in the root window.
    Rect rect;
    /// Whether it repeats from the root window's origin.
    bool tiled = false;
};

/// The pixmap that the desktop's background program has published in _XROOTPMAP_ID.
/// @return nothing when there is none, it has been freed, or it has another depth than the root
std::optional<RootBackground> publishedBackground(const XConnection &x);

/// What the server paints in @p bounds of the root window, captured by an invisible window with the
/// same background. Only without a compositor. The server must be grabbed, so that window managers
/// do not see the window.
std::optional<RootBackground> paintedBackground(const XConnection &x, const Rect &bounds);

} // namespace quellora::screencapture
