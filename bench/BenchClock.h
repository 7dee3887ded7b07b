#pragma once

#include <algorithm>
#include <chrono>

namespace quellora {

/// The fastest of @p runs calls, in milliseconds, after one call to warm up: other programs on the
/// machine only ever make a call slower.
template <typename Work>
double fastestMilliseconds(int runs, Work &&work)
{
    using Clock = std::chrono::steady_clock;
    work();
    double fastest = 0;
    for (int i = 0; i < runs; ++i) {
        const auto start = Clock::now();
        work();
        const double time = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        fastest = i == 0 ? time : std::min(fastest, time);
    }
    return fastest;
}

} // namespace quellora
