#pragma once

#include "Geometry.h"
#include "XConnection.h"

#include <optional>

namespace quellora::screencapture {

/// The place of the window in front, with its frame but without a shadow that the program draws
/// itself: the active one, else the topmost ordinary window, never one of ours.
/// @return nothing when no such window is on the screen
std::optional<Rect> frontWindow(const XConnection &x);

} // namespace quellora::screencapture
