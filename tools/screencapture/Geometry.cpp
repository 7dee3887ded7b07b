#include "Geometry.h"

#include <algorithm>
#include <utility>

namespace quellora::screencapture {

Rect Rect::inflated(int margin) const
{
    return {x - margin, y - margin, width + 2 * margin, height + 2 * margin};
}

Rect intersected(const Rect &a, const Rect &b)
{
    const int left = std::max(a.x, b.x);
    const int top = std::max(a.y, b.y);
    const int right = std::min(a.right(), b.right());
    const int bottom = std::min(a.bottom(), b.bottom());
    if (right <= left || bottom <= top)
        return {};
    return {left, top, right - left, bottom - top};
}

Rect Region::bounds() const
{
    if (m_rects.empty())
        return {};
    int left = m_rects.front().x;
    int top = m_rects.front().y;
    int right = m_rects.front().right();
    int bottom = m_rects.front().bottom();
    for (const Rect &rect : m_rects) {
        left = std::min(left, rect.x);
        top = std::min(top, rect.y);
        right = std::max(right, rect.right());
        bottom = std::max(bottom, rect.bottom());
    }
    return {left, top, right - left, bottom - top};
}

void Region::unite(const Rect &rect)
{
    if (rect.isEmpty())
        return;
    // Cuts the old rectangles rather than the new one, which keeps rectangles large.
    subtract(rect);
    m_rects.push_back(rect);
}

void Region::unite(const Region &other)
{
    for (const Rect &rect : other.m_rects)
        unite(rect);
}

void Region::subtract(const Rect &rect)
{
    if (rect.isEmpty())
        return;
    std::vector<Rect> kept;
    kept.reserve(m_rects.size() + 3);
    for (const Rect &old : m_rects) {
        const Rect hole = quellora::screencapture::intersected(old, rect);
        if (hole.isEmpty()) {
            kept.push_back(old);
            continue;
        }
        if (hole.y > old.y)
            kept.push_back({old.x, old.y, old.width, hole.y - old.y});
        if (hole.x > old.x)
            kept.push_back({old.x, hole.y, hole.x - old.x, hole.height});
        if (hole.right() < old.right())
            kept.push_back({hole.right(), hole.y, old.right() - hole.right(), hole.height});
        if (hole.bottom() < old.bottom())
            kept.push_back({old.x, hole.bottom(), old.width, old.bottom() - hole.bottom()});
    }
    m_rects = std::move(kept);
}

void Region::subtract(std::span<const Rect> rects)
{
    for (const Rect &rect : rects)
        subtract(rect);
}

Region Region::intersected(const Rect &rect) const
{
    return intersected(std::span(&rect, 1));
}

Region Region::intersected(std::span<const Rect> disjointRects) const
{
    Region result;
    const Rect frame = bounds();
    for (const Rect &other : disjointRects) {
        if (quellora::screencapture::intersected(frame, other).isEmpty())
            continue;
        for (const Rect &rect : m_rects) {
            const Rect common = quellora::screencapture::intersected(rect, other);
            if (!common.isEmpty())
                result.m_rects.push_back(common);
        }
    }
    return result;
}

Region Region::bounded(std::size_t maximumRects) const
{
    return m_rects.size() > maximumRects ? Region(bounds()) : *this;
}

Rect captureArea(int rootWidth, int rootHeight, std::span<const Rect> monitors)
{
    const Rect root{0, 0, rootWidth, rootHeight};
    Region seen;
    for (const Rect &monitor : monitors)
        seen.unite(intersected(monitor, root));
    return seen.isEmpty() ? root : seen.bounds();
}

Rect pointedMonitor(int rootWidth, int rootHeight, std::span<const Rect> monitors,
                    const Rect &pointer)
{
    const Rect root{0, 0, rootWidth, rootHeight};
    const auto gap = [](int place, int start, int end) {
        return static_cast<long>(std::max({start - place, place - (end - 1), 0}));
    };
    // Distance first, then size; the lowest rank wins.
    const auto rank = [&](const Rect &rect) {
        if (pointer.isEmpty())
            return std::pair(0L, 0L);
        const long x = gap(pointer.x, rect.x, rect.right());
        const long y = gap(pointer.y, rect.y, rect.bottom());
        return std::pair(x * x + y * y, -static_cast<long>(rect.width) * rect.height);
    };
    Rect best;
    for (const Rect &monitor : monitors) {
        const Rect seen = intersected(monitor, root);
        if (!seen.isEmpty() && (best.isEmpty() || rank(seen) < rank(best)))
            best = seen;
    }
    return best.isEmpty() ? root : best;
}

Region unseenRegion(const Rect &area, std::span<const Rect> monitors)
{
    Region unseen(area);
    unseen.subtract(monitors);
    // No monitor known or none inside: captureArea() has chosen the whole root window.
    return unseen.bounds() == area && unseen.rects().size() == 1 ? Region() : unseen;
}

} // namespace quellora::screencapture
