#include "query/PngDecoder.h"

#include "query/PngFilters.h"

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

/// What the chunks say.
struct Contents
{
    /// Of the kind that this module reads: 8-bit RGB with or without alpha, not interlaced.
    bool isCommon = false;
    int width = 0;
    int height = 0;
    int channels = 3;
    std::vector<Bytes> data;

    std::size_t rowBytes() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    }
    /// Every row is preceded by its filter.
    std::size_t filteredSize() const { return (rowBytes() + 1) * static_cast<std::size_t>(height); }
};

/// False when the picture is none or too large.
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
    contents.isCommon = depth == 8 && (colour == 2 || colour == 6) && plain;
    contents.width = static_cast<int>(width);
    contents.height = static_cast<int>(height);
    contents.channels = colour == 2 ? 3 : 4;
    return true;
}

/// Walks the chunks up to the end mark. Nothing when the file is damaged or cut short, or holds a
/// chunk that may not be skipped and that nobody knows.
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

/// The zlib stream in one piece, copied only when it is spread over several chunks.
Bytes joined(const Contents &contents, std::unique_ptr<std::uint8_t[]> &storage)
{
    if (contents.data.size() == 1)
        return contents.data.front();
    std::size_t size = 0;
    for (const Bytes part : contents.data)
        size += part.size();
    storage = allocate(size);
    if (storage == nullptr)
        return {};
    std::size_t at = 0;
    for (const Bytes part : contents.data) {
        if (!part.empty())
            std::memcpy(storage.get() + at, part.data(), part.size());
        at += part.size();
    }
    return {storage.get(), size};
}

/// The pieces of an uncompressed zlib stream; empty when any block of it is compressed or its
/// check sum is wrong.
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

/// Rows that are neither compressed nor filtered are used where they lie; only those across the
/// border of two blocks are copied. False when some row is filtered.
bool useRowsInPlace(const std::vector<Bytes> &blocks, const Contents &contents, Bitmap &bitmap)
{
    const std::size_t rowBytes = contents.rowBytes();
    auto block = blocks.begin();
    Bytes rest = *block;
    for (int y = 0; y < contents.height; ++y) {
        while (rest.empty())
            rest = *++block;
        if (rest[0] != 0)
            return false;
        rest = rest.subspan(1);
        if (rest.size() >= rowBytes) {
            bitmap.rows.push_back(rest.data());
            rest = rest.subspan(rowBytes);
            continue;
        }
        auto row = allocate(rowBytes);
        if (row == nullptr)
            return false;
        for (std::size_t have = 0; have < rowBytes;) {
            while (rest.empty())
                rest = *++block;
            const std::size_t part = std::min(rowBytes - have, rest.size());
            std::memcpy(row.get() + have, rest.data(), part);
            have += part;
            rest = rest.subspan(part);
        }
        bitmap.rows.push_back(row.get());
        bitmap.buffers.push_back(std::move(row));
    }
    return true;
}

/// Decompresses everything at once and undoes the filters in place.
bool inflateRows(Bytes stream, const Contents &contents, Bitmap &bitmap)
{
    const std::size_t size = contents.filteredSize();
    auto samples = allocate(size);
    const std::unique_ptr<libdeflate_decompressor, decltype(&libdeflate_free_decompressor)>
        decompressor(libdeflate_alloc_decompressor(), &libdeflate_free_decompressor);
    if (samples == nullptr || decompressor == nullptr ||
        libdeflate_zlib_decompress(decompressor.get(), stream.data(), stream.size(), samples.get(),
                                   size, nullptr) != LIBDEFLATE_SUCCESS)
        return false;
    const std::size_t rowBytes = contents.rowBytes();
    const std::uint8_t *previous = nullptr;
    std::uint8_t *row = samples.get();
    for (int y = 0; y < contents.height; ++y, row += rowBytes) {
        const std::uint8_t filter = *row++;
        if (!undoPngFilter(filter, row, previous, rowBytes, contents.channels))
            return false;
        bitmap.rows.push_back(row);
        previous = row;
    }
    bitmap.buffers.push_back(std::move(samples));
    return true;
}

std::optional<Bitmap> decodeCommon(const QByteArray &file, const Contents &contents)
{
    Bitmap bitmap;
    bitmap.width = contents.width;
    bitmap.height = contents.height;
    bitmap.channels = contents.channels;
    bitmap.file = file;
    bitmap.rows.reserve(static_cast<std::size_t>(contents.height));

    std::unique_ptr<std::uint8_t[]> storage;
    const Bytes stream = joined(contents, storage);
    const auto blocks = storedBlocks(stream, contents.filteredSize());
    bool done = !blocks.empty() && useRowsInPlace(blocks, contents, bitmap);
    if (!done) {
        bitmap.rows.clear();
        bitmap.buffers.clear();
        done = inflateRows(stream, contents, bitmap);
    }
    if (!done)
        return std::nullopt;
    if (storage != nullptr)
        bitmap.buffers.push_back(std::move(storage));
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
    // libspng gets only files that passed, for it does not check what it has no need to read.
    const auto contents = readContents(bytes);
    if (!contents)
        return std::nullopt;
    if (contents->isCommon) {
        if (auto bitmap = decodeCommon(file, *contents))
            return bitmap;
    }
    return decodeWithSpng(file);
}

} // namespace quellora
