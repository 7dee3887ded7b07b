#include "platform/linux/X11Connection.h"

#include <QGuiApplication>
#include <QHash>

#include <xcb/xcb_aux.h>

// Last, because it defines macros with common names.
#include <X11/Xlib.h>

namespace quellora {

namespace {

void (*lossHandler)() = nullptr;

int onIoError(Display *)
{
    lossHandler();
    return 0;
}

} // namespace

X11Connection::X11Connection(xcb_connection_t *connection, xcb_window_t root, int screenNumber)
    : m_connection(connection), m_root(root), m_screenNumber(screenNumber)
{}

std::optional<X11Connection> X11Connection::current()
{
    if (!qGuiApp)
        return std::nullopt;
    const auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !x11->connection() || !x11->display())
        return std::nullopt;
    const int screenNumber = XDefaultScreen(x11->display());
    const xcb_screen_t *screen = xcb_aux_get_screen(x11->connection(), screenNumber);
    if (!screen)
        return std::nullopt;
    return X11Connection(x11->connection(), screen->root, screenNumber);
}

void X11Connection::setLossHandler(void (*handler)())
{
    lossHandler = handler;
    XSetIOErrorHandler(handler ? &onIoError : nullptr);
}

xcb_atom_t X11Connection::atom(const QByteArray &name) const
{
    // A global cache: atoms are constant while the server runs, and a process uses one server.
    static QHash<QByteArray, xcb_atom_t> known;
    const auto found = known.constFind(name);
    if (found != known.constEnd())
        return *found;
    const auto cookie =
        xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(name.size()), name.constData());
    const XcbPtr<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(m_connection, cookie, nullptr));
    if (!reply)
        return XCB_ATOM_NONE;
    known.insert(name, reply->atom);
    return reply->atom;
}

quint8 X11Connection::firstEvent(xcb_extension_t *extension) const
{
    const xcb_query_extension_reply_t *data = xcb_get_extension_data(m_connection, extension);
    return data && data->present ? data->first_event : quint8(0);
}

} // namespace quellora
