#pragma once

#include <chrono>
#include <cstdint>

namespace quellora::server {

/// Wall-clock time with at least second precision.
using TimePoint = std::chrono::system_clock::time_point;

/// Source of the current time, injected so that tests control it. Callable from any thread.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual TimePoint now() const = 0;
};

/// The system's clock.
class SystemClock : public Clock
{
public:
    TimePoint now() const override { return std::chrono::system_clock::now(); }
};

/// Seconds since the epoch, as stored in the database.
inline std::int64_t toSeconds(TimePoint time)
{
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

/// Milliseconds since the epoch.
inline std::int64_t toMilliseconds(TimePoint time)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

} // namespace quellora::server
