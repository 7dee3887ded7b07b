#pragma once

#include "Canvas.h"
#include "XConnection.h"

#include <cstddef>
#include <optional>

namespace quellora::screencapture {

/// Reads pixels of windows and pixmaps, through memory shared with the display server where
/// possible and over the connection otherwise. One picture at a time.
class ImageReader
{
public:
    /// @param capacity bytes of the largest picture to be read
    ImageReader(const XConnection &x, std::size_t capacity);
    ~ImageReader();
    ImageReader(const ImageReader &) = delete;
    ImageReader &operator=(const ImageReader &) = delete;

    /// Reads @p part of @p drawable (drawable's coordinates). The result's rectangle is @p part;
    /// its data is valid until the next call. @return nothing when the server refuses
    std::optional<SourceImage> read(xcb_drawable_t drawable, const Rect &part,
                                    const PixelFormat &format);
    /// Writable memory of the last picture read, or null when it did not come through shared
    /// memory.
    std::byte *sharedData() const { return m_lastWasShared ? m_memory : nullptr; }

private:
    void attach(std::size_t capacity);
    void detach();

    const XConnection &m_x;
    std::byte *m_memory = nullptr;
    std::size_t m_capacity = 0;
    std::uint32_t m_segment = 0;
    bool m_lastWasShared = false;
    XReply<xcb_get_image_reply_t> m_reply;
};

} // namespace quellora::screencapture
