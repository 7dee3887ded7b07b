#pragma once

#include "Canvas.h"
#include "ExitStatus.h"

#include <tl/expected.hpp>

#include <functional>

namespace quellora::screencapture {

/// Takes a picture of the screen with the pointer, or of all screens, without our windows and
/// passes it to @p consume, which runs after the server grab has been released.
/// @return NoDisplay, ScreenUnreadable, NoComposite, ImageTooLarge, or what @p consume returns
tl::expected<void, Failure>
captureScreen(bool includeCursor, bool allScreens,
              const std::function<tl::expected<void, Failure>(const Canvas &)> &consume);

} // namespace quellora::screencapture
