#include "platform/wayland/WaylandConnection.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>
#include <qpa/qplatformnativeinterface.h>

#include <relative-pointer-unstable-v1-client.h>
#include <viewporter-client.h>
#include <wayland-client.h>
#include <wlr-layer-shell-unstable-v1-client.h>
#include <wlr-screencopy-unstable-v1-client.h>

#include <algorithm>

namespace quellora {
namespace {

QPlatformNativeInterface *toolkit()
{
    return qGuiApp && QGuiApplication::platformName().startsWith(QStringLiteral("wayland"))
               ? QGuiApplication::platformNativeInterface()
               : nullptr;
}

template <typename T>
void bindTo(WaylandPtr<T> &proxy, wl_registry *registry, quint32 name, const wl_interface &type,
            quint32 version, quint32 highest)
{
    if (!proxy)
        proxy.reset(
            static_cast<T *>(wl_registry_bind(registry, name, &type, std::min(version, highest))));
}

} // namespace

/// The callbacks of the protocol; the data is the connection.
struct WaylandConnection::Listeners
{
    static WaylandConnection &self(void *data) { return *static_cast<WaylandConnection *>(data); }

    /// Null for an output that is gone.
    static Output *find(void *data, wl_output *proxy)
    {
        return data ? self(data).find(proxy) : nullptr;
    }

    static void global(void *data, wl_registry *, uint32_t name, const char *interface,
                       uint32_t version)
    {
        self(data).bind(name, interface, version);
    }
    static void globalRemove(void *data, wl_registry *, uint32_t name) { self(data).remove(name); }

    static void geometry(void *data, wl_output *proxy, int32_t, int32_t, int32_t, int32_t, int32_t,
                         const char *, const char *, int32_t transform)
    {
        if (Output *output = find(data, proxy))
            output->transform = transform;
    }
    static void mode(void *data, wl_output *proxy, uint32_t flags, int32_t width, int32_t height,
                     int32_t)
    {
        Output *output = find(data, proxy);
        if (output && (flags & WL_OUTPUT_MODE_CURRENT) != 0)
            output->mode = QSize(width, height);
    }
    static void done(void *data, wl_output *proxy)
    {
        if (find(data, proxy))
            Q_EMIT self(data).outputsChanged();
    }
    static void scale(void *data, wl_output *proxy, int32_t factor)
    {
        if (Output *output = find(data, proxy))
            output->scale = factor;
    }
    static void name(void *data, wl_output *proxy, const char *name)
    {
        if (Output *output = find(data, proxy))
            output->name = QString::fromUtf8(name);
    }
    static void description(void *, wl_output *, const char *) {}

    static void capabilities(void *data, wl_seat *, uint32_t capabilities)
    {
        self(data).m_hasKeyboard = (capabilities & WL_SEAT_CAPABILITY_KEYBOARD) != 0;
        self(data).m_hasPointer = (capabilities & WL_SEAT_CAPABILITY_POINTER) != 0;
        Q_EMIT self(data).seatChanged();
    }
    static void seatName(void *, wl_seat *, const char *) {}

