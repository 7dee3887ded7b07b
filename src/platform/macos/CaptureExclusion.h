#pragma once

#include "platform/Platform.h"

namespace quellora {

/// The outcome of excluding a window from captures.
/// @param isTaken whether the system accepted the request
/// @param majorVersion of macOS
Capability captureExclusion(bool isTaken, int majorVersion);

} // namespace quellora
