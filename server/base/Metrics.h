#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace quellora::server {

/// Counts per combination of label values. Thread-safe. Whoever counts sees to it that there are
/// few combinations.
class CounterFamily
{
public:
    void add(std::vector<std::string> labels, std::uint64_t count = 1)
    {
        const std::lock_guard lock(m_mutex);
        m_counts[std::move(labels)] += count;
    }
    std::map<std::vector<std::string>, std::uint64_t> counts() const
    {
        const std::lock_guard lock(m_mutex);
        return m_counts;
    }
    /// The count of one combination; 0 when it was never counted.
    std::uint64_t count(const std::vector<std::string> &labels) const
    {
        const std::lock_guard lock(m_mutex);
        const auto found = m_counts.find(labels);
        return found == m_counts.end() ? 0 : found->second;
    }

private:
    mutable std::mutex m_mutex;
    std::map<std::vector<std::string>, std::uint64_t> m_counts;
};

/// How often a duration fell into which range. Thread-safe.
class DurationHistogram
{
public:
    /// Upper bounds of the ranges in seconds, inclusive; a last range has none.
    static constexpr std::array<double, 12> bounds = {0.05, 0.1, 0.25, 0.5, 1,  2.5,
                                                      5,    10,  20,   30,  60, 120};

    void record(double seconds)
    {
        std::size_t range = 0;
        while (range < bounds.size() && seconds > bounds[range])
            ++range;
        ++m_ranges[range];
        m_microseconds += static_cast<std::uint64_t>(seconds * 1e6);
    }
    /// The number of durations in a range, not counting those in lower ranges. The last range is
    /// bounds.size().
    std::uint64_t count(std::size_t range) const { return m_ranges[range]; }
    std::uint64_t total() const
    {
        std::uint64_t sum = 0;
        for (const auto &range : m_ranges)
            sum += range;
        return sum;
    }
    double sumSeconds() const { return static_cast<double>(m_microseconds) / 1e6; }

private:
    std::array<std::atomic<std::uint64_t>, bounds.size() + 1> m_ranges{};
    std::atomic<std::uint64_t> m_microseconds{0};
};

/// What the server counts since its start, for whoever watches it. Nothing in it tells about a
/// person, a question or an answer. All members are thread-safe.
struct Metrics
{
    /// Labels: route as registered ("other" for unknown ones), status.
    CounterFamily requests;
    /// From the arrival of a question until the first text of its answer.
    DurationHistogram firstText;
    std::atomic<std::int64_t> runningAnswers{0};
    std::atomic<std::int64_t> connections{0};
    /// Labels: model, "input" or "output".
    CounterFamily tokens;
    /// Labels: model, kind of the failure.
    CounterFamily providerErrors;
    /// Failed attempts that were made up for, by asking the model again or by asking another one.
    /// Label: the model that failed.
    CounterFamily retries;
    CounterFamily fallbacks;
    /// Requests refused because too many waited for a worker.
    std::atomic<std::uint64_t> refusedForLoad{0};
};

} // namespace quellora::server
