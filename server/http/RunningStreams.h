#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace quellora::server {

/// Why an answer may not go on although its model could.
enum class Revocation {
    Suspended,
    /// The session that asked was ended.
    SignedOut,
    Deleted
};

/// The answers that this process streams: limits their number, and finds those of an account.
/// Thread-safe.
class RunningStreams
{
public:
    /// Ends the stream early. Called on any thread, also after the stream has ended.
    using Revoke = std::function<void(Revocation why)>;
    struct Stream
    {
        std::int64_t accountId = 0;
        /// The session that asked.
        std::string sessionId;
        Revoke revoke;
    };
    /// Released when the last copy is destroyed.
    using Place = std::shared_ptr<Stream>;

    explicit RunningStreams(std::size_t most) : m_most(most) {}

    /// A place for a stream, or null when as many run as may.
    Place acquire();
    /// Lets ofAccount() find the stream in @p place.
    void add(const Place &place, Stream stream);
    std::vector<Stream> ofAccount(std::int64_t accountId) const;
    /// Waits until no stream runs; false after @p timeout or interrupt().
    bool waitForNone(std::chrono::milliseconds timeout);
    /// Ends the running waitForNone(), else the next one.
    void interrupt();

    /// Counts the news about accounts, so that whoever was looking at one while it changed can
    /// tell.
    void countChange() { ++m_changes; }
    std::uint64_t changes() const { return m_changes; }

private:
    const std::size_t m_most;
    std::atomic<std::uint64_t> m_changes{0};
    mutable std::mutex m_mutex;
    std::condition_variable m_released;
    std::set<Stream *> m_streams;
    bool m_isInterrupted = false;
};

} // namespace quellora::server
