#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

namespace quellora {

/// Returns the fastest of @p runs calls in milliseconds, after one warm-up call. The minimum is
/// used because load on the machine only makes calls slower. Pauses 10 ms between calls, so that
/// background work of a call can finish.
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
