#pragma once

#include "CapturePlan.h"
#include "XConnection.h"

#include <cstddef>
#include <span>
#include <vector>

namespace quellora::screencapture {

/// The off-screen contents of the windows that a plan draws.
///
/// A compositor has redirected all windows already. Otherwise this class redirects them for the
/// lifetime of the connection and blanks what our windows covered, which their programs then
/// repaint.
class WindowPixmaps
{
public:
    /// The server must be grabbed, so that nothing is drawn between redirecting and blanking.
    WindowPixmaps(const XConnection &x, std::span<const TopLevel> windows, const CapturePlan &plan);

    /// Waits, within limits, until the redirected windows have been repainted. The server must no
    /// longer be grabbed.
    void waitForRepaint();

    /// The contents of the plan's layer number @p layer, border included;
    /// XCB_PIXMAP_NONE when the window has vanished.
    xcb_pixmap_t pixmap(std::size_t layer) const { return m_layers[layer].pixmap; }

private:
    struct Layer
    {
        const TopLevel *window = nullptr;
        xcb_pixmap_t pixmap = XCB_PIXMAP_NONE;
        /// What its program was asked to draw, in root window coordinates.
        Region awaited;
    };

    void nameAll(std::span<const std::size_t> layers);
    void blank(Layer &layer, const Region &obscured);
    void watch();

    const XConnection &m_x;
    std::vector<Layer> m_layers;
};

} // namespace quellora::screencapture
