#include "FrontWindow.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

namespace quellora::screencapture {

namespace {

/// Longest chain of parents and longest list of windows that are looked at.
constexpr int maximumDepth = 16;
constexpr std::uint32_t maximumWindows = 4096;

xcb_atom_t atom(const XConnection &x, std::string_view name)
{
    const auto reply = takeReply(
        x.get(), xcb_intern_atom_reply,
        xcb_intern_atom(x.get(), 1, static_cast<std::uint16_t>(name.size()), name.data()));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

/// The 32-bit items of a property; empty when it is missing or of another type.
std::vector<std::uint32_t> items(const XConnection &x, xcb_window_t window, std::string_view name,
                                 xcb_atom_t type, std::uint32_t limit)
{
    const xcb_atom_t property = atom(x, name);
    if (property == XCB_ATOM_NONE)
        return {};
    const auto reply = takeReply(x.get(), xcb_get_property_reply,
                                 xcb_get_property(x.get(), 0, window, property, type, 0, limit));
    if (!reply || reply->type != type || reply->format != 32)
        return {};
    std::vector<std::uint32_t> result(
        static_cast<std::size_t>(xcb_get_property_value_length(reply.get())) / 4);
    if (!result.empty())
        std::memcpy(result.data(), xcb_get_property_value(reply.get()), result.size() * 4);
    return result;
}

bool isOurs(const XConnection &x, xcb_window_t window)
{
    const auto mark = items(x, window, "_QUELLORA_CAPTURE_EXCLUDE", XCB_ATOM_CARDINAL, 1);
    return !mark.empty() && mark.front() == 1;
}

/// The desktop's own background, bars and docks.
bool isFurniture(const XConnection &x, xcb_window_t window)
{
    const auto types = items(x, window, "_NET_WM_WINDOW_TYPE", XCB_ATOM_ATOM, 16);
    const std::array<xcb_atom_t, 2> furniture{atom(x, "_NET_WM_WINDOW_TYPE_DESKTOP"),
                                              atom(x, "_NET_WM_WINDOW_TYPE_DOCK")};
    return std::ranges::any_of(types, [&](std::uint32_t type) {
        return type != XCB_ATOM_NONE && std::ranges::find(furniture, type) != furniture.end();
    });
}

/// The child of the root window that contains @p window: itself or its frame.
xcb_window_t topLevelOf(const XConnection &x, xcb_window_t window)
{
    for (int depth = 0; depth < maximumDepth; ++depth) {
        const auto tree = takeReply(x.get(), xcb_query_tree_reply, xcb_query_tree(x.get(), window));
        if (!tree || tree->parent == XCB_WINDOW_NONE)
            return XCB_WINDOW_NONE;
        if (tree->parent == x.root())
            return window;
        window = tree->parent;
    }
    return XCB_WINDOW_NONE;
}

/// @return nothing when the window is not on the screen or must not be captured
std::optional<Rect> placeOf(const XConnection &x, xcb_window_t window)
{
    if (window == XCB_WINDOW_NONE || window == x.root() || isOurs(x, window) ||
        isFurniture(x, window))
        return std::nullopt;
    const xcb_window_t topLevel = topLevelOf(x, window);
    if (topLevel == XCB_WINDOW_NONE || isOurs(x, topLevel))
        return std::nullopt;
    const auto attributesCookie = xcb_get_window_attributes(x.get(), window);
    const auto geometryCookie = xcb_get_geometry(x.get(), topLevel);
    const auto attributes = takeReply(x.get(), xcb_get_window_attributes_reply, attributesCookie);
    const auto geometry = takeReply(x.get(), xcb_get_geometry_reply, geometryCookie);
    if (!attributes || !geometry || attributes->map_state != XCB_MAP_STATE_VIEWABLE)
        return std::nullopt;
    Rect rect{geometry->x, geometry->y, geometry->width + 2 * geometry->border_width,
              geometry->height + 2 * geometry->border_width};
    // Left, right, top and bottom of the shadow.
    const auto shadow = items(x, window, "_GTK_FRAME_EXTENTS", XCB_ATOM_CARDINAL, 4);
    if (shadow.size() == 4 && std::ranges::all_of(shadow, [](auto side) { return side < 1024; })) {
        const auto side = [&](std::size_t index) { return static_cast<int>(shadow[index]); };
        const Rect inner{rect.x + side(0), rect.y + side(2), rect.width - side(0) - side(1),
                         rect.height - side(2) - side(3)};
        if (!inner.isEmpty())
            rect = inner;
    }
    return rect;
}

} // namespace

std::optional<Rect> frontWindow(const XConnection &x)
{
    const auto active = items(x, x.root(), "_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW, 1);
    if (!active.empty()) {
        if (const auto place = placeOf(x, active.front()))
            return place;
    }
    // No window is active while ours has the keyboard.
    const auto stack =
        items(x, x.root(), "_NET_CLIENT_LIST_STACKING", XCB_ATOM_WINDOW, maximumWindows);
    for (auto window = stack.rbegin(); window != stack.rend(); ++window) {
        if (const auto place = placeOf(x, *window))
            return place;
    }
    if (!active.empty() || !stack.empty())
        return std::nullopt;
    // Without a window manager the keyboard tells.
    const auto focus = takeReply(x.get(), xcb_get_input_focus_reply, xcb_get_input_focus(x.get()));
    return focus && focus->focus > XCB_INPUT_FOCUS_POINTER_ROOT ? placeOf(x, focus->focus)
                                                                : std::nullopt;
}

} // namespace quellora::screencapture
