#pragma once

#include "CapturePlan.h"
#include "XConnection.h"

#include <vector>

namespace quellora::screencapture {

/// A window or subwindow with the region that shows its own contents.
struct WindowPart
{
    xcb_window_t window = XCB_WINDOW_NONE;
    /// Inner origin in root window coordinates.
    int originX = 0;
    int originY = 0;
    /// Pixels of the window itself, without borders and children; root window coordinates.
    Region own;
    /// Whether a program selects Expose events on it.
    bool drawnOnExpose = false;
};

/// Splits @p region of @p topLevel among its subwindows. Beyond a limit, subwindows count as part
/// of their parents.
std::vector<WindowPart> readWindowParts(const XConnection &x, const TopLevel &topLevel,
                                        const Region &region);

} // namespace quellora::screencapture
