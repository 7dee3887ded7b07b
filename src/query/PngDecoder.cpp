#include "query/PngDecoder.h"

#include <libdeflate.h>
#include <spng.h>

#include <cstring>
#include <new>
#include <span>

namespace quellora {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::array<std::uint8_t, 8> signature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
constexpr std::size_t chunkOverhead = 12;
constexpr std::size_t headerBytes = 13;

std::uint32_t readBigEndian(const std::uint8_t *bytes)
{
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
           std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]};
}

bool isType(const std::uint8_t *type, const char *name)
{
    return std::memcmp(type, name, 4) == 0;
}

bool withinLimits(std::uint32_t width, std::uint32_t height)
{
    return width >= 1 && height >= 1 && width <= maxPngSide && height <= maxPngSide &&
           qint64{width} * qint64{height} <= maxPngPixels;
}

std::unique_ptr<std::uint8_t[]> allocate(std::size_t size)
{
    return std::unique_ptr<std::uint8_t[]>(new (std::nothrow) std::uint8_t[size]);
}

struct Contents
{
    int width = 0;
    int height = 0;
    /// 3 or 4 for a non-interlaced image with 8-bit RGB or RGBA samples; otherwise 0.
    int channels = 0;
    /// Contents of the IDAT chunks.
    std::vector<Bytes> data;
};

/// @return false if the header is invalid or the image exceeds the limits
bool readHeader(Bytes header, Contents &contents)
{
    if (header.size() != headerBytes)
        return false;
    const std::uint32_t width = readBigEndian(header.data());
    const std::uint32_t height = readBigEndian(header.data() + 4);
    if (!withinLimits(width, height))
        return false;
    const std::uint8_t depth = header[8];
    const std::uint8_t colour = header[9];
    const bool plain = header[10] == 0 && header[11] == 0 && header[12] == 0;
    contents.width = static_cast<int>(width);
    contents.height = static_cast<int>(height);
    if (depth == 8 && plain)
        contents.channels = colour == 2 ? 3 : colour == 6 ? 4 : 0;
    return true;
}

