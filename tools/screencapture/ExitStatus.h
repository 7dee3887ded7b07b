#pragma once

#include <string>

namespace quellora::screencapture {

/// The exit statuses of the tool; each failure has its own, listed by `--help`.
enum class ExitStatus : int {
    Success = 0,
    InternalError = 1,
    UnknownOption = 2,
    MissingPath = 3,
    TooManyPaths = 4,
    NoDisplay = 5,
    ScreenUnreadable = 6,
    NoComposite = 7,
    ImageTooLarge = 8,
    PathUnwritable = 9,
    DiskFull = 10,
    NoSessionBus = 11,
    NoPortal = 12,
    Refused = 13,
    PortalFailed = 14,
    NotPng = 15,
    NoWindow = 16,
};

/// Why the tool could not do its work: the exit status and one line for standard error.
struct Failure
{
    ExitStatus status = ExitStatus::InternalError;
    /// Without program name and line end; may hold text from outside (paths).
    std::string message;
};

} // namespace quellora::screencapture
