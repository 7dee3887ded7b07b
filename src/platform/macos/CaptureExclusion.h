#pragma once

#include "platform/Platform.h"

namespace quellora {

/// The outcome of excluding a window from captures.
/// @param isAccepted whether the system accepted the request
/// @param majorVersion of macOS
Capability captureExclusion(bool isAccepted, int majorVersion);

} // namespace quellora
