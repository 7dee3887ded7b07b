#pragma once

#include "ExitStatus.h"

#include <tl/expected.hpp>

#include <chrono>
#include <string>

#include <ctime>

namespace quellora::screencapture {

/// Where the desktop has left a picture.
struct PortalAnswer
{
    /// As the portal says it; not checked.
    std::string uri;
    /// fileTime() before the portal was asked.
    timespec request = {};
};

/// Asks the desktop portal org.freedesktop.portal.Screenshot for a picture of all screens and waits
/// for its answer. The desktop may ask the user for permission first, and decides about the cursor.
/// The message bus library is loaded here, because that costs more than a picture on X11 may take.
/// @param limit time for everything
/// @return NoSessionBus, NoPortal, Refused, or PortalFailed, also if the time is over
tl::expected<PortalAnswer, Failure> askScreenshotPortal(std::chrono::milliseconds limit);

} // namespace quellora::screencapture
