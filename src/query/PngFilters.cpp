#include "query/PngFilters.h"

#include <cstdlib>
#include <cstring>

namespace quellora {

namespace {

// One pixel at a time, because each depends on the one before it: its channels side by side in a
// small vector, which compilers turn into the registers of either processor family.
using Pixel = std::int16_t __attribute__((vector_size(8)));

template <int channels>
Pixel load(const std::uint8_t *bytes)
{
    Pixel pixel{};
    for (int c = 0; c < channels; ++c)
        pixel[c] = bytes[c];
    return pixel;
}

template <int channels>
void store(std::uint8_t *bytes, Pixel pixel)
{
    for (int c = 0; c < channels; ++c)
        bytes[c] = static_cast<std::uint8_t>(pixel[c]);
}

Pixel magnitude(Pixel value)
{
    const Pixel negative = value < 0;
    return (value ^ negative) - negative;
}

Pixel select(Pixel mask, Pixel yes, Pixel no)
{
    return (mask & yes) | (~mask & no);
}

template <int channels>
void undoSub(std::uint8_t *row, std::size_t size)
{
    for (std::size_t i = channels; i < size; ++i)
        row[i] = static_cast<std::uint8_t>(row[i] + row[i - channels]);
}

void undoUp(std::uint8_t *row, const std::uint8_t *previous, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
        row[i] = static_cast<std::uint8_t>(row[i] + previous[i]);
}

template <int channels>
void undoAverage(std::uint8_t *row, const std::uint8_t *previous, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i) {
        const int left = i < channels ? 0 : row[i - channels];
        const int above = previous == nullptr ? 0 : previous[i];
        row[i] = static_cast<std::uint8_t>(row[i] + ((left + above) >> 1));
    }
}

/// The neighbour closest to left + above - corner; ties go to left, then above.
template <int channels>
void undoPaeth(std::uint8_t *row, const std::uint8_t *previous, std::size_t size)
{
    Pixel left{};
    Pixel corner{};
    for (std::size_t i = 0; i < size; i += channels) {
        const Pixel above = load<channels>(previous + i);
        const Pixel toLeft = magnitude(above - corner);
        const Pixel toAbove = magnitude(left - corner);
        const Pixel toCorner = magnitude((above - corner) + (left - corner));
        const Pixel leftWins = (toLeft <= toAbove) & (toLeft <= toCorner);
        const Pixel aboveWins = toAbove <= toCorner;
        const Pixel guess = select(leftWins, left, select(aboveWins, above, corner));
        left = (load<channels>(row + i) + guess) & 0xff;
        corner = above;
        store<channels>(row + i, left);
    }
}

template <int channels>
bool undo(std::uint8_t filter, std::uint8_t *row, const std::uint8_t *previous, std::size_t size)
{
    switch (filter) {
    case 0:
        return true;
    case 1:
        undoSub<channels>(row, size);
        return true;
    case 2:
        if (previous != nullptr)
            undoUp(row, previous, size);
        return true;
    case 3:
        undoAverage<channels>(row, previous, size);
        return true;
    case 4:
        // Without a row above the guess is always the left neighbour.
        if (previous == nullptr)
            undoSub<channels>(row, size);
        else
            undoPaeth<channels>(row, previous, size);
        return true;
    default:
        return false;
    }
}

} // namespace

bool undoPngFilter(std::uint8_t filter, std::uint8_t *row, const std::uint8_t *previous,
                   std::size_t size, int channels)
{
    return channels == 3 ? undo<3>(filter, row, previous, size)
                         : undo<4>(filter, row, previous, size);
}

} // namespace quellora
