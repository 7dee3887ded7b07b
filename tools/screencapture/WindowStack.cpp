#include "WindowStack.h"

#include <xcb/randr.h>
#include <xcb/shape.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>

namespace quellora::screencapture {

namespace {

constexpr int maximumSearchDepth = 8;
// Some window managers build frames of more than fifty windows.
constexpr std::size_t maximumSearchedWindows = 32768;

std::span<const xcb_window_t> childrenOf(const xcb_query_tree_reply_t &tree)
{
    return {xcb_query_tree_children(&tree),
            static_cast<std::size_t>(xcb_query_tree_children_length(&tree))};
}

xcb_get_property_cookie_t requestCardinal(const XConnection &x, xcb_window_t window,
                                          xcb_atom_t property)
{
    return xcb_get_property(x.get(), 0, window, property, XCB_ATOM_CARDINAL, 0, 1);
}

std::optional<std::uint32_t> takeCardinal(const XConnection &x, xcb_get_property_cookie_t cookie)
{
    const auto reply = takeReply(x.get(), xcb_get_property_reply, cookie);
    if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4)
        return std::nullopt;
    std::uint32_t value = 0;
    std::memcpy(&value, xcb_get_property_value(reply.get()), sizeof value);
    return value;
}

std::optional<std::vector<TopLevel>> readViewable(const XConnection &x)
{
    xcb_connection_t *c = x.get();
    const auto tree = takeReply(c, xcb_query_tree_reply, xcb_query_tree(c, x.root()));
    if (!tree)
        return std::nullopt;
    struct Pending
    {
        xcb_window_t window;
        xcb_get_window_attributes_cookie_t attributes;
        xcb_get_geometry_cookie_t geometry;
    };
    std::vector<Pending> pending;
    for (const xcb_window_t window : childrenOf(*tree)) {
        if (!x.isServerOwned(window))
            pending.push_back(
                {window, xcb_get_window_attributes(c, window), xcb_get_geometry(c, window)});
    }
    std::vector<TopLevel> result;
    for (const Pending &entry : pending) {
        const auto attributes = takeReply(c, xcb_get_window_attributes_reply, entry.attributes);
        const auto geometry = takeReply(c, xcb_get_geometry_reply, entry.geometry);
        if (!attributes || !geometry || attributes->map_state != XCB_MAP_STATE_VIEWABLE ||
            attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY)
            continue;
        TopLevel window;
        window.window = entry.window;
        window.visual = attributes->visual;
        window.depth = geometry->depth;
        window.borderWidth = geometry->border_width;
        window.rect = {geometry->x, geometry->y, geometry->width + 2 * geometry->border_width,
                       geometry->height + 2 * geometry->border_width};
        result.push_back(std::move(window));
    }
    return result;
}

/// 255 is opaque.
std::uint32_t toByte(std::uint32_t opacity)
{
    return static_cast<std::uint32_t>((static_cast<std::uint64_t>(opacity) * 255 + 0x7fffffff) /
                                      0xffffffff);
}

/// Reads the exclusion property and, if @p withOpacity, the opacity of all windows and their
/// subwindows.
void readProperties(const XConnection &x, std::vector<TopLevel> &windows, bool withOpacity)
{
    struct Node
    {
        xcb_window_t window;
        std::size_t topLevel;
        xcb_get_property_cookie_t excluded;
        xcb_get_property_cookie_t opacity;
        xcb_query_tree_cookie_t tree;
    };
    xcb_connection_t *c = x.get();
    std::vector<bool> hasOpacity(windows.size(), !withOpacity);
    std::size_t searched = 0;
    const auto visit = [&](xcb_window_t window, std::size_t topLevel) {
        ++searched;
        Node node{window, topLevel, requestCardinal(x, window, x.atoms().captureExclude), {}, {}};
        if (withOpacity)
            node.opacity = requestCardinal(x, window, x.atoms().windowOpacity);
        node.tree = xcb_query_tree(c, window);
        return node;
    };

    std::vector<Node> level;
    for (std::size_t i = 0; i < windows.size(); ++i)
        level.push_back(visit(windows[i].window, i));
    for (int depth = 0; depth < maximumSearchDepth && !level.empty(); ++depth) {
        std::vector<Node> next;
        for (const Node &node : level) {
            TopLevel &window = windows[node.topLevel];
            if (takeCardinal(x, node.excluded) == 1U)
                window.excluded = true;
            // Most window managers copy a client's opacity to its frame; otherwise use the
            // client's.
            const auto opacity = withOpacity ? takeCardinal(x, node.opacity) : std::nullopt;
            if (opacity && !hasOpacity[node.topLevel]) {
                hasOpacity[node.topLevel] = true;
                window.opacity = toByte(*opacity);
            }
            const auto tree = takeReply(c, xcb_query_tree_reply, node.tree);
            if (!tree || window.excluded)
                continue;
            for (const xcb_window_t child : childrenOf(*tree)) {
                if (searched < maximumSearchedWindows)
                    next.push_back(visit(child, node.topLevel));
            }
        }
        level = std::move(next);
    }
    // Discard the replies beyond the depth limit.
    for (const Node &node : level) {
        xcb_discard_reply(c, node.excluded.sequence);
        if (withOpacity)
            xcb_discard_reply(c, node.opacity.sequence);
        xcb_discard_reply(c, node.tree.sequence);
    }
}

void readShapes(const XConnection &x, std::vector<TopLevel> &windows)
{
    xcb_connection_t *c = x.get();
    if (!x.extensions().shape) {
        for (TopLevel &window : windows)
            window.shape = {window.rect};
        return;
    }
    struct Pending
    {
        xcb_shape_query_extents_cookie_t extents;
        xcb_shape_get_rectangles_cookie_t rectangles;
    };
    std::vector<Pending> pending;
    pending.reserve(windows.size());
    for (const TopLevel &window : windows)
        pending.push_back({xcb_shape_query_extents(c, window.window),
                           xcb_shape_get_rectangles(c, window.window, XCB_SHAPE_SK_BOUNDING)});
    for (std::size_t i = 0; i < windows.size(); ++i) {
        TopLevel &window = windows[i];
        const auto extents = takeReply(c, xcb_shape_query_extents_reply, pending[i].extents);
        const auto reply = takeReply(c, xcb_shape_get_rectangles_reply, pending[i].rectangles);
        // For a window without a shape, servers report a rectangle without half of the border.
        if (!extents || !reply || extents->bounding_shaped == 0) {
            window.shape = {window.rect};
            continue;
        }
        const Rect inner = window.innerRect();
        const std::span<const xcb_rectangle_t> rects(
            xcb_shape_get_rectangles_rectangles(reply.get()),
            static_cast<std::size_t>(xcb_shape_get_rectangles_rectangles_length(reply.get())));
        for (const xcb_rectangle_t &rect : rects) {
            // A shape may be larger than its window, which clips it.
            const Rect shown = intersected(
                Rect{rect.x, rect.y, rect.width, rect.height}.translated(inner.x, inner.y),
                window.rect);
            if (!shown.isEmpty())
                window.shape.push_back(shown);
        }
    }
}

} // namespace

