#include "PngWriter.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace quellora::screencapture {

namespace {

constexpr std::uint64_t maximumChunkLength = std::numeric_limits<std::int32_t>::max();
constexpr std::uint64_t maximumBlockLength = 65535;
constexpr std::uint64_t blockHeaderLength = 5;
constexpr std::size_t slabLength = 128 * 1024;

std::uint64_t scanlineBytes(int width, int height)
{
    return static_cast<std::uint64_t>(height) * (1 + 3 * static_cast<std::uint64_t>(width));
}

/// Length of the zlib stream: two header bytes, the stored blocks, the checksum.
std::uint64_t streamLength(std::uint64_t rawLength)
{
    const std::uint64_t blocks = (rawLength + maximumBlockLength - 1) / maximumBlockLength;
    return 2 + blocks * blockHeaderLength + rawLength + 4;
}

/// Buffers the output and computes the checksums of chunks.
class SlabWriter
{
public:
    explicit SlabWriter(const ByteSink &sink) : m_sink(sink) { m_slab.reserve(slabLength); }

    void append(const void *data, std::size_t length)
    {
        const std::byte *bytes = static_cast<const std::byte *>(data);
        while (length > 0) {
            const std::size_t part = std::min(length, slabLength - m_slab.size());
            m_slab.insert(m_slab.end(), bytes, bytes + part);
            bytes += part;
            length -= part;
            if (m_slab.size() == slabLength)
                flush();
        }
    }

    void appendByte(std::uint8_t value) { append(&value, 1); }

    void appendBigEndian(std::uint32_t value)
    {
        const std::array<std::uint8_t, 4> bytes{
            static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
            static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
        append(bytes.data(), bytes.size());
    }

    void beginChunk(const char (&type)[5], std::uint32_t length)
    {
        appendBigEndian(length);
        m_checkedUpTo = m_slab.size();
        m_crc = 0;
        append(type, 4);
    }

    void endChunk()
    {
        takeIntoChecksum();
        appendBigEndian(m_crc);
    }

    void flush()
    {
        takeIntoChecksum();
        if (m_result && !m_slab.empty())
            m_result = m_sink(m_slab);
        m_slab.clear();
        m_checkedUpTo = 0;
    }

    bool hasFailed() const { return !m_result; }
    const tl::expected<void, Failure> &result() const { return m_result; }

private:
    void takeIntoChecksum()
    {
        m_crc =
            libdeflate_crc32(m_crc, m_slab.data() + m_checkedUpTo, m_slab.size() - m_checkedUpTo);
        m_checkedUpTo = m_slab.size();
    }

    const ByteSink &m_sink;
    std::vector<std::byte> m_slab;
    std::size_t m_checkedUpTo = 0;
    std::uint32_t m_crc = 0;
    tl::expected<void, Failure> m_result;
};

/// A zlib stream of stored blocks.
class StoredStream
{
public:
    StoredStream(SlabWriter &writer, std::uint64_t rawLength)
        : m_writer(writer), m_remaining(rawLength)
    {
        constexpr std::array<std::uint8_t, 2> header{0x78, 0x01};
        m_writer.append(header.data(), header.size());
    }

    void append(const std::byte *data, std::size_t length)
    {
        m_adler = libdeflate_adler32(m_adler, data, length);
        while (length > 0) {
            if (m_blockRemaining == 0)
                beginBlock();
            const std::size_t part =
                static_cast<std::size_t>(std::min<std::uint64_t>(length, m_blockRemaining));
            m_writer.append(data, part);
            data += part;
            length -= part;
            m_blockRemaining -= part;
            m_remaining -= part;
        }
    }

    void end() { m_writer.appendBigEndian(m_adler); }

private:
    void beginBlock()
    {
        m_blockRemaining = std::min(m_remaining, maximumBlockLength);
        const std::uint8_t last = m_blockRemaining == m_remaining ? 1 : 0;
        const auto length = static_cast<std::uint16_t>(m_blockRemaining);
        const auto complement = static_cast<std::uint16_t>(~length);
        const std::array<std::uint8_t, blockHeaderLength> header{
            last, static_cast<std::uint8_t>(length), static_cast<std::uint8_t>(length >> 8),
            static_cast<std::uint8_t>(complement), static_cast<std::uint8_t>(complement >> 8)};
        m_writer.append(header.data(), header.size());
    }

