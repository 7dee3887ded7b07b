#include "CapturePlan.h"

#include <algorithm>

namespace quellora::screencapture {

namespace {

/// A patch with more rectangles is replaced by its bounds.
constexpr std::size_t maximumPatchRects = 1024;
/// Windows with more complicated shapes do not count as covering what is below.
constexpr std::size_t maximumCoverRects = 256;

bool isBlended(const TopLevel &window, bool compositing)
{
    return compositing && (window.hasAlpha() || window.opacity < 255);
}

bool canCover(const TopLevel &window, bool compositing)
{
    return !isBlended(window, compositing) && window.shape.size() <= maximumCoverRects;
}

/// The area to recompose: our windows where they are visible.
Region patchFor(std::span<const TopLevel> windows, const Rect &area, bool compositing)
{
    Region patch;
    for (const TopLevel &window : windows) {
        if (window.excluded) {
            const Region shown = Region(area).intersected(window.shape);
            patch.unite(shown.bounded(maximumPatchRects));
        } else if (!compositing && canCover(window, compositing)) {
            patch.subtract(window.shape);
        }
        patch = patch.bounded(maximumPatchRects);
    }
    if (!compositing)
        return patch;
    Region widened;
    for (const Rect &rect : patch.rects())
        widened.unite(intersected(rect.inflated(compositorMargin), area));
    return widened.bounded(maximumPatchRects);
}

} // namespace

CapturePlan planCapture(std::span<const TopLevel> windows, const Rect &area, bool compositing)
{
    CapturePlan plan;
    plan.patch = patchFor(windows, area, compositing);
    Region open = plan.patch;
    Region oursAbove;
    for (std::size_t i = windows.size(); i-- > 0 && !open.isEmpty();) {
        const TopLevel &window = windows[i];
        if (window.excluded) {
            oursAbove.unite(Region(area).intersected(window.shape).bounded(maximumPatchRects));
            oursAbove = oursAbove.bounded(maximumPatchRects);
            continue;
        }
        PlannedLayer layer;
        layer.index = i;
        layer.visible = open.intersected(window.shape);
        if (layer.visible.isEmpty())
            continue;
        layer.obscured = layer.visible.intersected(oursAbove.rects());
        layer.blended = isBlended(window, compositing);
        plan.layers.push_back(std::move(layer));
        if (canCover(window, compositing))
            open.subtract(window.shape);
    }
    std::ranges::reverse(plan.layers);
    plan.background = std::move(open);
    return plan;
}

} // namespace quellora::screencapture
