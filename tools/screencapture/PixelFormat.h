#pragma once

#include <cstddef>
#include <cstdint>

namespace quellora::screencapture {

/// How the display server lays out the pixels of one visual. The tool's own pixels are 32-bit
/// words 0xAARRGGBB in the machine's byte order, colour premultiplied by alpha.
class PixelFormat
{
public:
    struct Layout
    {
        /// 8, 16, 24 or 32.
        int bitsPerPixel = 32;
        /// Bits to whose multiple every line is padded.
        int scanlinePad = 32;
        bool mostSignificantByteFirst = false;
        std::uint32_t redMask = 0xff0000;
        std::uint32_t greenMask = 0xff00;
        std::uint32_t blueMask = 0xff;
        /// 0 where the visual has no alpha channel; pixels then are opaque.
        std::uint32_t alphaMask = 0;
    };

    explicit PixelFormat(const Layout &layout);

    /// Whether the pixel size is one that convertRow() reads and all colours have bits.
    bool isSupported() const;
    /// Whether the words are the tool's own but for the alpha byte of visuals without alpha.
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
    /// One colour component: where it is and how its values map to 0..255.
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
