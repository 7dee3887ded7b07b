#include "PortalFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quellora::screencapture {

namespace {

constexpr std::size_t blockSize = 1 << 18;
constexpr std::array<unsigned char, 8> pngSignature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};

tl::unexpected<Failure> failed(const std::string &why)
{
    return tl::unexpected(
        Failure{ExitStatus::PortalFailed, "the desktop's picture cannot be used: " + why});
}

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool isOlder(const timespec &file, const timespec &request)
{
    return file.tv_sec != request.tv_sec ? file.tv_sec < request.tv_sec
                                         : file.tv_nsec < request.tv_nsec;
}

/// Reads up to the size of @p target at @p offset; fewer bytes at the end of the file.
/// @return the number of bytes, or -1 with errno
ssize_t readAt(int descriptor, std::span<std::byte> target, off_t offset)
{
    for (;;) {
        const ssize_t got = ::pread(descriptor, target.data(), target.size(), offset);
        if (got >= 0 || errno != EINTR)
            return got;
    }
}

} // namespace

std::optional<std::string> pathOfUri(std::string_view uri)
{
    constexpr std::string_view scheme = "file:";
    if (!uri.starts_with(scheme))
        return std::nullopt;
    uri.remove_prefix(scheme.size());
    if (uri.starts_with("//")) {
        uri.remove_prefix(2);
        constexpr std::string_view here = "localhost";
        if (uri.starts_with(here))
            uri.remove_prefix(here.size());
    }
    if (!uri.starts_with('/'))
        return std::nullopt;
    std::string path;
    for (std::size_t i = 0; i < uri.size(); ++i) {
        char next = uri[i];
        if (next == '?' || next == '#')
            return std::nullopt;
        if (next == '%') {
            const int high = i + 2 < uri.size() ? hexDigit(uri[i + 1]) : -1;
            const int low = i + 2 < uri.size() ? hexDigit(uri[i + 2]) : -1;
            if (high < 0 || low < 0)
                return std::nullopt;
            next = static_cast<char>(high * 16 + low);
            i += 2;
        }
        if (next == '\0')
            return std::nullopt;
        path += next;
    }
    return path;
}

timespec fileTime()
{
    timespec time = {};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &time);
    return time;
}

tl::expected<PortalFile, Failure> PortalFile::take(std::string_view uri, const timespec &request)
{
    const auto path = pathOfUri(uri);
    if (!path)
        return failed("the portal names no file of this machine");
    // Does not wait for the other end of a pipe.
    const int descriptor =
        ::open(path->c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) {
        const int reason = errno;
        return failed(*path + ": " +
                      (reason == ELOOP ? "it is a symbolic link" : std::strerror(reason)));
    }
    PortalFile file(descriptor);
    struct stat opened = {};
    if (::fstat(descriptor, &opened) != 0)
        return failed(*path + ": " + std::strerror(errno));
    if (!S_ISREG(opened.st_mode))
        return failed(*path + " is not a regular file");
    if (opened.st_uid != ::geteuid())
        return failed(*path + " belongs to another user");
    if (isOlder(opened.st_mtim, request))
        return failed(*path + " is older than the request");
    struct stat named = {};
    if (::lstat(path->c_str(), &named) != 0 || named.st_dev != opened.st_dev ||
        named.st_ino != opened.st_ino)
        return failed(*path + " was replaced");
    if (::unlink(path->c_str()) != 0)
        return failed(*path + " cannot be removed: " + std::strerror(errno));
    return file;
}

PortalFile::PortalFile(PortalFile &&other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1))
{}

PortalFile::~PortalFile()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

tl::expected<void, Failure> PortalFile::checkPng() const
{
    std::array<std::byte, pngSignature.size()> start{};
    const ssize_t got = readAt(m_descriptor, start, 0);
    if (got < 0)
        return failed(std::strerror(errno));
    if (!std::ranges::equal(std::span(start).first(static_cast<std::size_t>(got)),
                            std::as_bytes(std::span(pngSignature))))
        return tl::unexpected(
            Failure{ExitStatus::NotPng, "the desktop's picture is not a PNG file"});
    return {};
}

tl::expected<void, Failure> PortalFile::copy(
    const std::function<tl::expected<void, Failure>(std::span<const std::byte>)> &write) const
{
    std::vector<std::byte> block(blockSize);
    for (off_t offset = 0;;) {
        const ssize_t got = readAt(m_descriptor, block, offset);
        if (got < 0)
            return failed(std::strerror(errno));
        if (got == 0)
            return {};
        if (auto written = write(std::span(block).first(static_cast<std::size_t>(got))); !written)
            return written;
        offset += got;
    }
}

} // namespace quellora::screencapture
