#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace quellora {

/// Names and contents of all files below a folder; paths are relative to it.
struct DiskImage
{
    std::map<std::string, std::string> files;
    std::set<std::string> folders;

    /// What is below @p folder now.
    static DiskImage of(const std::string &folder);
    /// Replaces all that is below @p folder.
    void writeTo(const std::string &folder) const;

    // NOLINTNEXTLINE(modernize-use-nullptr): mistakes the comparison with 0 for a pointer
    auto operator<=>(const DiskImage &) const = default;
};

/// Stands between this process and those calls of the C library that change files below one folder
/// (open for writing, write, fsync, rename, unlink, mkdir and their variants): counts them, lets
/// one or all from one on fail, and records them, so that the states that a power cut may leave can
/// be rebuilt. Linux only. One at a time; the calls must come from one thread at a time.
class FaultyDisk
{
public:
    enum class Fault {
        NoSpace,
        InputOutput,
        Interrupted,
        ReadOnly,
        /// A write stores half of its bytes and says so. Other calls succeed.
        ShortWrite,
    };

    /// Starts to watch @p folder, an absolute path without a trailing slash.
    explicit FaultyDisk(std::string folder);
    ~FaultyDisk();
    FaultyDisk(const FaultyDisk &) = delete;
    FaultyDisk &operator=(const FaultyDisk &) = delete;

    /// Lets the call after @p callsToSucceed further ones fail.
    /// @param isLasting all later calls fail as well, until repair()
    void fail(Fault fault, int callsToSucceed, bool isLasting);
    /// No further call fails. @return whether one has failed since fail()
    bool repair();

    /// Number of calls so far that changed something, which is a position in the recording.
    std::size_t position() const;
    /// All states that a power cut after the first @p position recorded calls may leave: contents
    /// are those of a file's last fsync, or all that was written; names that were changed since
    /// the last fsync of their folder are there up to any of these changes.
    std::vector<DiskImage> afterPowerCut(std::size_t position) const;

    class Calls;

private:
    std::unique_ptr<Calls> m_calls;
};

} // namespace quellora
