#include "WindowParts.h"

#include <span>

namespace quellora::screencapture {

namespace {

constexpr std::size_t maximumParts = 512;
constexpr std::size_t maximumRegionRects = 256;

struct Child
{
    xcb_window_t window = XCB_WINDOW_NONE;
    Rect outer;
    Rect inner;
};

/// The viewable children that can have contents, bottom to top, in root window coordinates.
std::vector<Child> readChildren(const XConnection &x, const WindowPart &parent)
{
    xcb_connection_t *c = x.get();
    const auto tree = takeReply(c, xcb_query_tree_reply, xcb_query_tree(c, parent.window));
    if (!tree)
        return {};
    const std::span<const xcb_window_t> windows(
        xcb_query_tree_children(tree.get()),
        static_cast<std::size_t>(xcb_query_tree_children_length(tree.get())));
    std::vector<xcb_get_window_attributes_cookie_t> attributeCookies;
    std::vector<xcb_get_geometry_cookie_t> geometryCookies;
    for (const xcb_window_t window : windows) {
        attributeCookies.push_back(xcb_get_window_attributes(c, window));
        geometryCookies.push_back(xcb_get_geometry(c, window));
    }
    std::vector<Child> children;
    for (std::size_t i = 0; i < windows.size(); ++i) {
        const auto attributes = takeReply(c, xcb_get_window_attributes_reply, attributeCookies[i]);
        const auto geometry = takeReply(c, xcb_get_geometry_reply, geometryCookies[i]);
        if (!attributes || !geometry || attributes->map_state != XCB_MAP_STATE_VIEWABLE ||
            attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY)
            continue;
        const int border = geometry->border_width;
        const Rect outer = Rect{geometry->x, geometry->y, geometry->width + 2 * border,
                                geometry->height + 2 * border}
                               .translated(parent.originX, parent.originY);
        children.push_back({windows[i], outer, outer.inflated(-border)});
    }
    return children;
}

bool listensForExpose(const XConnection &x, xcb_window_t window)
{
    const auto attributes = takeReply(x.get(), xcb_get_window_attributes_reply,
                                      xcb_get_window_attributes(x.get(), window));
    return attributes && (attributes->all_event_masks & XCB_EVENT_MASK_EXPOSURE) != 0;
}

} // namespace

std::vector<WindowPart> readWindowParts(const XConnection &x, const TopLevel &topLevel,
                                        const Region &region)
{
    const Rect inner = topLevel.innerRect();
    std::vector<WindowPart> parts;
    parts.push_back({topLevel.window, inner.x, inner.y, region.intersected(inner), false});
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const std::vector<Child> children = readChildren(x, parts[i]);
        // From the top: each child gets what its siblings above leave over.
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            if (parts.size() >= maximumParts)
                break;
            Region own = parts[i].own.intersected(child->inner).bounded(maximumRegionRects);
            parts[i].own.subtract(child->outer);
            if (!own.isEmpty())
                parts.push_back(
                    {child->window, child->inner.x, child->inner.y, std::move(own), false});
        }
        parts[i].drawnOnExpose = !parts[i].own.isEmpty() && listensForExpose(x, parts[i].window);
    }
    std::erase_if(parts, [](const WindowPart &part) { return part.own.isEmpty(); });
    return parts;
}

} // namespace quellora::screencapture
