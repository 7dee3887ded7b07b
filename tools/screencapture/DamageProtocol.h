#pragma once

#include "Geometry.h"

#include <xcb/xcb.h>
#include <xcb/xcbext.h>

#include <optional>

namespace quellora::screencapture {

/// The two requests and the event of the DAMAGE extension that the tool needs, written after the
/// protocol's published description; the packaged bindings would be one more library to load.
extern xcb_extension_t damageExtension;

/// Version handshake, required before any other request. @return whether it was answered
bool negotiateDamage(xcb_connection_t *connection);

/// Reports every drawing into @p window and its children from now on, once for the whole window
/// at the start.
void watchDamage(xcb_connection_t *connection, xcb_window_t window);

struct DamageEvent
{
    xcb_window_t window = XCB_WINDOW_NONE;
    /// Relative to the window's inner origin.
    Rect rect;
};

/// @return nothing when @p event is of another kind
std::optional<DamageEvent> damageFromEvent(xcb_connection_t *connection,
                                           const xcb_generic_event_t &event);

} // namespace quellora::screencapture
