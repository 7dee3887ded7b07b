#include "ScreenCapture.h"

#include "CapturePlan.h"
#include "CursorOverlay.h"
#include "FrontWindow.h"
#include "ImageReader.h"
#include "PngWriter.h"
#include "RootBackground.h"
#include "WindowPixmaps.h"
#include "WindowStack.h"
#include "XConnection.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace quellora::screencapture {

namespace {

Failure unreadable(const XConnection &x, std::string reason)
{
    if (x.hasBroken())
        return {ExitStatus::NoDisplay, "the connection to the display broke"};
    return {ExitStatus::ScreenUnreadable, "cannot read the screen: " + std::move(reason)};
}

/// The pixel with the pointer; empty when the pointer is on another screen of the server.
Rect takePointer(const XConnection &x, xcb_query_pointer_cookie_t cookie)
{
    const auto reply = takeReply(x.get(), xcb_query_pointer_reply, cookie);
    if (!reply || reply->same_screen == 0)
        return {};
    return {reply->root_x, reply->root_y, 1, 1};
}

/// The picture's pixels, converted unless the server's format is the tool's own.
class Picture
{
public:
    explicit Picture(const XConnection &x) : m_reader(x) {}

    /// Reads @p area of the root window. @return false when the server refuses
    bool readRoot(const XConnection &x, const Rect &area, const PixelFormat &format)
    {
        const auto image = m_reader.read(x.root(), area, format);
        if (!image)
            return false;
        const auto stride = static_cast<std::size_t>(area.width);
        const std::size_t bytes = stride * static_cast<std::size_t>(area.height) * 4;
        std::byte *pixels = format.isNative() ? m_reader.data() : m_converted.resize(bytes);
        m_canvas = {reinterpret_cast<std::uint32_t *>(pixels), area, stride};
        if (!format.isNative())
            drawOpaque(m_canvas, *image, Region(area));
        return true;
    }

    const Canvas &canvas() const { return m_canvas; }

private:
    ImageReader m_reader;
    PageBuffer m_converted;
    Canvas m_canvas;
};

/// Recomposes the plan's patch from the contents below our windows.
class Patcher
{
public:
    Patcher(const XConnection &x, const Canvas &canvas, const CapturePlan &plan,
            const PixelFormat &rootFormat)
        : m_canvas(canvas), m_plan(plan), m_rootFormat(rootFormat), m_reader(x)
    {}

    void drawBackground(const RootBackground &background)
    {
        const Rect wanted = m_plan.background.bounds();
        const Rect held = intersected(wanted, background.rect);
        const Rect part = held == wanted ? wanted : background.rect;
        const bool repeats = background.tiled && held != wanted;
        auto image =
            m_reader.read(background.pixmap,
                          part.translated(-background.rect.x, -background.rect.y), m_rootFormat);
        if (!image)
            return;
        image->rect = part;
        if (repeats)
            drawTiled(m_canvas, *image, m_plan.background);
        else
            drawOpaque(m_canvas, *image, m_plan.background);
    }

