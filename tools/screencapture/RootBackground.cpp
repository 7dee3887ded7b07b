#include "RootBackground.h"

#include <xcb/composite.h>

#include <array>
#include <cstring>

namespace quellora::screencapture {

std::optional<RootBackground> publishedBackground(const XConnection &x)
{
    if (x.atoms().rootPixmap == XCB_ATOM_NONE)
        return std::nullopt;
    xcb_connection_t *c = x.get();
    const auto property =
        takeReply(c, xcb_get_property_reply,
                  xcb_get_property(c, 0, x.root(), x.atoms().rootPixmap, XCB_ATOM_PIXMAP, 0, 1));
    if (!property || property->format != 32 || xcb_get_property_value_length(property.get()) < 4)
        return std::nullopt;
    xcb_pixmap_t pixmap = XCB_PIXMAP_NONE;
    std::memcpy(&pixmap, xcb_get_property_value(property.get()), sizeof pixmap);
    if (pixmap == XCB_PIXMAP_NONE || pixmap == x.root())
        return std::nullopt;
    const auto geometry = takeReply(c, xcb_get_geometry_reply, xcb_get_geometry(c, pixmap));
    if (!geometry || geometry->depth != x.screen().root_depth)
        return std::nullopt;
    return RootBackground{pixmap, {0, 0, geometry->width, geometry->height}, true};
}

std::optional<RootBackground> paintedBackground(const XConnection &x, const Rect &bounds)
{
    xcb_connection_t *c = x.get();
    const xcb_window_t window = xcb_generate_id(c);
    // Black first: without a root window background nothing would be painted.
    const std::array<std::uint32_t, 2> values{x.screen().black_pixel, 1};
    xcb_create_window(
        c, XCB_COPY_FROM_PARENT, window, x.root(), static_cast<std::int16_t>(bounds.x),
        static_cast<std::int16_t>(bounds.y), static_cast<std::uint16_t>(bounds.width),
        static_cast<std::uint16_t>(bounds.height), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
        XCB_COPY_FROM_PARENT, XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
    // Manual redirection keeps it off the screen; at the bottom of the stack it gets no pointer
    // events either.
    const XReply<xcb_generic_error_t> redirectError(xcb_request_check(
        c, xcb_composite_redirect_window_checked(c, window, XCB_COMPOSITE_REDIRECT_MANUAL)));
    if (redirectError)
        return std::nullopt;
    const std::uint32_t below = XCB_STACK_MODE_BELOW;
    xcb_configure_window(c, window, XCB_CONFIG_WINDOW_STACK_MODE, &below);
    xcb_map_window(c, window);
    const std::uint32_t parentRelative = XCB_BACK_PIXMAP_PARENT_RELATIVE;
    xcb_change_window_attributes(c, window, XCB_CW_BACK_PIXMAP, &parentRelative);
    xcb_clear_area(c, 0, window, 0, 0, 0, 0);
    const xcb_pixmap_t pixmap = xcb_generate_id(c);
    const XReply<xcb_generic_error_t> nameError(
        xcb_request_check(c, xcb_composite_name_window_pixmap_checked(c, window, pixmap)));
    xcb_destroy_window(c, window); // the named pixmap survives
    if (nameError)
        return std::nullopt;
    return RootBackground{pixmap, bounds, false};
}

} // namespace quellora::screencapture