std::optional<std::vector<TopLevel>> readWindowStack(const XConnection &x, bool compositing)
{
    // The program that marks windows makes the atom; without it there is nothing to leave out.
    if (x.atoms().captureExclude == XCB_ATOM_NONE)
        return std::vector<TopLevel>();
    std::optional<std::vector<TopLevel>> windows = readViewable(x);
    if (!windows)
        return std::nullopt;
    readProperties(x, *windows, compositing);
    if (std::ranges::none_of(*windows, &TopLevel::excluded))
        return std::vector<TopLevel>();
    readShapes(x, *windows);
    return windows;
}

bool isCompositorRunning(const XConnection &x)
{
    if (x.atoms().compositorSelection == XCB_ATOM_NONE)
        return false;
    const auto reply = takeReply(x.get(), xcb_get_selection_owner_reply,
                                 xcb_get_selection_owner(x.get(), x.atoms().compositorSelection));
    return reply && reply->owner != XCB_WINDOW_NONE;
}

std::vector<Rect> readMonitors(const XConnection &x)
{
    if (!x.extensions().randr)
        return {};
    xcb_connection_t *c = x.get();
    if (x.extensions().monitors) {
        std::vector<Rect> monitors;
        const auto reply =
            takeReply(c, xcb_randr_get_monitors_reply, xcb_randr_get_monitors(c, x.root(), 1));
        auto infos = reply ? xcb_randr_get_monitors_monitors_iterator(reply.get())
                           : xcb_randr_monitor_info_iterator_t{};
        for (; infos.rem > 0; xcb_randr_monitor_info_next(&infos)) {
            const xcb_randr_monitor_info_t &info = *infos.data;
            if (info.width > 0 && info.height > 0)
                monitors.push_back({info.x, info.y, info.width, info.height});
        }
        return monitors;
    }
    const auto resources = takeReply(c, xcb_randr_get_screen_resources_current_reply,
                                     xcb_randr_get_screen_resources_current(c, x.root()));
    if (!resources)
        return {};
    const std::span<const xcb_randr_crtc_t> crtcs(
        xcb_randr_get_screen_resources_current_crtcs(resources.get()),
        static_cast<std::size_t>(
            xcb_randr_get_screen_resources_current_crtcs_length(resources.get())));
    std::vector<xcb_randr_get_crtc_info_cookie_t> cookies;
    for (const xcb_randr_crtc_t crtc : crtcs)
        cookies.push_back(xcb_randr_get_crtc_info(c, crtc, resources->config_timestamp));
    std::vector<Rect> monitors;
    for (const auto cookie : cookies) {
        const auto info = takeReply(c, xcb_randr_get_crtc_info_reply, cookie);
        if (info && info->mode != XCB_NONE && info->width > 0 && info->height > 0)
            monitors.push_back({info->x, info->y, info->width, info->height});
    }
    return monitors;
}

} // namespace quellora::screencapture
