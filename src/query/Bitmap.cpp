#include "query/Bitmap.h"

#include <new>

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

} // namespace quellora
