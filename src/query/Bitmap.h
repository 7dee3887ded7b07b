#pragma once

#include <QByteArray>
#include <QImage>

#include <cstdint>
#include <memory>
#include <vector>

namespace quellora {

/// An image of interleaved 8-bit samples: three colours (3 channels) or three colours and an
/// ignored byte (4 channels).
///
/// Rows may point into the encoded file or another owner of pixels, which the bitmap then keeps
/// alive. Movable, not copyable.
/// Rows are read-only and may be read by several threads.
struct Bitmap
{
    int width = 0;
    int height = 0;
    int channels = 3;
    /// Order of the colours in memory.
    enum class Order { Rgb, Bgr };
    Order order = Order::Rgb;
    std::vector<const std::uint8_t *> rows;

    /// Storage that the rows point into.
    QByteArray file;
    QImage image;
    std::vector<std::unique_ptr<std::uint8_t[]>> buffers;

    /// Size of one row in bytes.
    std::size_t rowBytes() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    }
    bool isNull() const { return width < 1 || height < 1; }

    /// A bitmap with uninitialised samples, which the caller writes to buffers.front() row by row.
    /// Null if the allocation fails or a side is less than one pixel.
    static Bitmap create(int width, int height, int channels);
    /// The pixels of @p image, which are not copied in the usual formats of 24 and 32 bits; opacity
    /// is ignored. Null if the image is null or the allocation fails.
    static Bitmap fromImage(QImage image);
    /// A copy of the pixels in the format that is painted fastest, RGB32. Null if the bitmap is
    /// null or the allocation fails.
    QImage toImage() const;
};

} // namespace quellora
