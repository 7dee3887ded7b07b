#include "XConnection.h"

#include "CapturePlan.h"

#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/shape.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

#include <array>
#include <string>

#include <sys/socket.h>

namespace quellora::screencapture {

namespace {

/// File descriptors can only be passed over a local socket.
bool isLocalSocket(int descriptor)
{
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    return getpeername(descriptor, reinterpret_cast<sockaddr *>(&address), &length) == 0 &&
           address.ss_family == AF_UNIX;
}

bool isAtLeast(std::uint32_t major, std::uint32_t minor, std::uint32_t neededMajor,
               std::uint32_t neededMinor)
{
    return major > neededMajor || (major == neededMajor && minor >= neededMinor);
}

} // namespace

tl::expected<XConnection, Failure> XConnection::open()
{
    int screenNumber = 0;
    xcb_connection_t *raw = xcb_connect(nullptr, &screenNumber);
    XConnection x(raw, screenNumber);
    if (x.hasBroken() || x.m_screen == nullptr) {
        const char *display = std::getenv("DISPLAY");
        return tl::unexpected(Failure{
            ExitStatus::NoDisplay, display == nullptr || *display == '\0'
                                       ? std::string("cannot open the display: DISPLAY is not set")
                                       : "cannot open the display " + std::string(display)});
    }
    // Sent with the atoms to save a round trip; queryExtensions() takes the replies.
    for (xcb_extension_t *extension : {&xcb_composite_id, &xcb_damage_id, &xcb_randr_id,
                                       &xcb_shape_id, &xcb_shm_id, &xcb_xfixes_id})
        xcb_prefetch_extension_data(raw, extension);
    x.internAtoms(screenNumber);
    x.queryExtensions();
    if (x.hasBroken())
        return tl::unexpected(
            Failure{ExitStatus::NoDisplay, "the connection to the display broke"});
    return x;
}

XConnection::XConnection(xcb_connection_t *connection, int screenNumber) : m_connection(connection)
{
    if (hasBroken())
        return;
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; screens.rem > 0; xcb_screen_next(&screens), --screenNumber) {
        if (screenNumber == 0) {
            m_screen = screens.data;
            return;
        }
    }
}

void XConnection::queryExtensions()
{
    xcb_connection_t *c = get();
    const auto present = [c](xcb_extension_t *extension) {
        const xcb_query_extension_reply_t *data = xcb_get_extension_data(c, extension);
        return data != nullptr && data->present != 0;
    };
    const bool composite = present(&xcb_composite_id);
    const bool damage = present(&xcb_damage_id);
    const bool randr = present(&xcb_randr_id);
    const bool shm = present(&xcb_shm_id) && isLocalSocket(xcb_get_file_descriptor(c));
    const bool xfixes = present(&xcb_xfixes_id);
    m_extensions.shape = present(&xcb_shape_id);

    // Naming window pixmaps came with Composite 0.2, descriptors with MIT-SHM 1.2, the current
    // screen resources with RandR 1.3, its monitors with 1.5.
    xcb_composite_query_version_cookie_t compositeCookie{};
    xcb_damage_query_version_cookie_t damageCookie{};
    xcb_randr_query_version_cookie_t randrCookie{};
    xcb_shm_query_version_cookie_t shmCookie{};
    xcb_xfixes_query_version_cookie_t xfixesCookie{};
    if (composite)
        compositeCookie = xcb_composite_query_version(c, 0, 4);
    if (damage)
        damageCookie = xcb_damage_query_version(c, 1, 1);
    if (randr)
        randrCookie = xcb_randr_query_version(c, 1, 5);
    if (shm)
        shmCookie = xcb_shm_query_version(c);
    if (xfixes)
        xfixesCookie = xcb_xfixes_query_version(c, 4, 0);
    if (composite) {
        const auto reply = takeReply(c, xcb_composite_query_version_reply, compositeCookie);
        m_extensions.composite =
            reply && isAtLeast(reply->major_version, reply->minor_version, 0, 2);
    }
    if (damage)
        m_extensions.damage = takeReply(c, xcb_damage_query_version_reply, damageCookie) != nullptr;
    if (randr) {
        const auto reply = takeReply(c, xcb_randr_query_version_reply, randrCookie);
        m_extensions.randr = reply && isAtLeast(reply->major_version, reply->minor_version, 1, 3);
        m_extensions.monitors =
            reply && isAtLeast(reply->major_version, reply->minor_version, 1, 5);
    }
    if (shm) {
        const auto reply = takeReply(c, xcb_shm_query_version_reply, shmCookie);
        m_extensions.sharedMemory =
            reply && isAtLeast(reply->major_version, reply->minor_version, 1, 2);
    }
    if (xfixes)
        m_extensions.xfixes = takeReply(c, xcb_xfixes_query_version_reply, xfixesCookie) != nullptr;
}