    void drawLayer(const TopLevel &window, const PlannedLayer &layer, xcb_pixmap_t pixmap,
                   const PixelFormat &format)
    {
        const Rect part = intersected(layer.visible.bounds(), window.rect);
        auto image = m_reader.read(pixmap, part.translated(-window.rect.x, -window.rect.y), format);
        if (!image)
            return;
        image->rect = part;
        if (layer.blended)
            drawBlended(m_canvas, *image, layer.visible, window.opacity);
        else
            drawOpaque(m_canvas, *image, layer.visible);
    }

private:
    const Canvas &m_canvas;
    const CapturePlan &m_plan;
    PixelFormat m_rootFormat;
    ImageReader m_reader;
};

/// The desktop that is visible outside all windows and the patch.
Region openDesktop(const Rect &area, std::span<const TopLevel> windows, const CapturePlan &plan)
{
    Region desktop(area);
    desktop.subtract(plan.patch.rects());
    for (const TopLevel &window : windows)
        desktop.subtract(window.rect);
    return desktop;
}

/// Recomposes the patch. Called with the server grabbed; releases @p grab as soon as the contents
/// can no longer change.
void leaveOursOut(const XConnection &x, const Canvas &canvas, std::span<const TopLevel> windows,
                  const CapturePlan &plan, bool compositing, const PixelFormat &rootFormat,
                  ServerGrab &grab)
{
    WindowPixmaps pixmaps(x, windows, plan);
    std::optional<RootBackground> background;
    if (!plan.background.isEmpty()) {
        background = publishedBackground(x);
        if (!background && !compositing)
            background = paintedBackground(x, plan.background.bounds());
    }
    grab.release();
    pixmaps.waitForRepaint();

    // Without a published background the compositor paints its own: guess the most frequent colour
    // of the visible desktop. The fill also removes all traces of our windows.
    const std::uint32_t infill =
        compositing && !plan.background.isEmpty() && !background
            ? dominantColour(canvas, openDesktop(canvas.area, windows, plan))
            : 0;
    fillRegion(canvas, plan.patch, infill);
    Patcher patcher(x, canvas, plan, rootFormat);
    if (background)
        patcher.drawBackground(*background);
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        const TopLevel &window = windows[plan.layers[i].index];
        const auto format = x.format(window.depth, window.visual);
        if (pixmaps.pixmap(i) != XCB_PIXMAP_NONE && format)
            patcher.drawLayer(window, plan.layers[i], pixmaps.pixmap(i), *format);
    }
}

} // namespace

tl::expected<void, Failure>
captureScreen(bool includeCursor, Options::Area wanted,
              const std::function<tl::expected<void, Failure>(const Canvas &)> &consume)
{
    auto connection = XConnection::open();
    if (!connection)
        return tl::unexpected(connection.error());
    auto x = std::make_unique<XConnection>(std::move(*connection));

    // Sent together to save round trips. The root window may have been resized since the connection
    // was set up.
    const auto rootCookie = xcb_get_geometry(x->get(), x->root());
    const auto pointerCookie = xcb_query_pointer(x->get(), x->root());
    const std::vector<Rect> monitors = readMonitors(*x);
    const auto root = takeReply(x->get(), xcb_get_geometry_reply, rootCookie);
    const Rect pointer = takePointer(*x, pointerCookie);
    if (!root)
        return tl::unexpected(unreadable(*x, "its size is unknown"));
    const Rect all = captureArea(root->width, root->height, monitors);
    Rect area = all;
    if (wanted == Options::Area::PointedScreen)
        area = pointedMonitor(root->width, root->height, monitors, pointer);
    else if (wanted == Options::Area::FrontWindow)
        area = intersected(frontWindow(*x).value_or(Rect()), all);
    if (area.isEmpty())
        return tl::unexpected(Failure{ExitStatus::NoWindow, "no window is in front"});
    if (auto fits = checkImageSize(area.width, area.height); !fits)
        return fits;
    const auto format = x->format(x->screen().root_depth, x->screen().root_visual);
    if (!format)
        return tl::unexpected(unreadable(*x, "its pixels are palette indices"));
    Picture picture(*x);

    // The window list and the picture must be from the same moment, or a panel that is being shown
    // or moved would appear in the picture.
    ServerGrab grab(*x);
    const bool compositing = isCompositorRunning(*x);
    const auto windows = readWindowStack(*x, compositing);
    if (!windows || !picture.readRoot(*x, area, *format))
        return tl::unexpected(unreadable(*x, "the display server refused"));
    const CapturePlan plan = planCapture(*windows, area, compositing);
    if (!plan.patch.isEmpty()) {
        if (!x->extensions().composite)
            return tl::unexpected(Failure{ExitStatus::NoComposite,
                                          "a window must be left out, but the display has no "
                                          "Composite extension"});
        leaveOursOut(*x, picture.canvas(), *windows, plan, compositing, *format, grab);
        if (x->hasBroken())
            return tl::unexpected(unreadable(*x, {}));
    }
    grab.release();

    fillRegion(picture.canvas(), unseenRegion(area, monitors), 0);
    if (includeCursor) {
        if (const auto cursor = readCursor(*x))
            drawCursor(picture.canvas(), *cursor);
    }
    return consume(picture.canvas());
}

} // namespace quellora::screencapture
