#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

namespace quellora {

/// Median time of @p runs calls, in milliseconds, after one call to warm up.
template <typename Work>
double medianMilliseconds(int runs, Work &&work)
{
    using Clock = std::chrono::steady_clock;
    work();
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const auto start = Clock::now();
        work();
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    const auto middle = times.begin() + runs / 2;
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

} // namespace quellora
