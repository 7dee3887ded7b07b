#include "wayland/FakeCompositor.h"

#include <wayland-server-core.h>
#include <wayland-server-protocol.h>

#include <QFile>

namespace quellora {
namespace {

int stop(void *display)
{
    wl_display_terminate(static_cast<wl_display *>(display));
    return 0;
}

void bind(wl_client *client, void *, uint32_t version, uint32_t id)
{
    // Of any class, because no request is expected.
    wl_resource_create(client, &wl_callback_interface, static_cast<int>(version), id);
}

} // namespace

FakeCompositor::FakeCompositor(const QList<const wl_interface *> &interfaces)
    : m_displayBefore(qgetenv("WAYLAND_DISPLAY"))
    , m_folderBefore(qgetenv("XDG_RUNTIME_DIR"))
    , m_display(wl_display_create())
{
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_folder.path()));
    for (const wl_interface *interface : interfaces)
        wl_global_create(m_display, interface, 1, nullptr, &bind);
    qputenv("WAYLAND_DISPLAY", wl_display_add_socket_auto(m_display));
    m_thread = std::thread([this] { wl_display_run(m_display); });
}

FakeCompositor::~FakeCompositor()
{
    // A timer, because the loop belongs to the other thread: it only wakes up on file descriptors.
    wl_event_source *timer =
        wl_event_loop_add_timer(wl_display_get_event_loop(m_display), &stop, m_display);
    wl_event_source_timer_update(timer, 1);
    m_thread.join();
    wl_event_source_remove(timer);
    wl_display_destroy_clients(m_display);
    wl_display_destroy(m_display);
    qputenv("WAYLAND_DISPLAY", m_displayBefore);
    qputenv("XDG_RUNTIME_DIR", m_folderBefore);
}

} // namespace quellora
