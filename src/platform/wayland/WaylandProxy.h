#pragma once

#include <memory>

struct wl_buffer;
struct wl_callback;
struct wl_compositor;
struct wl_event_queue;
struct wl_keyboard;
struct wl_output;
struct wl_pointer;
struct wl_registry;
struct wl_seat;
struct wl_shm;
struct wl_shm_pool;
struct wl_surface;
struct wp_viewport;
struct wp_viewporter;
struct zwlr_layer_shell_v1;
struct zwlr_layer_surface_v1;
struct zwlr_screencopy_frame_v1;
struct zwlr_screencopy_manager_v1;
struct zwp_relative_pointer_manager_v1;
struct zwp_relative_pointer_v1;

namespace quellora {

/// Sends the request that ends an object, or drops the proxy where the protocol has none.
struct WaylandDeleter
{
    void operator()(wl_buffer *proxy) const;
    void operator()(wl_callback *proxy) const;
    void operator()(wl_compositor *proxy) const;
    void operator()(wl_event_queue *queue) const;
    void operator()(wl_keyboard *proxy) const;
    void operator()(wl_output *proxy) const;
    void operator()(wl_pointer *proxy) const;
    void operator()(wl_registry *proxy) const;
    void operator()(wl_seat *proxy) const;
    void operator()(wl_shm *proxy) const;
    void operator()(wl_shm_pool *proxy) const;
    void operator()(wl_surface *proxy) const;
    void operator()(wp_viewport *proxy) const;
    void operator()(wp_viewporter *proxy) const;
    void operator()(zwlr_layer_shell_v1 *proxy) const;
    void operator()(zwlr_layer_surface_v1 *proxy) const;
    void operator()(zwlr_screencopy_frame_v1 *proxy) const;
    void operator()(zwlr_screencopy_manager_v1 *proxy) const;
    void operator()(zwp_relative_pointer_manager_v1 *proxy) const;
    void operator()(zwp_relative_pointer_v1 *proxy) const;
};

/// Owns a proxy. Destroy it before the display connection is closed.
template <typename T>
using WaylandPtr = std::unique_ptr<T, WaylandDeleter>;

} // namespace quellora