    static constexpr wl_seat_listener seat{&capabilities, &seatName};
    static constexpr wl_registry_listener registry{&global, &globalRemove};
    static constexpr wl_output_listener output{&geometry, &mode, &done,
                                               &scale,    &name, &description};
};

std::unique_ptr<WaylandConnection> WaylandConnection::current()
{
    QPlatformNativeInterface *native = toolkit();
    void *display = native ? native->nativeResourceForIntegration("wl_display") : nullptr;
    return display ? std::make_unique<WaylandConnection>(static_cast<wl_display *>(display))
                   : nullptr;
}

WaylandConnection::WaylandConnection(wl_display *display)
    : m_display(display), m_queue(wl_display_create_queue(display))
{
    m_registry.reset(wl_display_get_registry(waiting(display).get()));
    wl_registry_add_listener(m_registry.get(), &Listeners::registry, this);
    // The second one brings the descriptions of the screens.
    roundTrip();
    roundTrip();
    for (void *proxy : std::initializer_list<void *>{
             m_registry.get(), m_compositor.get(), m_shm.get(), m_seat.get(), m_layerShell.get(),
             m_screencopy.get(), m_viewporter.get(), m_relativePointers.get()}) {
        if (proxy)
            deliver(proxy);
    }
    for (const Output &output : m_outputs)
        deliver(output.proxy.get());
}

WaylandConnection::~WaylandConnection()
{
    for (Output &output : m_outputs)
        retire(output);
}

void WaylandConnection::retire(Output &output)
{
    wl_output *proxy = output.proxy.release();
    wl_output_set_user_data(proxy, nullptr);
    // The toolkit is told of every output that its surfaces enter or leave, also of these, and does
    // not expect one that has been destroyed.
    static QList<wl_output *> kept;
    kept.append(proxy);
}

void WaylandConnection::bind(quint32 name, const QByteArray &interface, quint32 version)
{
    wl_registry *registry = m_registry.get();
    const auto is = [&](const wl_interface &type) { return interface == type.name; };
    if (is(wl_compositor_interface)) {
        bindTo(m_compositor, registry, name, wl_compositor_interface, version, 4);
    } else if (is(wl_shm_interface)) {
        bindTo(m_shm, registry, name, wl_shm_interface, version, 1);
    } else if (is(wl_seat_interface) && !m_seat) {
        bindTo(m_seat, registry, name, wl_seat_interface, version, 5);
        wl_seat_add_listener(m_seat.get(), &Listeners::seat, this);
    } else if (is(zwlr_layer_shell_v1_interface)) {
        bindTo(m_layerShell, registry, name, zwlr_layer_shell_v1_interface, version, 4);
    } else if (is(zwlr_screencopy_manager_v1_interface)) {
        bindTo(m_screencopy, registry, name, zwlr_screencopy_manager_v1_interface, version, 3);
    } else if (is(wp_viewporter_interface)) {
        bindTo(m_viewporter, registry, name, wp_viewporter_interface, version, 1);
    } else if (is(zwp_relative_pointer_manager_v1_interface)) {
        bindTo(m_relativePointers, registry, name, zwp_relative_pointer_manager_v1_interface,
               version, 1);
    } else if (is(wl_output_interface)) {
        Output output;
        output.global = name;
        bindTo(output.proxy, registry, name, wl_output_interface, version, 4);
        wl_output_add_listener(output.proxy.get(), &Listeners::output, this);
        m_outputs.push_back(std::move(output));
    }
}

void WaylandConnection::remove(quint32 name)
{
    const auto found = std::find_if(m_outputs.begin(), m_outputs.end(),
                                    [name](const Output &it) { return it.global == name; });
    if (found == m_outputs.end())
        return;
    retire(*found);
    m_outputs.erase(found);
    Q_EMIT outputsChanged();
}

WaylandConnection::Output *WaylandConnection::find(wl_output *proxy)
{
    const auto found = std::find_if(m_outputs.begin(), m_outputs.end(),
                                    [proxy](const auto &it) { return it.proxy.get() == proxy; });
    return found == m_outputs.end() ? nullptr : &*found;
}

const WaylandConnection::Output *WaylandConnection::output(const QScreen &screen) const
{
    const auto found = std::find_if(m_outputs.begin(), m_outputs.end(), [&](const Output &it) {
        return !it.name.isEmpty() && it.name == screen.name();
    });
    return found == m_outputs.end() ? nullptr : &*found;
}

wl_surface *WaylandConnection::surface(QWindow &window)
{
    QPlatformNativeInterface *native = window.handle() ? toolkit() : nullptr;
    return native ? static_cast<wl_surface *>(native->nativeResourceForWindow("surface", &window))
                  : nullptr;
}

wl_output *WaylandConnection::toolkitOutput(QScreen &screen)
{
    QPlatformNativeInterface *native = screen.handle() ? toolkit() : nullptr;
    return native ? static_cast<wl_output *>(native->nativeResourceForScreen("output", &screen))
                  : nullptr;
}

void *WaylandConnection::wrapper(void *proxy) const
{
    void *wrapper = wl_proxy_create_wrapper(proxy);
    wl_proxy_set_queue(static_cast<wl_proxy *>(wrapper), m_queue.get());
    return wrapper;
}

void WaylandConnection::destroyWrapper(void *wrapper)
{
    wl_proxy_wrapper_destroy(wrapper);
}

bool WaylandConnection::roundTrip() const
{
    return wl_display_roundtrip_queue(m_display, m_queue.get()) >= 0;
}

void WaylandConnection::deliver(void *proxy) const
{
    wl_proxy_set_queue(static_cast<wl_proxy *>(proxy), nullptr);
    // What arrived before is still in the private queue.
    wl_display_dispatch_queue_pending(m_display, m_queue.get());
}

void WaylandConnection::flush() const
{
    wl_display_flush(m_display);
}

} // namespace quellora
