#include "platform/wayland/WaylandProbe.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>

#include <wayland-client.h>
#include <wlr-layer-shell-unstable-v1-client.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <memory>

namespace quellora {
namespace {

constexpr auto displayVariable = "WAYLAND_DISPLAY";

struct DisplayCloser
{
    void operator()(wl_display *display) const { wl_display_disconnect(display); }
};
template <typename T>
struct ProxyCloser
{
    void operator()(T *proxy) const { wl_proxy_destroy(reinterpret_cast<wl_proxy *>(proxy)); }
};

struct Answer
{
    bool hasLayerShell = false;
    bool isComplete = false;
};

void onGlobal(void *data, wl_registry *, uint32_t, const char *interface, uint32_t)
{
    if (std::strcmp(interface, zwlr_layer_shell_v1_interface.name) == 0)
        static_cast<Answer *>(data)->hasLayerShell = true;
}

void onGlobalRemove(void *, wl_registry *, uint32_t) {}

void onDone(void *data, wl_callback *, uint32_t)
{
    static_cast<Answer *>(data)->isComplete = true;
}

constexpr wl_registry_listener registryListener{&onGlobal, &onGlobalRemove};
constexpr wl_callback_listener doneListener{&onDone};

/// Waits for events and dispatches them.
/// @return false if the connection is lost or nothing came in time
bool dispatchOnce(wl_display *display, const QDeadlineTimer &deadline)
{
    while (wl_display_prepare_read(display) != 0) {
        if (wl_display_dispatch_pending(display) < 0)
            return false;
    }
    wl_display_flush(display);
    pollfd ready{wl_display_get_fd(display), POLLIN, 0};
    if (::poll(&ready, 1, static_cast<int>(deadline.remainingTime())) <= 0) {
        wl_display_cancel_read(display);
        return false;
    }
    return wl_display_read_events(display) >= 0 && wl_display_dispatch_pending(display) >= 0;
}

QString socketPath()
{
    const QString name = qEnvironmentVariable(displayVariable);
    const QString folder = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (name.isEmpty() || QDir::isAbsolutePath(name))
        return name;
    return folder.isEmpty() ? QString() : folder + QLatin1Char('/') + name;
}

bool hasListener(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.isEmpty() || static_cast<size_t>(name.size()) >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, name.constData(), static_cast<size_t>(name.size()));
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0)
        return false;
    // A full queue of waiting clients also shows that somebody listens.
    const bool isHeard =
        ::connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 ||
        errno == EAGAIN;
    ::close(socket);
    return isHeard;
}

} // namespace

WaylandProbe probeWayland(std::chrono::milliseconds timeout)
{
    // An inherited connection can be used only once: it is left to the toolkit.
    if (qEnvironmentVariableIsEmpty(displayVariable) || qEnvironmentVariableIsSet("WAYLAND_SOCKET"))
        return WaylandProbe::NoCompositor;
    const std::unique_ptr<wl_display, DisplayCloser> display(wl_display_connect(nullptr));
    if (!display)
        return WaylandProbe::NoCompositor;
    Answer answer;
    const std::unique_ptr<wl_registry, ProxyCloser<wl_registry>> registry(
        wl_display_get_registry(display.get()));
    wl_registry_add_listener(registry.get(), &registryListener, &answer);
    const std::unique_ptr<wl_callback, ProxyCloser<wl_callback>> done(
        wl_display_sync(display.get()));
    wl_callback_add_listener(done.get(), &doneListener, &answer);
    const QDeadlineTimer deadline(timeout);
    while (!answer.isComplete) {
        if (!dispatchOnce(display.get(), deadline))
            return WaylandProbe::NoCompositor;
    }
    return answer.hasLayerShell ? WaylandProbe::LayerShell : WaylandProbe::NoLayerShell;
}

QString waylandSession()
{
    const QString path = QDir::cleanPath(socketPath());
    if (!hasListener(path))
        return {};
    const QString folder = QDir::cleanPath(qEnvironmentVariable("XDG_RUNTIME_DIR")) + '/';
    return path.startsWith(folder) ? path.mid(folder.size()) : path;
}

} // namespace quellora
