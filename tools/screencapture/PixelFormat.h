#pragma once

#include <cstddef>
#include <cstdint>

namespace quellora::screencapture {

/// The pixel layout of one visual. The tool's own pixels are 32-bit words 0xAARRGGBB in host byte
/// order, premultiplied by alpha.
class PixelFormat
{
public:
    struct Layout
    {
        /// 8, 16, 24 or 32.
        int bitsPerPixel = 32;
        /// Lines are padded to a multiple of this number of bits.
        int scanlinePad = 32;
        bool mostSignificantByteFirst = false;
        std::uint32_t redMask = 0xff0000;
        std::uint32_t greenMask = 0xff00;
        std::uint32_t blueMask = 0xff;
        /// 0 for a visual without alpha channel, whose pixels are opaque.
        std::uint32_t alphaMask = 0;
    };

    explicit PixelFormat(const Layout &layout);

    /// Whether convertRow() supports the pixel size and all colours have bits.
    bool isSupported() const;
    /// Whether the layout is the tool's own, apart from the unused byte of visuals without alpha.
    bool isNative() const;
    bool hasAlpha() const { return m_layout.alphaMask != 0; }
    std::size_t bytesPerPixel() const
    {
        return static_cast<std::size_t>(m_layout.bitsPerPixel) / 8;
    }
    std::size_t bytesPerLine(int width) const;

    /// Converts @p count pixels.
    /// @param source the pixels as the display server sent them; need not be aligned
    void convertRow(const std::byte *source, std::uint32_t *target, int count) const;

private:
    /// The position of one component and its mapping to 0..255.
    struct Channel
    {
        explicit Channel(std::uint32_t mask);
        std::uint32_t value(std::uint32_t pixel) const;

        std::uint32_t mask;
        int shift;
        int bits;
    };

    std::uint32_t load(const std::byte *source) const;

    Layout m_layout;
    Channel m_red;
    Channel m_green;
    Channel m_blue;
    Channel m_alpha;
};

} // namespace quellora::screencapture
