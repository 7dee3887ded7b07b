#pragma once

#include "Canvas.h"
#include "PageBuffer.h"
#include "XConnection.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace quellora::screencapture {

/// Reads pixels of windows and pixmaps, through memory shared with the display server where
/// possible and over the connection otherwise. Holds one picture at a time.
///
/// The shared memory is two small strips: the server fills one while the other is copied out. The
/// page faults of shared memory for a whole picture cost several times as much as the copying.
class ImageReader
{
public:
    explicit ImageReader(const XConnection &x);
    ~ImageReader();
    ImageReader(const ImageReader &) = delete;
    ImageReader &operator=(const ImageReader &) = delete;

    /// Reads @p part of @p drawable (drawable's coordinates). The result's rectangle is @p part;
    /// its data is data() and valid until the next call. @return nothing when the server refuses
    std::optional<SourceImage> read(xcb_drawable_t drawable, const Rect &part,
                                    const PixelFormat &format);
    /// The memory of the last picture read; may be written to.
    std::byte *data() const { return m_data; }

private:
    void attach();
    bool readShared(xcb_drawable_t drawable, const Rect &part, std::size_t bytesPerLine);
    bool readOverConnection(xcb_drawable_t drawable, const Rect &part, std::size_t bytesPerLine);

    const XConnection &m_x;
    PageBuffer m_buffer;
    std::byte *m_data = nullptr;
    std::byte *m_shared = nullptr;
    std::uint32_t m_segment = 0;
};

} // namespace quellora::screencapture
