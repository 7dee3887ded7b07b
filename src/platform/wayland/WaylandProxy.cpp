#include "platform/wayland/WaylandProxy.h"

#include <relative-pointer-unstable-v1-client.h>
#include <viewporter-client.h>
#include <wayland-client.h>
#include <wlr-layer-shell-unstable-v1-client.h>
#include <wlr-screencopy-unstable-v1-client.h>

namespace quellora {

void WaylandDeleter::operator()(wl_buffer *proxy) const
{
    wl_buffer_destroy(proxy);
}

void WaylandDeleter::operator()(wl_callback *proxy) const
{
    wl_callback_destroy(proxy);
}

void WaylandDeleter::operator()(wl_compositor *proxy) const
{
    wl_compositor_destroy(proxy);
}

void WaylandDeleter::operator()(wl_event_queue *queue) const
{
    wl_event_queue_destroy(queue);
}

void WaylandDeleter::operator()(wl_keyboard *proxy) const
{
    if (wl_keyboard_get_version(proxy) >= WL_KEYBOARD_RELEASE_SINCE_VERSION)
        wl_keyboard_release(proxy);
    else
        wl_keyboard_destroy(proxy);
}

void WaylandDeleter::operator()(wl_output *proxy) const
{
    if (wl_output_get_version(proxy) >= WL_OUTPUT_RELEASE_SINCE_VERSION)
        wl_output_release(proxy);
    else
        wl_output_destroy(proxy);
}

void WaylandDeleter::operator()(wl_pointer *proxy) const
{
    if (wl_pointer_get_version(proxy) >= WL_POINTER_RELEASE_SINCE_VERSION)
        wl_pointer_release(proxy);
    else
        wl_pointer_destroy(proxy);
}

void WaylandDeleter::operator()(wl_registry *proxy) const
{
    wl_registry_destroy(proxy);
}

void WaylandDeleter::operator()(wl_seat *proxy) const
{
    if (wl_seat_get_version(proxy) >= WL_SEAT_RELEASE_SINCE_VERSION)
        wl_seat_release(proxy);
    else
        wl_seat_destroy(proxy);
}

void WaylandDeleter::operator()(wl_shm *proxy) const
{
    wl_shm_destroy(proxy);
}

void WaylandDeleter::operator()(wl_shm_pool *proxy) const
{
    wl_shm_pool_destroy(proxy);
}

void WaylandDeleter::operator()(wl_surface *proxy) const
{
    wl_surface_destroy(proxy);
}

void WaylandDeleter::operator()(wp_viewport *proxy) const
{
    wp_viewport_destroy(proxy);
}

void WaylandDeleter::operator()(wp_viewporter *proxy) const
{
    wp_viewporter_destroy(proxy);
}

void WaylandDeleter::operator()(zwlr_layer_shell_v1 *proxy) const
{
    if (zwlr_layer_shell_v1_get_version(proxy) >= ZWLR_LAYER_SHELL_V1_DESTROY_SINCE_VERSION)
        zwlr_layer_shell_v1_destroy(proxy);
    else
        wl_proxy_destroy(reinterpret_cast<wl_proxy *>(proxy));
}

void WaylandDeleter::operator()(zwlr_layer_surface_v1 *proxy) const
{
    zwlr_layer_surface_v1_destroy(proxy);
}

void WaylandDeleter::operator()(zwlr_screencopy_frame_v1 *proxy) const
{
    zwlr_screencopy_frame_v1_destroy(proxy);
}

void WaylandDeleter::operator()(zwlr_screencopy_manager_v1 *proxy) const
{
    zwlr_screencopy_manager_v1_destroy(proxy);
}

void WaylandDeleter::operator()(zwp_relative_pointer_manager_v1 *proxy) const
{
    zwp_relative_pointer_manager_v1_destroy(proxy);
}

void WaylandDeleter::operator()(zwp_relative_pointer_v1 *proxy) const
{
    zwp_relative_pointer_v1_destroy(proxy);
}

} // namespace quellora
