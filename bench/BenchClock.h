#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

namespace quellora {

/// The fastest of @p runs calls in milliseconds, after one call to warm up: other programs only
/// make a call slower. Pauses between calls, so that work that a call left to other threads is
/// done.
template <typename Work>
double fastestMilliseconds(int runs, Work &&work)
{
    using Clock = std::chrono::steady_clock;
    work();
    double fastest = 0;
    for (int i = 0; i < runs; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        const auto start = Clock::now();
        work();
        const double time = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        fastest = i == 0 ? time : std::min(fastest, time);
    }
    return fastest;
}

} // namespace quellora
