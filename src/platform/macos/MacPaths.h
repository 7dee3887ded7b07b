#pragma once

#include "platform/Platform.h"

/// Paths on macOS.
namespace quellora::MacPaths {

/// `~/Library/Application Support`.
QString applicationSupportDirectory();

/// The system's capture program, silent and with the pointer in the picture.
CaptureTool captureTool();

} // namespace quellora::MacPaths
