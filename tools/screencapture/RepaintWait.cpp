#include "RepaintWait.h"

#include <algorithm>

namespace quellora::screencapture {

namespace {

/// Limits the region, which many small drawings fragment.
constexpr std::size_t maximumMissingRects = 256;

} // namespace

RepaintWait::RepaintWait(std::vector<Region> expected, Time start) : m_start(start)
{
    m_entries.reserve(expected.size());
    for (Region &region : expected) {
        Region missing = region;
        m_entries.push_back({std::move(region), std::move(missing), std::nullopt});
    }
}

void RepaintWait::drawn(std::size_t window, const Rect &rect, Time now)
{
    Entry &entry = m_entries.at(window);
    // Drawing elsewhere in the window must not prolong the wait.
    if (entry.expected.intersected(rect).isEmpty())
        return;
    entry.missing.subtract(rect);
    entry.missing = entry.missing.bounded(maximumMissingRects);
    entry.lastDrawn = now;
}

RepaintWait::Time RepaintWait::doneAt(const Entry &entry) const
{
    const Time limit = m_start + totalLimit;
    if (entry.expected.isEmpty())
        return m_start;
    if (!entry.lastDrawn)
        return m_start + firstDrawLimit;
    return std::min(limit, *entry.lastDrawn + (entry.missing.isEmpty() ? shortPause : longPause));
}

std::optional<RepaintWait::Time> RepaintWait::nextCheck(Time now) const
{
    Time latest = m_start;
    for (const Entry &entry : m_entries)
        latest = std::max(latest, doneAt(entry));
    if (latest <= now)
        return std::nullopt;
    return latest;
}

} // namespace quellora::screencapture
