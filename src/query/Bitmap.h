#pragma once

#include <QByteArray>

#include <cstdint>
#include <memory>
#include <vector>

namespace quellora {

/// A picture of 8-bit samples, interleaved RGB (3 channels) or RGB and one more byte that nobody
/// looks at (4 channels). Screens are opaque, so alpha plays no part.
///
/// Rows may lie anywhere, also inside the file they came from; what they point into is kept alive
/// by the bitmap. Movable, not copyable; rows are read-only and may be read by several threads.
struct Bitmap
{
    int width = 0;
    int height = 0;
    int channels = 3;
    std::vector<const std::uint8_t *> rows;

    /// What the rows point into.
    QByteArray file;
    std::vector<std::unique_ptr<std::uint8_t[]>> buffers;

    /// Bytes of one row.
    std::size_t rowBytes() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    }
    bool isNull() const { return width < 1 || height < 1; }

    /// A bitmap of one contiguous block whose samples are to be written to buffers.front().
    /// Null when there is no memory for it or a side is below one.
    static Bitmap create(int width, int height, int channels);
};

} // namespace quellora
