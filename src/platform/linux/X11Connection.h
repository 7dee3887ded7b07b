#pragma once

#include <QByteArray>
#include <QList>

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <optional>

namespace quellora {

struct FreeDeleter
{
    void operator()(void *reply) const { std::free(reply); }
};
/// An xcb reply or error that is freed when it goes out of scope.
template <typename T>
using XcbPtr = std::unique_ptr<T, FreeDeleter>;

/// The application's own connection to the X server. A plain handle: copies name the same
/// connection, which lives as long as the application object. Main thread only.
class X11Connection
{
public:
    /// Absent when the application does not run on X11.
    static std::optional<X11Connection> current();
    /// Calls @p leave, which must not return, on a thread whose connection to the server is lost,
    /// in place of the exit() of Xlib. For every connection of the process that goes through Xlib,
    /// the drawing threads' included; the toolkit looks after its event loop's itself.
    static void setLossHandler(void (*leave)());

    xcb_connection_t *get() const { return m_connection; }
    xcb_window_t root() const { return m_root; }
    int screenNumber() const { return m_screenNumber; }

    /// Interns the atom; XCB_ATOM_NONE when the server fails. One round trip on first use.
    xcb_atom_t atom(const QByteArray &name) const;
    /// First event code of an extension; 0 when the server does not have it.
    quint8 firstEvent(xcb_extension_t *extension) const;
    void flush() const { xcb_flush(m_connection); }

private:
    X11Connection(xcb_connection_t *connection, xcb_window_t root, int screenNumber);

    xcb_connection_t *m_connection;
    xcb_window_t m_root;
    int m_screenNumber;
};

} // namespace quellora
