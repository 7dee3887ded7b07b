#pragma once

#include "Canvas.h"
#include "CommandLine.h"
#include "ExitStatus.h"

#include <tl/expected.hpp>

#include <functional>

namespace quellora::screencapture {

/// Takes a picture of the screen with the pointer, of all screens or of the window in front,
/// without our windows and passes it to @p consume, which runs after the server grab has been
/// released.
/// @return NoDisplay, NoWindow, ScreenUnreadable, NoComposite, ImageTooLarge, or what @p consume
/// returns
tl::expected<void, Failure>
captureScreen(bool includeCursor, Options::Area wanted,
              const std::function<tl::expected<void, Failure>(const Canvas &)> &consume);

} // namespace quellora::screencapture