void XConnection::internAtoms(int screenNumber)
{
    xcb_connection_t *c = get();
    const std::string selection = "_NET_WM_CM_S" + std::to_string(screenNumber);
    const std::array<std::string_view, 4> names{
        "_QUELLORA_CAPTURE_EXCLUDE", "_NET_WM_WINDOW_OPACITY", "_XROOTPMAP_ID", selection};
    const std::array<xcb_atom_t *, 4> targets{&m_atoms.captureExclude, &m_atoms.windowOpacity,
                                              &m_atoms.rootPixmap, &m_atoms.compositorSelection};
    std::array<xcb_intern_atom_cookie_t, 4> cookies{};
    // Creates no atoms: one that does not exist is not in use.
    for (std::size_t i = 0; i < names.size(); ++i)
        cookies[i] =
            xcb_intern_atom(c, 1, static_cast<std::uint16_t>(names[i].size()), names[i].data());
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (const auto reply = takeReply(c, xcb_intern_atom_reply, cookies[i]))
            *targets[i] = reply->atom;
    }
}

std::optional<PixelFormat> XConnection::format(int depth, xcb_visualid_t visual) const
{
    const xcb_setup_t *setup = xcb_get_setup(get());
    PixelFormat::Layout layout;
    layout.mostSignificantByteFirst = setup->image_byte_order == XCB_IMAGE_ORDER_MSB_FIRST;
    layout.bitsPerPixel = 0;
    for (auto formats = xcb_setup_pixmap_formats_iterator(setup); formats.rem > 0;
         xcb_format_next(&formats)) {
        if (formats.data->depth == depth) {
            layout.bitsPerPixel = formats.data->bits_per_pixel;
            layout.scanlinePad = formats.data->scanline_pad;
        }
    }
    for (auto depths = xcb_screen_allowed_depths_iterator(m_screen); depths.rem > 0;
         xcb_depth_next(&depths)) {
        if (depths.data->depth != depth)
            continue;
        for (auto visuals = xcb_depth_visuals_iterator(depths.data); visuals.rem > 0;
             xcb_visualtype_next(&visuals)) {
            const xcb_visualtype_t &type = *visuals.data;
            if (type.visual_id != visual || (type._class != XCB_VISUAL_CLASS_TRUE_COLOR &&
                                             type._class != XCB_VISUAL_CLASS_DIRECT_COLOR))
                continue;
            layout.redMask = type.red_mask;
            layout.greenMask = type.green_mask;
            layout.blueMask = type.blue_mask;
            // At depth 32, alpha is what the colour masks leave over.
            layout.alphaMask =
                depth == 32 ? ~(type.red_mask | type.green_mask | type.blue_mask) : 0;
            const PixelFormat format(layout);
            return format.isSupported() ? std::optional(format) : std::nullopt;
        }
    }
    return std::nullopt;
}

bool XConnection::isServerOwned(xcb_window_t window) const
{
    return isServerId(window, xcb_get_setup(get())->resource_id_mask);
}

void ServerGrab::release()
{
    if (!m_held)
        return;
    m_held = false;
    xcb_ungrab_server(m_x.get());
    xcb_flush(m_x.get());
}

} // namespace quellora::screencapture
