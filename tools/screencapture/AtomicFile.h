#pragma once

#include "ExitStatus.h"

#include <tl/expected.hpp>

#include <cstddef>
#include <span>
#include <string>

namespace quellora::screencapture {

/// A file (mode 0600) that gets its name only when it is complete. Until commit() it has no name
/// or, where the file system does not support that, a hidden temporary name in the same folder. The
/// destructor discards an uncommitted file.
class AtomicFile
{
public:
    /// @return PathUnwritable when the folder cannot be written or @p path names something that is
    /// not a regular file; DiskFull
    static tl::expected<AtomicFile, Failure> create(const std::string &path);

    AtomicFile(AtomicFile &&other) noexcept;
    AtomicFile &operator=(AtomicFile &&other) = delete;
    AtomicFile(const AtomicFile &) = delete;
    AtomicFile &operator=(const AtomicFile &) = delete;
    ~AtomicFile();

    /// Appends all of @p bytes. @return DiskFull or PathUnwritable
    tl::expected<void, Failure> write(std::span<const std::byte> bytes);
    /// Gives the file its name, replacing an older file. @return DiskFull or PathUnwritable
    tl::expected<void, Failure> commit();

private:
    AtomicFile(std::string path, int descriptor, std::string temporaryPath);

    tl::expected<void, Failure> linkAnonymous();

    std::string m_path;
    int m_descriptor = -1;
    /// Empty while the file has no name.
    std::string m_temporaryPath;
};

/// The failure for a system call on @p path that set @p errorNumber: DiskFull when space, quota or
/// a size limit ran out, else PathUnwritable.
Failure fileFailure(const std::string &path, int errorNumber);

} // namespace quellora::screencapture
