#pragma once

#include "ExitStatus.h"
#include "PixelFormat.h"

#include <tl/expected.hpp>

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

namespace quellora::screencapture {

struct FreeDeleter
{
    void operator()(void *memory) const { std::free(memory); }
};

/// A reply or an error of the display server.
template <typename T>
using XReply = std::unique_ptr<T, FreeDeleter>;

/// Calls an `xcb_…_reply` function; null when the request failed, for instance because its window
/// has vanished in the meantime.
template <typename Function, typename Cookie>
auto takeReply(xcb_connection_t *connection, Function function, Cookie cookie)
{
    xcb_generic_error_t *error = nullptr;
    auto *reply = function(connection, cookie, &error);
    std::free(error);
    return XReply<std::remove_pointer_t<decltype(reply)>>(reply);
}

/// The connection to the display server with its screen, extensions, atoms and pixel formats.
class XConnection
{
public:
    /// The usable extensions.
    struct Extensions
    {
        bool composite = false;
        bool damage = false;
        bool randr = false;
        /// RandR lists monitors, not only CRTCs.
        bool monitors = false;
        bool shape = false;
        /// Shared memory passed as a file descriptor: needs a local server.
        bool sharedMemory = false;
        bool xfixes = false;
    };

    struct Atoms
    {
        xcb_atom_t captureExclude = XCB_ATOM_NONE;
        xcb_atom_t windowOpacity = XCB_ATOM_NONE;
        xcb_atom_t rootPixmap = XCB_ATOM_NONE;
        xcb_atom_t compositorSelection = XCB_ATOM_NONE;
    };

    /// Connects to the display that DISPLAY names. @return NoDisplay
    static tl::expected<XConnection, Failure> open();

    XConnection(XConnection &&) = default;

    xcb_connection_t *get() const { return m_connection.get(); }
    xcb_window_t root() const { return m_screen->root; }
    const xcb_screen_t &screen() const { return *m_screen; }
    const Extensions &extensions() const { return m_extensions; }
    const Atoms &atoms() const { return m_atoms; }
    bool hasBroken() const { return xcb_connection_has_error(get()) != 0; }

    /// Pixel layout of images of @p depth, with the colour masks of @p visual.
    /// @return nothing for palette visuals and unknown pixel sizes
    std::optional<PixelFormat> format(int depth, xcb_visualid_t visual) const;
    /// Whether @p window belongs to the server itself.
    bool isServerOwned(xcb_window_t window) const;

private:
    struct Disconnect
    {
        void operator()(xcb_connection_t *connection) const { xcb_disconnect(connection); }
    };

    XConnection(xcb_connection_t *connection, int screenNumber);
    void queryExtensions();
    void internAtoms(int screenNumber);

    std::unique_ptr<xcb_connection_t, Disconnect> m_connection;
    xcb_screen_t *m_screen = nullptr;
    Extensions m_extensions;
    Atoms m_atoms;
};

/// Blocks all other clients for the lifetime of the object.
class ServerGrab
{
public:
    explicit ServerGrab(const XConnection &x) : m_x(x) { xcb_grab_server(x.get()); }
    ~ServerGrab() { release(); }
    ServerGrab(const ServerGrab &) = delete;
    ServerGrab &operator=(const ServerGrab &) = delete;

    void release();

private:
    const XConnection &m_x;
    bool m_held = true;
};

} // namespace quellora::screencapture
