#pragma once

#include "CapturePlan.h"
#include "XConnection.h"

#include <optional>

namespace quellora::screencapture {

/// Contents that stand for the desktop's background.
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

/// What the server itself paints where no window lies, for @p bounds: an invisible window that
/// shares the root window's background is filled with it. Without a compositor only; the server
/// must be grabbed, so that window managers never meet the window.
std::optional<RootBackground> paintedBackground(const XConnection &x, const Rect &bounds);

} // namespace quellora::screencapture