/// Reads the chunks up to IEND. Returns nullopt if the file is damaged or truncated or has an
/// unknown critical chunk.
std::optional<Contents> readContents(Bytes file)
{
    if (file.size() < signature.size() ||
        std::memcmp(file.data(), signature.data(), signature.size()) != 0)
        return std::nullopt;
    Contents contents;
    bool sawHeader = false;
    for (Bytes rest = file.subspan(signature.size()); rest.size() >= chunkOverhead;) {
        const std::size_t length = readBigEndian(rest.data());
        if (length > rest.size() - chunkOverhead)
            return std::nullopt;
        const std::uint8_t *type = rest.data() + 4;
        const Bytes body = rest.subspan(8, length);
        const std::uint32_t sum = readBigEndian(rest.data() + 8 + length);
        const bool isCritical = (type[0] & 0x20) == 0;
        if (isCritical && libdeflate_crc32(0, type, length + 4) != sum)
            return std::nullopt;
        rest = rest.subspan(length + chunkOverhead);

        if (!sawHeader) {
            if (!isType(type, "IHDR") || !readHeader(body, contents))
                return std::nullopt;
            sawHeader = true;
        } else if (isType(type, "IDAT")) {
            contents.data.push_back(body);
        } else if (isType(type, "IEND")) {
            if (contents.data.empty())
                return std::nullopt;
            return contents;
        } else if (isCritical && !isType(type, "PLTE")) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

/// The stored blocks of a zlib stream; empty if a block is compressed or the checksum is wrong.
std::vector<Bytes> storedBlocks(Bytes stream, std::size_t expectedSize)
{
    constexpr std::size_t blockHeader = 5;
    constexpr std::size_t checkSum = 4;
    if (stream.size() < 2 + blockHeader + checkSum || (stream[0] & 0x0f) != 8 ||
        (stream[1] & 0x20) != 0 || (stream[0] * 256 + stream[1]) % 31 != 0)
        return {};
    std::vector<Bytes> blocks;
    std::uint32_t sum = 1;
    std::size_t total = 0;
    bool last = false;
    stream = stream.subspan(2);
    while (!last) {
        if (stream.size() < blockHeader || (stream[0] & 0x06) != 0)
            return {};
        last = (stream[0] & 1) != 0;
        const std::size_t length = std::size_t{stream[1]} | std::size_t{stream[2]} << 8;
        const std::size_t inverse = std::size_t{stream[3]} | std::size_t{stream[4]} << 8;
        if ((length ^ inverse) != 0xffff || length > stream.size() - blockHeader)
            return {};
        const Bytes block = stream.subspan(blockHeader, length);
        sum = libdeflate_adler32(sum, block.data(), block.size());
        total += length;
        if (length != 0)
            blocks.push_back(block);
        stream = stream.subspan(blockHeader + length);
    }
    if (total != expectedSize || stream.size() < checkSum || readBigEndian(stream.data()) != sum)
        return {};
    return blocks;
}

/// Reads an image whose samples are neither compressed nor filtered. Rows are used in place; only
/// those that span two blocks are copied. Returns nullopt for all other images.
std::optional<Bitmap> readInPlace(const QByteArray &file, const Contents &contents)
{
    if (contents.channels == 0 || contents.data.size() != 1)
        return std::nullopt;
    Bitmap bitmap;
    bitmap.width = contents.width;
    bitmap.height = contents.height;
    bitmap.channels = contents.channels;
    bitmap.file = file;
    bitmap.rows.reserve(static_cast<std::size_t>(contents.height));
    const std::size_t rowBytes = bitmap.rowBytes();
    // Each row starts with a byte for its filter type.
    const auto blocks = storedBlocks(contents.data.front(),
                                     (rowBytes + 1) * static_cast<std::size_t>(contents.height));
    if (blocks.empty())
        return std::nullopt;
    auto block = blocks.begin();
    Bytes rest = *block;
    for (int y = 0; y < contents.height; ++y) {
        while (rest.empty())
            rest = *++block;
        if (rest[0] != 0)
            return std::nullopt;
        rest = rest.subspan(1);
        if (rest.size() >= rowBytes) {
            bitmap.rows.push_back(rest.data());
            rest = rest.subspan(rowBytes);
            continue;
        }
        auto row = allocate(rowBytes);
        if (row == nullptr)
            return std::nullopt;
        for (std::size_t copied = 0; copied < rowBytes;) {
            while (rest.empty())
                rest = *++block;
            const std::size_t count = std::min(rowBytes - copied, rest.size());
            std::memcpy(row.get() + copied, rest.data(), count);
            copied += count;
            rest = rest.subspan(count);
        }
        bitmap.rows.push_back(row.get());
        bitmap.buffers.push_back(std::move(row));
    }
    return bitmap;
}

std::optional<Bitmap> decodeWithSpng(const QByteArray &file)
{
    const std::unique_ptr<spng_ctx, decltype(&spng_ctx_free)> context(spng_ctx_new(0),
                                                                      &spng_ctx_free);
    if (context == nullptr)
        return std::nullopt;
    spng_set_image_limits(context.get(), maxPngSide, maxPngSide);
    constexpr std::size_t maxMetadata = 8 * 1024 * 1024;
    spng_set_chunk_limits(context.get(), maxMetadata, maxMetadata);
    spng_ihdr header{};
    if (spng_set_png_buffer(context.get(), file.constData(),
                            static_cast<std::size_t>(file.size())) != 0 ||
        spng_get_ihdr(context.get(), &header) != 0 || !withinLimits(header.width, header.height))
        return std::nullopt;
    Bitmap bitmap =
        Bitmap::create(static_cast<int>(header.width), static_cast<int>(header.height), 3);
    std::size_t size = 0;
    if (bitmap.isNull() || spng_decoded_image_size(context.get(), SPNG_FMT_RGB8, &size) != 0 ||
        size != bitmap.rowBytes() * bitmap.rows.size() ||
        spng_decode_image(context.get(), bitmap.buffers.front().get(), size, SPNG_FMT_RGB8, 0) != 0)
        return std::nullopt;
    return bitmap;
}

} // namespace

std::optional<Bitmap> decodePng(const QByteArray &file)
{
    const Bytes bytes(
        static_cast<const std::uint8_t *>(static_cast<const void *>(file.constData())),
        static_cast<std::size_t>(file.size()));
    // Needed for libspng as well, which does not verify the chunks after the pixels.
    const auto contents = readContents(bytes);
    if (!contents)
        return std::nullopt;
    auto bitmap = readInPlace(file, *contents);
    return bitmap ? std::move(bitmap) : decodeWithSpng(file);
}

} // namespace quellora
