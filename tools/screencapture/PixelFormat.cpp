#include "PixelFormat.h"

#include <bit>
#include <cstring>

namespace quellora::screencapture {

namespace {

constexpr bool hostIsBigEndian = std::endian::native == std::endian::big;

} // namespace

PixelFormat::Channel::Channel(std::uint32_t channelMask)
    : mask(channelMask)
    , shift(channelMask == 0 ? 0 : std::countr_zero(channelMask))
    , bits(std::popcount(channelMask))
{}

std::uint32_t PixelFormat::Channel::value(std::uint32_t pixel) const
{
    const std::uint32_t component = (pixel & mask) >> shift;
    if (bits >= 8)
        return component >> (bits - 8);
    const std::uint32_t maximum = (1U << bits) - 1;
    return (component * 255 + maximum / 2) / maximum;
}

PixelFormat::PixelFormat(const Layout &layout)
    : m_layout(layout)
    , m_red(layout.redMask)
    , m_green(layout.greenMask)
    , m_blue(layout.blueMask)
    , m_alpha(layout.alphaMask)
{}

bool PixelFormat::isSupported() const
{
    const int size = m_layout.bitsPerPixel;
    return (size == 8 || size == 16 || size == 24 || size == 32) && m_red.bits > 0 &&
           m_green.bits > 0 && m_blue.bits > 0;
}

bool PixelFormat::isNative() const
{
    return m_layout.bitsPerPixel == 32 && m_layout.mostSignificantByteFirst == hostIsBigEndian &&
           m_layout.redMask == 0xff0000 && m_layout.greenMask == 0xff00 &&
           m_layout.blueMask == 0xff &&
           (m_layout.alphaMask == 0 || m_layout.alphaMask == 0xff000000);
}

std::size_t PixelFormat::bytesPerLine(int width) const
{
    const std::size_t pad = static_cast<std::size_t>(m_layout.scanlinePad);
    const std::size_t bits =
        static_cast<std::size_t>(width) * static_cast<std::size_t>(m_layout.bitsPerPixel);
    return (bits + pad - 1) / pad * (pad / 8);
}

std::uint32_t PixelFormat::load(const std::byte *source) const
{
    const int bytes = m_layout.bitsPerPixel / 8;
    std::uint32_t pixel = 0;
    for (int i = 0; i < bytes; ++i) {
        const int place = m_layout.mostSignificantByteFirst ? bytes - 1 - i : i;
        pixel |= std::to_integer<std::uint32_t>(source[i]) << (8 * place);
    }
    return pixel;
}

void PixelFormat::convertRow(const std::byte *source, std::uint32_t *target, int count) const
{
    if (isNative()) {
        std::memcpy(target, source, static_cast<std::size_t>(count) * 4);
        if (!hasAlpha()) {
            for (int i = 0; i < count; ++i)
                target[i] |= 0xff000000U;
        }
        return;
    }
    const int step = m_layout.bitsPerPixel / 8;
    for (int i = 0; i < count; ++i, source += step) {
        const std::uint32_t pixel = load(source);
        const std::uint32_t alpha = hasAlpha() ? m_alpha.value(pixel) : 0xff;
        target[i] = alpha << 24 | m_red.value(pixel) << 16 | m_green.value(pixel) << 8 |
                    m_blue.value(pixel);
    }
}

} // namespace quellora::screencapture
