#pragma once

#include "ExitStatus.h"

#include <tl/expected.hpp>

#include <span>
#include <string>
#include <string_view>

namespace quellora::screencapture {

/// What the user asked for.
struct Options
{
    enum class Action { Capture, ShowHelp, ShowVersion };

    Action action = Action::Capture;
    bool includeCursor = false;
    /// What the picture shows.
    enum class Area {
        PointedScreen,
        /// All screens in one picture.
        AllScreens,
        FrontWindow,
    };

    Area area = Area::PointedScreen;
    /// The file to write; never empty for Action::Capture.
    std::string path;
};

/// Parses the arguments after the program's name. Arguments after `--help` or `--version` are
/// ignored; `--` ends the options.
/// @return UnknownOption, MissingPath or TooManyPaths on misuse
tl::expected<Options, Failure> parseCommandLine(std::span<const char *const> arguments);

/// The text of `--help`, ending in a line break.
std::string_view helpText();

/// The line for standard error: program name, message, line end. Control characters in the message
/// become '?', so that a path cannot inject lines or terminal sequences.
std::string errorLine(std::string_view message);

} // namespace quellora::screencapture
