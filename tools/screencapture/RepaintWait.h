#pragma once

#include "Geometry.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

namespace quellora::screencapture {

/// Decides how long to wait for programs to repaint the parts of their windows that ours covered:
/// until each has drawn everything and paused briefly, or has drawn something and paused longer, or
/// a limit is reached.
class RepaintWait
{
public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;

    /// The pause that ends the wait when everything expected has been drawn.
    static constexpr std::chrono::milliseconds shortPause{3};
    /// The pause that ends it when only parts have been drawn: windows often draw less than asked.
    static constexpr std::chrono::milliseconds longPause{12};
    /// For the first drawing of a program.
    static constexpr std::chrono::milliseconds firstDrawLimit{100};
    /// For everything together.
    static constexpr std::chrono::milliseconds totalLimit{200};

    /// @param expected per window, the region that its program was asked to draw
    RepaintWait(std::vector<Region> expected, Time start);

    /// Records that @p rect of window number @p window was drawn at @p now.
    void drawn(std::size_t window, const Rect &rect, Time now);
    /// When to check again at the latest; nothing when the wait is over at @p now.
    std::optional<Time> nextCheck(Time now) const;

private:
    struct Entry
    {
        Region expected;
        Region missing;
        std::optional<Time> lastDrawn;
    };

    Time doneAt(const Entry &entry) const;

    std::vector<Entry> m_entries;
    Time m_start;
};

} // namespace quellora::screencapture
