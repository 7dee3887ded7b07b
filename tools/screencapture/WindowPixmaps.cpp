#include "WindowPixmaps.h"

#include "RepaintWait.h"
#include "WindowParts.h"

#include <xcb/composite.h>
#include <xcb/damage.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include <poll.h>

namespace quellora::screencapture {

namespace {

std::vector<xcb_rectangle_t> toServer(const Region &region, int originX, int originY)
{
    std::vector<xcb_rectangle_t> result;
    for (const Rect &rect : region.rects())
        result.push_back({static_cast<std::int16_t>(rect.x - originX),
                          static_cast<std::int16_t>(rect.y - originY),
                          static_cast<std::uint16_t>(rect.width),
                          static_cast<std::uint16_t>(rect.height)});
    return result;
}

} // namespace

WindowPixmaps::WindowPixmaps(const XConnection &x, std::span<const TopLevel> windows,
                             const CapturePlan &plan)
    : m_x(x), m_layers(plan.layers.size())
{
    std::vector<std::size_t> all;
    for (std::size_t i = 0; i < m_layers.size(); ++i) {
        m_layers[i].window = &windows[plan.layers[i].index];
        all.push_back(i);
    }
    nameAll(all);

    std::vector<std::size_t> unredirected;
    for (const std::size_t i : all) {
        if (m_layers[i].pixmap == XCB_PIXMAP_NONE) {
            unredirected.push_back(i);
            xcb_composite_redirect_window(x.get(), m_layers[i].window->window,
                                          XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        }
    }
    if (unredirected.empty())
        return;
    nameAll(unredirected);
    for (const std::size_t i : unredirected) {
        if (m_layers[i].pixmap != XCB_PIXMAP_NONE)
            blank(m_layers[i], plan.layers[i].obscured);
    }
    watch();
}

void WindowPixmaps::nameAll(std::span<const std::size_t> layers)
{
    xcb_connection_t *c = m_x.get();
    std::vector<xcb_void_cookie_t> cookies;
    for (const std::size_t i : layers) {
        m_layers[i].pixmap = xcb_generate_id(c);
        cookies.push_back(xcb_composite_name_window_pixmap_checked(c, m_layers[i].window->window,
                                                                   m_layers[i].pixmap));
    }
    for (std::size_t n = 0; n < layers.size(); ++n) {
        const XReply<xcb_generic_error_t> error(xcb_request_check(c, cookies[n]));
        if (error)
            m_layers[layers[n]].pixmap = XCB_PIXMAP_NONE;
    }
}

/// Fills what our windows covered with black and paints window backgrounds over it. Redirecting the
/// window has made the server ask the programs for the rest.
void WindowPixmaps::blank(Layer &layer, const Region &obscured)
{
    xcb_connection_t *c = m_x.get();
    const TopLevel &window = *layer.window;
    const std::vector<WindowPart> parts = readWindowParts(m_x, window, obscured);
    const xcb_gcontext_t gc = xcb_generate_id(c);
    const std::uint32_t opaqueBlack = window.hasAlpha() ? 0xff000000U : 0;
    xcb_create_gc(c, gc, layer.pixmap, XCB_GC_FOREGROUND, &opaqueBlack);
    for (const WindowPart &part : parts) {
        const auto filled = toServer(part.own, window.rect.x, window.rect.y);
        xcb_poly_fill_rectangle(c, layer.pixmap, gc, static_cast<std::uint32_t>(filled.size()),
                                filled.data());
    }
    xcb_free_gc(c, gc);
    for (const WindowPart &part : parts) {
        for (const xcb_rectangle_t &rect : toServer(part.own, part.originX, part.originY))
            xcb_clear_area(c, 0, part.window, rect.x, rect.y, rect.width, rect.height);
        if (part.drawnOnExpose)
            layer.awaited.unite(part.own);
    }
}

/// Subscribes to drawing. The server reports the whole window once at the start; those reports are
/// dropped while the grab keeps programs from drawing.
void WindowPixmaps::watch()
{
    xcb_connection_t *c = m_x.get();
    if (!m_x.extensions().damage)
        return;
    for (const Layer &layer : m_layers) {
        if (!layer.awaited.isEmpty())
            xcb_damage_create(c, xcb_generate_id(c), layer.window->window,
                              XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
    }
    takeReply(c, xcb_get_input_focus_reply, xcb_get_input_focus(c));
    while (const XReply<xcb_generic_event_t> event{xcb_poll_for_queued_event(c)}) {
    }
}

void WindowPixmaps::waitForRepaint()
{
    using Clock = RepaintWait::Clock;
    xcb_connection_t *c = m_x.get();
    std::vector<Region> awaited;
    for (const Layer &layer : m_layers)
        awaited.push_back(layer.awaited);
    RepaintWait wait(std::move(awaited), Clock::now());
    const auto isDamage = [&](const xcb_generic_event_t &event) {
        return m_x.extensions().damage &&
               (event.response_type & 0x7f) ==
                   xcb_get_extension_data(c, &xcb_damage_id)->first_event + XCB_DAMAGE_NOTIFY;
    };

    while (const auto next = wait.nextCheck(Clock::now())) {
        while (const XReply<xcb_generic_event_t> event{xcb_poll_for_event(c)}) {
            if (!isDamage(*event))
                continue;
            const auto &damage = reinterpret_cast<const xcb_damage_notify_event_t &>(*event);
            const xcb_rectangle_t &area = damage.area;
            for (std::size_t i = 0; i < m_layers.size(); ++i) {
                const TopLevel &window = *m_layers[i].window;
                const Rect inner = window.innerRect();
                if (window.window == damage.drawable)
                    wait.drawn(i, {inner.x + area.x, inner.y + area.y, area.width, area.height},
                               Clock::now());
            }
        }
        if (m_x.hasBroken())
            return;
        const auto checkAgain = wait.nextCheck(Clock::now());
        if (!checkAgain)
            return;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(*checkAgain - Clock::now());
        pollfd descriptor{xcb_get_file_descriptor(c), POLLIN, 0};
        poll(&descriptor, 1, std::max(0, static_cast<int>(left.count())));
    }
}

} // namespace quellora::screencapture
