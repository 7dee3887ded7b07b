#include "Canvas.h"

#include <algorithm>
#include <map>
#include <vector>

namespace quellora::screencapture {

namespace {

constexpr std::uint32_t laneMask = 0x00ff00ff;

/// Two components at once: each times @p factor / 255, rounded to nearest.
constexpr std::uint32_t scaleLanes(std::uint32_t lanes, std::uint32_t factor)
{
    const std::uint32_t product = lanes * factor + 0x00800080;
    return ((product + ((product >> 8) & laneMask)) >> 8) & laneMask;
}

/// Two components at once: sum, at most 255 each.
constexpr std::uint32_t addLanes(std::uint32_t a, std::uint32_t b)
{
    const std::uint32_t sum = a + b;
    return (sum | (0x01000100 - ((sum >> 8) & laneMask))) & laneMask;
}

constexpr std::uint32_t over(std::uint32_t backdrop, std::uint32_t source, std::uint32_t opacity)
{
    const std::uint32_t redBlue = scaleLanes(source & laneMask, opacity);
    const std::uint32_t alphaGreen = scaleLanes((source >> 8) & laneMask, opacity);
    const std::uint32_t rest = 255 - (alphaGreen >> 16);
    return addLanes(redBlue, scaleLanes(backdrop & laneMask, rest)) |
           addLanes(alphaGreen, scaleLanes((backdrop >> 8) & laneMask, rest)) << 8;
}

/// The rectangles of @p clip that lie on the canvas and in @p source.
Region drawable(const Canvas &canvas, const Rect &source, const Region &clip)
{
    return clip.intersected(intersected(canvas.area, source));
}

} // namespace

std::uint32_t blendOver(std::uint32_t backdrop, std::uint32_t source, std::uint32_t opacity)
{
    return over(backdrop, source, opacity);
}

void drawOpaque(const Canvas &canvas, const SourceImage &source, const Region &clip)
{
    const Region visible = drawable(canvas, source.rect, clip);
    for (const Rect &rect : visible.rects()) {
        for (int y = rect.y; y < rect.bottom(); ++y)
            source.format.convertRow(source.at(rect.x, y), canvas.at(rect.x, y), rect.width);
    }
}

void drawBlended(const Canvas &canvas, const SourceImage &source, const Region &clip,
                 std::uint32_t opacity)
{
    const Region visible = drawable(canvas, source.rect, clip);
    std::vector<std::uint32_t> row(static_cast<std::size_t>(std::max(0, source.rect.width)));
    for (const Rect &rect : visible.rects()) {
        for (int y = rect.y; y < rect.bottom(); ++y) {
            source.format.convertRow(source.at(rect.x, y), row.data(), rect.width);
            std::uint32_t *target = canvas.at(rect.x, y);
            for (int i = 0; i < rect.width; ++i)
                target[i] = over(target[i], row[static_cast<std::size_t>(i)], opacity);
        }
    }
}

void fillRegion(const Canvas &canvas, const Region &clip, std::uint32_t colour)
{
    const Region visible = clip.intersected(canvas.area);
    for (const Rect &rect : visible.rects()) {
        for (int y = rect.y; y < rect.bottom(); ++y)
            std::fill_n(canvas.at(rect.x, y), rect.width, colour);
    }
}

void drawTiled(const Canvas &canvas, const SourceImage &tile, const Region &clip)
{
    if (tile.rect.isEmpty())
        return;
    const Region visible = clip.intersected(canvas.area);
    for (const Rect &rect : visible.rects()) {
        for (int y = rect.y; y < rect.bottom(); ++y) {
            const int tileY = tile.rect.y + y % tile.rect.height;
            for (int x = rect.x; x < rect.right();) {
                const int offset = x % tile.rect.width;
                const int count = std::min(tile.rect.width - offset, rect.right() - x);
                tile.format.convertRow(tile.at(tile.rect.x + offset, tileY), canvas.at(x, y),
                                       count);
                x += count;
            }
        }
    }
}

std::uint32_t dominantColour(const Canvas &canvas, const Region &region)
{
    constexpr int step = 8;
    std::map<std::uint32_t, int> counts;
    const Region visible = region.intersected(canvas.area);
    for (const Rect &rect : visible.rects()) {
        for (int y = rect.y; y < rect.bottom(); y += step) {
            for (int x = rect.x; x < rect.right(); x += step)
                ++counts[*canvas.at(x, y) & 0xffffff];
        }
    }
    const auto most =
        std::ranges::max_element(counts, {}, [](const auto &entry) { return entry.second; });
    return most == counts.end() ? 0 : most->first;
}

} // namespace quellora::screencapture
