#include "platform/linux/WindowHintsX11.h"

#include <QWindow>

#include <algorithm>
#include <array>

namespace quellora {
namespace {

constexpr quint32 allDesktops = 0xFFFFFFFF;
constexpr quint32 stateAdd = 1;
constexpr quint32 sourceApplication = 1;
constexpr quint32 sourceUser = 2;

/// Whether the window is mapped and managed, so that changes must go through the window manager.
bool isManaged(const X11Connection &x11, xcb_window_t window)
{
    const XcbPtr<xcb_get_window_attributes_reply_t> reply(xcb_get_window_attributes_reply(
        x11.get(), xcb_get_window_attributes(x11.get(), window), nullptr));
    return reply && reply->map_state != XCB_MAP_STATE_UNMAPPED && !reply->override_redirect;
}

void sendClientMessage(const X11Connection &x11, xcb_window_t window, const QByteArray &message,
                       const std::array<quint32, 5> &data)
{
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = x11.atom(message);
    std::copy(data.begin(), data.end(), event.data.data32);
    xcb_send_event(x11.get(), 0, x11.root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char *>(&event));
}

QList<xcb_atom_t> atomProperty(const X11Connection &x11, xcb_window_t window, xcb_atom_t property)
{
    const XcbPtr<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        x11.get(), xcb_get_property(x11.get(), 0, window, property, XCB_ATOM_ATOM, 0, 64),
        nullptr));
    if (!reply || reply->type != XCB_ATOM_ATOM || reply->format != 32)
        return {};
    const auto *atoms = static_cast<const xcb_atom_t *>(xcb_get_property_value(reply.get()));
    return {atoms, atoms + xcb_get_property_value_length(reply.get()) / 4};
}

} // namespace

xcb_window_t nativeWindow(const QWindow &window)
{
    return window.handle() ? static_cast<xcb_window_t>(window.winId()) : xcb_window_t(XCB_NONE);
}

void addWindowStates(const X11Connection &x11, const QWindow &window,
                     const QList<QByteArray> &states)
{
    const xcb_window_t native = nativeWindow(window);
    if (native == XCB_NONE)
        return;
    const xcb_atom_t property = x11.atom("_NET_WM_STATE");
    if (isManaged(x11, native)) {
        for (const QByteArray &state : states)
            sendClientMessage(x11, native, "_NET_WM_STATE",
                              {stateAdd, x11.atom(state), 0, sourceApplication, 0});
    } else {
        QList<xcb_atom_t> atoms = atomProperty(x11, native, property);
        for (const QByteArray &state : states) {
            const xcb_atom_t atom = x11.atom(state);
            if (!atoms.contains(atom))
                atoms.append(atom);
        }
        xcb_change_property(x11.get(), XCB_PROP_MODE_REPLACE, native, property, XCB_ATOM_ATOM, 32,
                            static_cast<uint32_t>(atoms.size()), atoms.constData());
    }
    x11.flush();
}

bool hasWindowStates(const X11Connection &x11, const QWindow &window,
                     const QList<QByteArray> &states)
{
    const QList<xcb_atom_t> atoms =
        atomProperty(x11, nativeWindow(window), x11.atom("_NET_WM_STATE"));
    return std::all_of(states.begin(), states.end(),
                       [&](const QByteArray &state) { return atoms.contains(x11.atom(state)); });
}

void showOnAllDesktops(const X11Connection &x11, const QWindow &window)
{
    const xcb_window_t native = nativeWindow(window);
    if (native == XCB_NONE)
        return;
    if (isManaged(x11, native))
        sendClientMessage(x11, native, "_NET_WM_DESKTOP",
                          {allDesktops, sourceApplication, 0, 0, 0});
    else
        setCardinal(x11, native, "_NET_WM_DESKTOP", allDesktops);
    x11.flush();
}

void requestActivation(const X11Connection &x11, const QWindow &window)
{
    const xcb_window_t native = nativeWindow(window);
    if (native == XCB_NONE || !isManaged(x11, native))
        return;
    sendClientMessage(x11, native, "_NET_ACTIVE_WINDOW",
                      {sourceUser, XCB_CURRENT_TIME, XCB_NONE, 0, 0});
    x11.flush();
}

void setText(const X11Connection &x11, xcb_window_t window, const QByteArray &property,
             xcb_atom_t type, const QByteArray &text)
{
    xcb_change_property(x11.get(), XCB_PROP_MODE_REPLACE, window, x11.atom(property), type, 8,
                        static_cast<uint32_t>(text.size()), text.constData());
    x11.flush();
}

void setCardinal(const X11Connection &x11, xcb_window_t window, const QByteArray &property,
                 quint32 value)
{
    xcb_change_property(x11.get(), XCB_PROP_MODE_REPLACE, window, x11.atom(property),
                        XCB_ATOM_CARDINAL, 32, 1, &value);
    x11.flush();
}

} // namespace quellora
