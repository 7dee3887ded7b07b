#pragma once

#include "platform/Platform.h"

namespace quellora {

/// What keeping a window out of captures has come to.
/// @param isTaken whether the system took the request
/// @param majorVersion of the system
Capability captureExclusion(bool isTaken, int majorVersion);

} // namespace quellora
