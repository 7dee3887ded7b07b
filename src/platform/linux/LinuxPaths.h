#pragma once

#include "platform/Platform.h"

/// Where things lie on Linux.
namespace quellora::LinuxPaths {

/// `$XDG_DATA_HOME` when it is an absolute path, else `~/.local/share`.
QString applicationSupportDirectory();

/// The capture program beside the running one.
CaptureTool captureTool();

} // namespace quellora::LinuxPaths
