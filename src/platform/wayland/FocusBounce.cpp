#include "platform/wayland/FocusBounce.h"

#include <wayland-client.h>
#include <wlr-layer-shell-unstable-v1-client.h>

#include <sys/mman.h>
#include <unistd.h>

#include <chrono>

namespace quellora {
namespace {

using namespace std::chrono_literals;

constexpr auto purpose = "quellora-focus";
constexpr int bytesPerPixel = 4;

} // namespace

/// The callbacks of the protocol; the data is the bounce.
struct FocusBounce::Listeners
{
    static void configure(void *data, zwlr_layer_surface_v1 *role, uint32_t serial, uint32_t,
                          uint32_t)
    {
        zwlr_layer_surface_v1_ack_configure(role, serial);
        static_cast<FocusBounce *>(data)->takeKeyboard();
    }
    static void closed(void *data, zwlr_layer_surface_v1 *)
    {
        static_cast<FocusBounce *>(data)->cancel();
    }
    static constexpr zwlr_layer_surface_v1_listener role{&configure, &closed};
};

FocusBounce::FocusBounce(const WaylandConnection &connection, const WaylandKeyboard &keyboard,
                         QObject *parent)
    : QObject(parent), m_connection(connection)
{
    m_timeout.setSingleShot(true);
    m_timeout.setInterval(500ms);
    connect(&m_timeout, &QTimer::timeout, this, &FocusBounce::cancel);
    connect(&keyboard, &WaylandKeyboard::entered, this, [this](wl_surface *surface) {
        if (surface == m_surface.get())
            cancel();
    });
}

FocusBounce::~FocusBounce() = default;

void FocusBounce::start()
{
    if (m_role || !m_connection.shm() || !m_connection.compositor())
        return;
    m_surface.reset(wl_compositor_create_surface(m_connection.compositor()));
    m_role.reset(zwlr_layer_shell_v1_get_layer_surface(m_connection.layerShell(), m_surface.get(),
                                                       nullptr, ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY,
                                                       purpose));
    zwlr_layer_surface_v1_add_listener(m_role.get(), &Listeners::role, this);
    zwlr_layer_surface_v1_set_size(m_role.get(), 1, 1);
    zwlr_layer_surface_v1_set_anchor(m_role.get(), ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP |
                                                       ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT);
    zwlr_layer_surface_v1_set_exclusive_zone(m_role.get(), -1);
    zwlr_layer_surface_v1_set_keyboard_interactivity(
        m_role.get(), ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_EXCLUSIVE);
    wl_surface_commit(m_surface.get());
    m_connection.flush();
    m_timeout.start();
}

void FocusBounce::cancel()
{
    m_timeout.stop();
    m_role.reset();
    m_surface.reset();
    m_buffer.reset();
    m_connection.flush();
}

void FocusBounce::takeKeyboard()
{
    if (!m_buffer)
        m_buffer = makeBuffer();
    wl_surface_attach(m_surface.get(), m_buffer.get(), 0, 0);
    wl_surface_damage(m_surface.get(), 0, 0, 1, 1);
    wl_surface_commit(m_surface.get());
    m_connection.flush();
}

WaylandPtr<wl_buffer> FocusBounce::makeBuffer() const
{
    // Zero is transparent.
    const int file = ::memfd_create(purpose, MFD_CLOEXEC);
    if (file < 0 || ::ftruncate(file, bytesPerPixel) != 0) {
        ::close(file);
        return nullptr;
    }
    const WaylandPtr<wl_shm_pool> pool(wl_shm_create_pool(m_connection.shm(), file, bytesPerPixel));
    ::close(file);
    return WaylandPtr<wl_buffer>(
        wl_shm_pool_create_buffer(pool.get(), 0, 1, 1, bytesPerPixel, WL_SHM_FORMAT_ARGB8888));
}

} // namespace quellora
