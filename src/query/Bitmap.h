#pragma once

#include <QByteArray>

#include <cstdint>
#include <memory>
#include <vector>

namespace quellora {

/// A picture of interleaved 8-bit samples: RGB (3 channels) or RGB and an ignored byte (4
/// channels).
///
/// Rows may point into the file that was decoded; the bitmap owns what they point into. Movable,
/// not copyable; rows are read-only and may be read by several threads.
struct Bitmap
{
    int width = 0;
    int height = 0;
    int channels = 3;
    std::vector<const std::uint8_t *> rows;

    /// Own what the rows point into.
    QByteArray file;
    std::vector<std::unique_ptr<std::uint8_t[]>> buffers;

    /// Bytes of one row.
    std::size_t rowBytes() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    }
    bool isNull() const { return width < 1 || height < 1; }

    /// A bitmap whose samples the caller writes to buffers.front(), row after row. Null when there
    /// is no memory for it or a side is below one.
    static Bitmap create(int width, int height, int channels);
};

} // namespace quellora
