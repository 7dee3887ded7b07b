#include "CursorOverlay.h"

#include <xcb/xfixes.h>

#include <cstddef>

namespace quellora::screencapture {

std::optional<CursorPicture> readCursor(const XConnection &x)
{
    if (!x.extensions().xfixes)
        return std::nullopt;
    const auto reply =
        takeReply(x.get(), xcb_xfixes_get_cursor_image_reply, xcb_xfixes_get_cursor_image(x.get()));
    if (!reply)
        return std::nullopt;
    const std::uint32_t *words = xcb_xfixes_get_cursor_image_cursor_image(reply.get());
    const int count = xcb_xfixes_get_cursor_image_cursor_image_length(reply.get());
    if (count < reply->width * reply->height)
        return std::nullopt;
    return CursorPicture{
        {words, words + count},
        {reply->x - reply->xhot, reply->y - reply->yhot, reply->width, reply->height}};
}

void drawCursor(const Canvas &canvas, const CursorPicture &cursor)
{
    const Rect shown = intersected(canvas.area, cursor.rect);
    for (int y = shown.y; y < shown.bottom(); ++y) {
        const std::size_t row = static_cast<std::size_t>(y - cursor.rect.y) *
                                static_cast<std::size_t>(cursor.rect.width);
        std::uint32_t *target = canvas.at(shown.x, y);
        for (int x = shown.x; x < shown.right(); ++x, ++target)
            *target = blendOver(
                *target, cursor.pixels[row + static_cast<std::size_t>(x - cursor.rect.x)], 255);
    }
}

} // namespace quellora::screencapture
