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
/// Owns an xcb reply or error.
template <typename T>
using XcbPtr = std::unique_ptr<T, FreeDeleter>;

/// A non-owning handle to the application's connection to the X server, which is valid as long as
/// the application object exists. Main thread only.
class X11Connection
{
public:
    /// nullopt if the application does not run on X11.
    static std::optional<X11Connection> current();
    /// Calls @p handler instead of Xlib's exit() when a connection to the server is lost. It runs
    /// on the thread that uses the connection and must not return. Applies to every Xlib connection
    /// of the process, including those of render threads, except the one of Qt's event loop, which
    /// Qt handles itself.
    static void setLossHandler(void (*handler)());

    xcb_connection_t *get() const { return m_connection; }
    xcb_window_t root() const { return m_root; }
    int screenNumber() const { return m_screenNumber; }

    /// Interns an atom; XCB_ATOM_NONE on failure. One round trip on first use of a name.
    xcb_atom_t atom(const QByteArray &name) const;
    /// First event code of an extension; 0 if the server lacks it.
    quint8 firstEvent(xcb_extension_t *extension) const;
    void flush() const { xcb_flush(m_connection); }

private:
    X11Connection(xcb_connection_t *connection, xcb_window_t root, int screenNumber);

    xcb_connection_t *m_connection;
    xcb_window_t m_root;
    int m_screenNumber;
};

} // namespace quellora
