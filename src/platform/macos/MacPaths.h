#pragma once

#include "platform/Platform.h"

/// Where things lie on macOS.
namespace quellora::MacPaths {

/// `~/Library/Application Support`.
QString applicationSupportDirectory();

/// The system's own capture program, without its sound and with the pointer.
CaptureTool captureTool();

} // namespace quellora::MacPaths