    SlabWriter &m_writer;
    std::uint64_t m_remaining;
    std::uint64_t m_blockRemaining = 0;
    std::uint32_t m_adler = 1;
};

/// Packs leading pixels with vector instructions; returns their number.
#if defined(__x86_64__)
__attribute__((target("ssse3"))) int packWithShuffles(const std::uint32_t *source,
                                                      std::byte *target, int count)
{
    const __m128i order = _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    int done = 0;
    // Stores sixteen bytes for twelve, so the scalar loop packs the last pixels.
    for (; done + 8 <= count; done += 4) {
        const __m128i words = _mm_loadu_si128(reinterpret_cast<const __m128i *>(source + done));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(target + 3 * done),
                         _mm_shuffle_epi8(words, order));
    }
    return done;
}

int packLeading(const std::uint32_t *source, std::byte *target, int count)
{
    static const bool hasShuffles = __builtin_cpu_supports("ssse3") != 0;
    return hasShuffles ? packWithShuffles(source, target, count) : 0;
}
#elif defined(__aarch64__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
int packLeading(const std::uint32_t *source, std::byte *target, int count)
{
    int done = 0;
    for (; done + 16 <= count; done += 16) {
        const uint8x16x4_t planes = vld4q_u8(reinterpret_cast<const std::uint8_t *>(source + done));
        const uint8x16x3_t rgb{{planes.val[2], planes.val[1], planes.val[0]}};
        vst3q_u8(reinterpret_cast<std::uint8_t *>(target + 3 * done), rgb);
    }
    return done;
}
#else
int packLeading(const std::uint32_t *, std::byte *, int)
{
    return 0;
}
#endif

} // namespace

void packRgb(const std::uint32_t *source, std::byte *target, int count)
{
    for (int i = packLeading(source, target, count); i < count; ++i) {
        target[3 * i] = static_cast<std::byte>(source[i] >> 16);
        target[3 * i + 1] = static_cast<std::byte>(source[i] >> 8);
        target[3 * i + 2] = static_cast<std::byte>(source[i]);
    }
}

tl::expected<void, Failure> checkImageSize(int width, int height)
{
    if (streamLength(scanlineBytes(width, height)) <= maximumChunkLength)
        return {};
    return tl::unexpected(
        Failure{ExitStatus::ImageTooLarge, "the screen of " + std::to_string(width) + "x" +
                                               std::to_string(height) +
                                               " pixels is too large for one picture"});
}

tl::expected<void, Failure> writePng(const Canvas &canvas, const ByteSink &sink)
{
    const int width = canvas.area.width;
    const int height = canvas.area.height;
    if (auto fits = checkImageSize(width, height); !fits)
        return fits;

    constexpr std::array<std::uint8_t, 8> signature{0x89, 'P', 'N', 'G', 0x0d, 0x0a, 0x1a, 0x0a};
    SlabWriter writer(sink);
    writer.append(signature.data(), signature.size());

    writer.beginChunk("IHDR", 13);
    writer.appendBigEndian(static_cast<std::uint32_t>(width));
    writer.appendBigEndian(static_cast<std::uint32_t>(height));
    // 8 bits per sample, RGB, deflate, adaptive filters, not interlaced
    constexpr std::array<std::uint8_t, 5> kind{8, 2, 0, 0, 0};
    writer.append(kind.data(), kind.size());
    writer.endChunk();

    const std::uint64_t rawLength = scanlineBytes(width, height);
    writer.beginChunk("IDAT", static_cast<std::uint32_t>(streamLength(rawLength)));
    StoredStream stream(writer, rawLength);
    std::vector<std::byte> line(1 + 3 * static_cast<std::size_t>(width)); // first byte: no filter
    for (int y = 0; y < height && !writer.hasFailed(); ++y) {
        packRgb(canvas.at(canvas.area.x, canvas.area.y + y), line.data() + 1, width);
        stream.append(line.data(), line.size());
    }
    stream.end();
    writer.endChunk();

    writer.beginChunk("IEND", 0);
    writer.endChunk();
    writer.flush();
    return writer.result();
}

} // namespace quellora::screencapture
