#pragma once

#include <chrono>
#include <cstdint>

namespace quellora::server {

/// Wall-clock time with second precision or better; injected so that tests own the time.
using TimePoint = std::chrono::system_clock::time_point;

/// Source of the current time. Implementations may be called from any thread.
class Clock
{
public:
    virtual ~Clock() = default;
    virtual TimePoint now() const = 0;
};

/// The machine's own clock.
class SystemClock : public Clock
{
public:
    TimePoint now() const override { return std::chrono::system_clock::now(); }
};

/// Seconds since the epoch, the form in which times are stored.
inline std::int64_t toSeconds(TimePoint time)
{
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

} // namespace quellora::server
