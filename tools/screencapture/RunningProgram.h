#pragma once

#include "Canvas.h"
#include "CommandLine.h"
#include "ExitStatus.h"

#include <tl/expected.hpp>

#include <functional>
#include <optional>
#include <string>

namespace quellora::screencapture {

/// Pictures in a Wayland session while the program runs: it alone can leave its panel out. It is
/// asked over the socket on which it hears of further starts.

/// The name that the running program gives this session: that of the compositor's socket, relative
/// to the user's runtime folder. Nothing if no compositor listens.
std::optional<std::string> waylandSession();

/// The socket of the program that runs in @p session; empty without a runtime folder.
std::string runningProgramSocket(const std::string &session);

/// Asks the program that listens at @p socketPath for a picture and passes it to @p done.
/// @return nothing if no program listens; ScreenUnreadable if it refuses or its answer is damaged;
/// otherwise what @p done returns
std::optional<tl::expected<void, Failure>>
pictureFromProgram(const std::string &socketPath, Options::Area area,
                   const std::function<tl::expected<void, Failure>(const Canvas &)> &done);

} // namespace quellora::screencapture
