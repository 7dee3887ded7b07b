#include "PngSamples.h"

#include <png.h>

#include <QRandomGenerator>

#include <algorithm>
#include <csetjmp>
#include <vector>

namespace quellora {

namespace {

void append(png_structp png, png_bytep data, png_size_t size)
{
    static_cast<QByteArray *>(png_get_io_ptr(png))
        ->append(static_cast<const char *>(static_cast<const void *>(data)),
                 static_cast<qsizetype>(size));
}

void ignoreFlush(png_structp) {}

struct Source
{
    const QByteArray &bytes;
    qsizetype position = 0;
};

void readBytes(png_structp png, png_bytep data, png_size_t size)
{
    auto *source = static_cast<Source *>(png_get_io_ptr(png));
    if (static_cast<qsizetype>(size) > source->bytes.size() - source->position)
        png_error(png, "end of data");
    std::copy_n(source->bytes.constData() + source->position, size, data);
    source->position += static_cast<qsizetype>(size);
}

QByteArray write(const PngSample &sample, std::vector<QByteArray> rows)
{
    QByteArray file;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &file, append, ignoreFlush);
    png_set_IHDR(png, info, static_cast<png_uint_32>(sample.width),
                 static_cast<png_uint_32>(sample.height), sample.depth, sample.colour,
                 sample.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, sample.level);
    png_set_compression_buffer_size(png, static_cast<png_size_t>(sample.chunkSize));
    if (sample.filters >= 0)
        png_set_filter(png, 0, sample.filters);
    if (sample.colour == PNG_COLOR_TYPE_PALETTE) {
        std::vector<png_color> palette(std::size_t{1} << sample.depth);
        for (std::size_t i = 0; i < palette.size(); ++i)
            palette[i] = {static_cast<png_byte>(i * 7), static_cast<png_byte>(255 - i),
                          static_cast<png_byte>(i * 31)};
        png_set_PLTE(png, info, palette.data(), static_cast<int>(palette.size()));
    }
    png_write_info(png, info);
    std::vector<png_bytep> pointers;
    pointers.reserve(std::size(rows));
    for (QByteArray &row : rows)
        pointers.push_back(static_cast<png_bytep>(static_cast<void *>(row.data())));
    png_write_image(png, pointers.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return file;
}

} // namespace

QByteArray writePng(const PngSample &sample, quint32 seed)
{
    constexpr std::array<int, 7> channelsOf{1, 0, 3, 1, 2, 0, 4};
    const int bits = channelsOf[static_cast<std::size_t>(sample.colour)] * sample.depth;
    const int rowBytes = (sample.width * bits + 7) / 8;
    QRandomGenerator random(seed);
    std::vector<QByteArray> rows;
    for (int y = 0; y < sample.height; ++y) {
        QByteArray row(rowBytes, Qt::Uninitialized);
        for (int i = 0; i < rowBytes; ++i)
            row[i] = static_cast<char>(y % 5 < 2 ? random.bounded(256) : i * 3 + y * 2);
        rows.push_back(row);
    }
    return write(sample, std::move(rows));
}

QByteArray writePng(int width, int height, const std::function<QRgb(int, int)> &colour)
{
    std::vector<QByteArray> rows;
    for (int y = 0; y < height; ++y) {
        QByteArray row;
        row.reserve(width * 3);
        for (int x = 0; x < width; ++x) {
            const QRgb pixel = colour(x, y);
            row.append(static_cast<char>(qRed(pixel)));
            row.append(static_cast<char>(qGreen(pixel)));
            row.append(static_cast<char>(qBlue(pixel)));
        }
        rows.push_back(row);
    }
    PngSample sample;
    sample.width = width;
    sample.height = height;
    sample.level = 1;
    sample.filters = PNG_FILTER_NONE;
    return write(sample, std::move(rows));
}

QByteArray readWithLibpng(const QByteArray &file)
{
    png_structp png = png_create_read_struct(
        PNG_LIBPNG_VER_STRING, nullptr,
        [](png_structp context, png_const_charp) { png_longjmp(context, 1); },
        [](png_structp, png_const_charp) {});
    png_infop info = png_create_info_struct(png);
    Source source{file};
    QByteArray pixels;
    std::vector<png_bytep> rows;
    // The library reports errors in no other way. NOLINTNEXTLINE(cert-err52-cpp)
    if (setjmp(png_jmpbuf(png)) == 0) {
        png_set_read_fn(png, &source, readBytes);
        png_read_info(png, info);
        png_set_expand(png);
        png_set_strip_16(png);
        png_set_gray_to_rgb(png);
        png_set_strip_alpha(png);
        png_set_interlace_handling(png);
        png_read_update_info(png, info);
        const auto rowBytes = static_cast<qsizetype>(png_get_rowbytes(png, info));
        const auto height = static_cast<qsizetype>(png_get_image_height(png, info));
        pixels.resize(rowBytes * height);
        for (qsizetype y = 0; y < height; ++y)
            rows.push_back(static_cast<png_bytep>(static_cast<void *>(pixels.data())) +
                           y * rowBytes);
        png_read_image(png, rows.data());
        png_read_end(png, info);
    } else {
        pixels.clear();
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return pixels;
}

QByteArray rgbOf(const Bitmap &bitmap)
{
    QByteArray pixels;
    pixels.reserve(qsizetype{bitmap.width} * bitmap.height * 3);
    for (const std::uint8_t *row : bitmap.rows) {
        for (int x = 0; x < bitmap.width; ++x, row += bitmap.channels) {
            for (int c = 0; c < 3; ++c)
                pixels.append(static_cast<char>(row[c]));
        }
    }
    return pixels;
}

Bitmap bitmapOf(int width, int height, const std::function<QRgb(int, int)> &colour, int channels)
{
    Bitmap bitmap = Bitmap::create(width, height, channels);
    std::uint8_t *out = bitmap.buffers.front().get();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x, out += channels) {
            const QRgb pixel = colour(x, y);
            out[0] = static_cast<std::uint8_t>(qRed(pixel));
            out[1] = static_cast<std::uint8_t>(qGreen(pixel));
            out[2] = static_cast<std::uint8_t>(qBlue(pixel));
            if (channels == 4)
                out[3] = 0x5a;
        }
    }
    return bitmap;
}

} // namespace quellora
