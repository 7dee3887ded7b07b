#pragma once

#include "platform/Platform.h"

/// Paths on Linux.
namespace quellora::LinuxPaths {

/// `$XDG_DATA_HOME` if it is an absolute path, otherwise `~/.local/share`.
QString applicationSupportDirectory();

/// The capture program in the directory of the running executable.
CaptureTool captureTool();

} // namespace quellora::LinuxPaths
