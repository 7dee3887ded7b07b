#include "platform/wayland/LayerSurface.h"

#include "base/Log.h"

#include <viewporter-client.h>
#include <wayland-client.h>
#include <wlr-layer-shell-unstable-v1-client.h>

#include <limits>

namespace quellora {
namespace {

// Shown by compositors' tools; rules of the user may refer to it.
constexpr auto purpose = "quellora";
// A compositor answers the first commit with the next events.
constexpr int maxRoundTrips = 5;

quint32 layerOf(LayerSurface::Order order)
{
    return order == LayerSurface::Order::InFront ? ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY
                                                 : ZWLR_LAYER_SHELL_V1_LAYER_TOP;
}

// Places over the whole screen, whatever panels reserve.
constexpr int ignoreReserved = -1;

} // namespace

/// The callbacks of the protocol; the data is the layer surface.
struct LayerSurface::Listeners
{
    static void configure(void *data, zwlr_layer_surface_v1 *role, uint32_t serial, uint32_t,
                          uint32_t)
    {
        zwlr_layer_surface_v1_ack_configure(role, serial);
        static_cast<LayerSurface *>(data)->m_isConfigured = true;
    }
    static void closed(void *data, zwlr_layer_surface_v1 *)
    {
        auto *self = static_cast<LayerSurface *>(data);
        if (!self->m_isConfigured) {
            self->m_isClosed = true;
            return;
        }
        self->detach();
        Q_EMIT self->closed();
    }
    static constexpr zwlr_layer_surface_v1_listener role{&configure, &closed};
};

LayerSurface::LayerSurface(const WaylandConnection &connection, QObject *parent)
    : QObject(parent), m_connection(connection)
{}

LayerSurface::~LayerSurface() = default;

bool LayerSurface::attach(wl_surface *surface, QScreen &screen, const QRect &frame)
{
    detach();
    wl_output *output = WaylandConnection::toolkitOutput(screen);
    // The toolkit's stand-in while there is no screen has no output.
    if (!surface || !output)
        return false;
    m_surface = surface;
    m_screen = &screen;
    m_isConfigured = false;
    m_isClosed = false;
    m_role.reset(
        zwlr_layer_shell_v1_get_layer_surface(m_connection.waiting(m_connection.layerShell()).get(),
                                              surface, output, layerOf(m_order), purpose));
    zwlr_layer_surface_v1_add_listener(m_role.get(), &Listeners::role, this);
    zwlr_layer_surface_v1_set_anchor(m_role.get(), ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP |
                                                       ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT);
    zwlr_layer_surface_v1_set_exclusive_zone(m_role.get(), ignoreReserved);
    setKeyboard(m_keyboard);
    place(frame);
    wl_surface_commit(surface);
    for (int trip = 0; trip < maxRoundTrips && !m_isConfigured && !m_isClosed; ++trip) {
        if (!m_connection.roundTrip())
            break;
    }
    if (!m_isConfigured) {
        Log::event(QStringLiteral("[platform] WARNING: The compositor shows no panel on screen ") +
                   screen.name());
        detach();
        return false;
    }
    m_connection.deliver(m_role.get());
    return true;
}

void LayerSurface::detach()
{
    m_viewport.reset();
    m_role.reset();
    m_surface = nullptr;
    m_screen = nullptr;
    m_connection.flush();
}

void LayerSurface::place(const QRect &frame)
{
    const bool isMoved = frame.topLeft() != m_frame.topLeft();
    m_frame = frame;
    if (!m_role || !m_screen)
        return;
    if (isMoved && m_isConfigured) {
        // sway 1.7 repaints the place that is left on the first screen only; damage makes it
        // repaint this one as well.
        wl_surface_damage(m_surface, 0, 0, std::numeric_limits<int32_t>::max(),
                          std::numeric_limits<int32_t>::max());
        wl_surface_commit(m_surface);
    }
    const QPoint origin = m_screen->geometry().topLeft();
    zwlr_layer_surface_v1_set_size(m_role.get(), static_cast<uint32_t>(frame.width()),
                                   static_cast<uint32_t>(frame.height()));
    zwlr_layer_surface_v1_set_margin(m_role.get(), frame.y() - origin.y(), 0, 0,
                                     frame.x() - origin.x());
}

void LayerSurface::commit()
{
    if (!m_role)
        return;
    wl_surface_commit(m_surface);
    m_connection.flush();
}

bool LayerSurface::hasOnDemand() const
{
    return zwlr_layer_shell_v1_get_version(m_connection.layerShell()) >=
           ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_ON_DEMAND_SINCE_VERSION;
}

void LayerSurface::setKeyboard(Keyboard keyboard)
{
    m_keyboard = keyboard;
    if (!m_role)
        return;
    uint32_t interactivity = ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_NONE;
    if (keyboard == Keyboard::OnDemand && hasOnDemand())
        interactivity = ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_ON_DEMAND;
    else if (keyboard != Keyboard::None)
        interactivity = ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_EXCLUSIVE;
    zwlr_layer_surface_v1_set_keyboard_interactivity(m_role.get(), interactivity);
}

void LayerSurface::setOrder(Order order)
{
    if (order == m_order)
        return;
    m_order = order;
    if (!m_role || zwlr_layer_surface_v1_get_version(m_role.get()) <
                       ZWLR_LAYER_SURFACE_V1_SET_LAYER_SINCE_VERSION)
        return;
    zwlr_layer_surface_v1_set_layer(m_role.get(), layerOf(order));
    commit();
}

bool LayerSurface::cover()
{
    if (!m_role || !m_connection.viewporter())
        return false;
    if (!m_viewport)
        m_viewport.reset(wp_viewporter_get_viewport(m_connection.viewporter(), m_surface));
    const auto fixed = [](int value) { return wl_fixed_from_int(value); };
    wp_viewport_set_source(m_viewport.get(), 0, 0, fixed(1), fixed(1));
    wp_viewport_set_destination(m_viewport.get(), m_frame.width(), m_frame.height());
    damageAll();
    wl_surface_commit(m_surface);
    return true;
}

void LayerSurface::damageAll()
{
    // Some compositors do not draw a surface again whose size stays the same.
    wl_surface_damage(m_surface, 0, 0, INT32_MAX, INT32_MAX);
}

void LayerSurface::uncover()
{
    if (!m_viewport)
        return;
    // Also removes the source and the destination; applied with the commit.
    m_viewport.reset();
    damageAll();
    commit();
}

} // namespace quellora
