#include "query/JpegEncoder.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace quellora {

namespace {

struct HandleDeleter
{
    void operator()(void *handle) const { tjDestroy(handle); }
};

struct BufferDeleter
{
    void operator()(unsigned char *buffer) const { tjFree(buffer); }
};

/// The row size in bytes if all rows are contiguous; otherwise 0.
std::size_t contiguousStride(const Bitmap &bitmap)
{
    const std::size_t stride = bitmap.rowBytes();
    for (std::size_t y = 1; y < bitmap.rows.size(); ++y) {
        if (bitmap.rows[y] != bitmap.rows[y - 1] + stride)
            return 0;
    }
    return stride;
}

int pixelFormat(const Bitmap &bitmap)
{
    if (bitmap.order == Bitmap::Order::Bgr)
        return bitmap.channels == 4 ? TJPF_BGRX : TJPF_BGR;
    return bitmap.channels == 4 ? TJPF_RGBX : TJPF_RGB;
}

Bitmap compacted(const Bitmap &bitmap)
{
    Bitmap copy = Bitmap::create(bitmap.width, bitmap.height, bitmap.channels);
    if (copy.isNull())
        return copy;
    copy.order = bitmap.order;
    std::uint8_t *out = copy.buffers.front().get();
    for (const std::uint8_t *row : bitmap.rows) {
        std::memcpy(out, row, bitmap.rowBytes());
        out += bitmap.rowBytes();
    }
    return copy;
}

} // namespace

QByteArray encodeJpeg(const Bitmap &bitmap, int quality)
{
    if (bitmap.isNull())
        return {};
    if (contiguousStride(bitmap) == 0) {
        const Bitmap copy = compacted(bitmap);
        return copy.isNull() ? QByteArray() : encodeJpeg(copy, quality);
    }
    const std::unique_ptr<void, HandleDeleter> encoder(tjInitCompress());
    if (encoder == nullptr)
        return {};
    unsigned char *buffer = nullptr;
    unsigned long size = 0;
    const int status =
        tjCompress2(encoder.get(), bitmap.rows.front(), bitmap.width,
                    static_cast<int>(bitmap.rowBytes()), bitmap.height, pixelFormat(bitmap),
                    &buffer, &size, TJSAMP_420, quality, TJFLAG_ACCURATEDCT);
    const std::unique_ptr<unsigned char, BufferDeleter> owner(buffer);
    if (status != 0 || buffer == nullptr)
        return {};
    return {static_cast<const char *>(static_cast<const void *>(buffer)),
            static_cast<qsizetype>(size)};
}

} // namespace quellora
