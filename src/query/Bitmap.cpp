#include "query/Bitmap.h"

#include <QtEndian>

#include <new>
#include <utility>

namespace quellora {

Bitmap Bitmap::create(int width, int height, int channels)
{
    Bitmap bitmap;
    if (width < 1 || height < 1)
        return bitmap;
    const std::size_t stride = static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    const auto count = static_cast<std::size_t>(height);
    std::unique_ptr<std::uint8_t[]> samples(new (std::nothrow) std::uint8_t[stride * count]);
    if (samples == nullptr)
        return bitmap;
    bitmap.width = width;
    bitmap.height = height;
    bitmap.channels = channels;
    bitmap.rows.reserve(count);
    for (std::size_t y = 0; y < count; ++y)
        bitmap.rows.push_back(samples.get() + y * stride);
    bitmap.buffers.push_back(std::move(samples));
    return bitmap;
}

Bitmap Bitmap::fromImage(QImage image)
{
    Bitmap bitmap;
    switch (image.format()) {
    case QImage::Format_RGB32:
    case QImage::Format_ARGB32:
    case QImage::Format_ARGB32_Premultiplied:
        // A number in memory, so its bytes depend on the processor.
        if constexpr (Q_BYTE_ORDER == Q_LITTLE_ENDIAN) {
            bitmap.channels = 4;
            bitmap.order = Order::Bgr;
            break;
        }
        [[fallthrough]];
    default:
        image = std::move(image).convertToFormat(QImage::Format_RGBX8888);
        [[fallthrough]];
    case QImage::Format_RGBX8888:
    case QImage::Format_RGBA8888:
    case QImage::Format_RGBA8888_Premultiplied:
        bitmap.channels = 4;
        break;
    case QImage::Format_RGB888:
        break;
    case QImage::Format_BGR888:
        bitmap.order = Order::Bgr;
        break;
    }
    if (image.isNull())
        return {};
    bitmap.width = image.width();
    bitmap.height = image.height();
    bitmap.rows.reserve(static_cast<std::size_t>(image.height()));
    for (int y = 0; y < image.height(); ++y)
        bitmap.rows.push_back(image.constScanLine(y));
    bitmap.image = std::move(image);
    return bitmap;
}

QImage Bitmap::toImage() const
{
    if (isNull())
        return {};
    QImage copy(width, height, QImage::Format_RGB32);
    if (copy.isNull())
        return {};
    const std::ptrdiff_t red = order == Order::Rgb ? 0 : 2;
    for (int y = 0; y < height; ++y) {
        const std::uint8_t *sample = rows[static_cast<std::size_t>(y)];
        auto *pixel = reinterpret_cast<QRgb *>(copy.scanLine(y));
        for (int x = 0; x < width; ++x, sample += channels)
            pixel[x] = qRgb(sample[red], sample[1], sample[2 - red]);
    }
    return copy;
}

} // namespace quellora
