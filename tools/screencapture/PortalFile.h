#pragma once

#include "ExitStatus.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <ctime>

namespace quellora::screencapture {

/// The path that a "file:" address (RFC 8089) of this machine names; nothing for every other text.
std::optional<std::string> pathOfUri(std::string_view uri);

/// The time as file systems record it, which lags behind the clock by some milliseconds.
timespec fileTime();

/// The file in which the Screenshot portal leaves a picture. It is opened only if it is a regular
/// file of this user that was not changed before the request; symbolic links are not followed.
class PortalFile
{
public:
    /// Opens the file and takes its name away at once: others may read the folder of pictures.
    /// @param uri from the portal's response
    /// @param request fileTime() before the portal was asked
    /// @return PortalFailed, and the file stays, if it is not to be trusted
    static tl::expected<PortalFile, Failure> take(std::string_view uri, const timespec &request);

    PortalFile(PortalFile &&other) noexcept;
    PortalFile &operator=(PortalFile &&other) = delete;
    PortalFile(const PortalFile &) = delete;
    PortalFile &operator=(const PortalFile &) = delete;
    ~PortalFile();

    /// Checks for the signature of a PNG file, at the start of the file.
    /// @return NotPng, PortalFailed if the file cannot be read
    tl::expected<void, Failure> checkPng() const;
    /// Passes all bytes to @p write, in order.
    /// @return PortalFailed if the file cannot be read; otherwise what @p write returns
    tl::expected<void, Failure>
    copy(const std::function<tl::expected<void, Failure>(std::span<const std::byte>)> &write) const;

private:
    explicit PortalFile(int descriptor) : m_descriptor(descriptor) {}

    int m_descriptor = -1;
};

} // namespace quellora::screencapture
