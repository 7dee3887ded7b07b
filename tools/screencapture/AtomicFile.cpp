#include "AtomicFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quellora::screencapture {

namespace {

constexpr mode_t fileMode = S_IRUSR | S_IWUSR;
constexpr int nameAttempts = 100;

std::string folderOf(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string temporaryName(const std::string &path)
{
    std::uint64_t number = 0;
    // Never blocks after booting; a short read only makes the name less random.
    [[maybe_unused]] const ssize_t got = getrandom(&number, sizeof number, 0);
    std::string digits(16, '0');
    for (char &digit : digits) {
        digit = "0123456789abcdef"[number & 15];
        number >>= 4;
    }
    return folderOf(path) + "/.quellora-capture-" + digits + ".tmp";
}

std::string descriptorPath(int descriptor)
{
    return "/proc/self/fd/" + std::to_string(descriptor);
}

} // namespace

Failure fileFailure(const std::string &path, int errorNumber)
{
    const std::string reason = std::strerror(errorNumber);
    if (errorNumber == ENOSPC || errorNumber == EDQUOT || errorNumber == EFBIG)
        return {ExitStatus::DiskFull, "no space for " + path + ": " + reason};
    return {ExitStatus::PathUnwritable, "cannot write " + path + ": " + reason};
}

tl::expected<AtomicFile, Failure> AtomicFile::create(const std::string &path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        // Replacing a device or a pipe by a file would do harm when run by root.
        if (S_ISDIR(status.st_mode))
            return tl::unexpected(fileFailure(path, EISDIR));
        return tl::unexpected(
            Failure{ExitStatus::PathUnwritable, "cannot write " + path + ": not a regular file"});
    }
    if (path.back() == '/')
        return tl::unexpected(fileFailure(path, EISDIR));

    int descriptor = open(folderOf(path).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, fileMode);
    if (descriptor >= 0) {
        if (access(descriptorPath(descriptor).c_str(), F_OK) == 0)
            return AtomicFile(path, descriptor, {});
        close(descriptor); // cannot be linked without /proc
    }
    for (int attempt = 0; attempt < nameAttempts; ++attempt) {
        std::string temporaryPath = temporaryName(path);
        descriptor = open(temporaryPath.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, fileMode);
        if (descriptor >= 0)
            return AtomicFile(path, descriptor, std::move(temporaryPath));
        if (errno != EEXIST)
            break;
    }
    return tl::unexpected(fileFailure(path, errno));
}

AtomicFile::AtomicFile(std::string path, int descriptor, std::string temporaryPath)
    : m_path(std::move(path)), m_descriptor(descriptor), m_temporaryPath(std::move(temporaryPath))
{}

AtomicFile::AtomicFile(AtomicFile &&other) noexcept
    : m_path(std::move(other.m_path))
    , m_descriptor(std::exchange(other.m_descriptor, -1))
    , m_temporaryPath(std::exchange(other.m_temporaryPath, {}))
{}

AtomicFile::~AtomicFile()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
    if (!m_temporaryPath.empty())
        unlink(m_temporaryPath.c_str());
}

tl::expected<void, Failure> AtomicFile::write(std::span<const std::byte> bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(m_descriptor, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return tl::unexpected(fileFailure(m_path, errno));
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return {};
}

tl::expected<void, Failure> AtomicFile::linkAnonymous()
{
    for (int attempt = 0; attempt < nameAttempts; ++attempt) {
        std::string temporaryPath = temporaryName(m_path);
        if (linkat(AT_FDCWD, descriptorPath(m_descriptor).c_str(), AT_FDCWD, temporaryPath.c_str(),
                   AT_SYMLINK_FOLLOW) == 0) {
            m_temporaryPath = std::move(temporaryPath);
            return {};
        }
        if (errno != EEXIST)
            break;
    }
    return tl::unexpected(fileFailure(m_path, errno));
}

tl::expected<void, Failure> AtomicFile::commit()
{
    if (m_temporaryPath.empty()) {
        if (auto linked = linkAnonymous(); !linked)
            return linked;
    }
    // Some file systems report a full disk only when the file is closed.
    if (close(std::exchange(m_descriptor, -1)) != 0 && errno != EINTR)
        return tl::unexpected(fileFailure(m_path, errno));
    if (std::rename(m_temporaryPath.c_str(), m_path.c_str()) != 0)
        return tl::unexpected(fileFailure(m_path, errno));
    m_temporaryPath.clear();
    return {};
}

} // namespace quellora::screencapture
