#pragma once

#include "CapturePlan.h"
#include "XConnection.h"

#include <optional>
#include <vector>

namespace quellora::screencapture {

/// Reads the viewable children of the root window, bottom to top, without InputOnly windows and
/// windows of the server itself. Windows that vanish meanwhile are left out.
///
/// A child is excluded when it or a subwindow has _QUELLORA_CAPTURE_EXCLUDE with value 1: a window
/// manager's frame is treated like the client in it. The search is breadth-first, with limits on
/// depth and number.
/// @param compositing whether a compositor is running; opacities are read only then
/// @return an empty list when no viewable window is excluded; nothing when the server does not
/// answer
std::optional<std::vector<TopLevel>> readWindowStack(const XConnection &x, bool compositing);

/// Whether a compositor is running.
bool isCompositorRunning(const XConnection &x);

/// The monitors' places in the root window, empty when unknown.
std::vector<Rect> readMonitors(const XConnection &x);

} // namespace quellora::screencapture
