#include "platform/linux/OtherClient.h"

#include <QSocketNotifier>
#include <QtTest>

#include <xcb/shape.h>

#include <cstdlib>
#include <memory>

namespace quellora {
namespace {

struct Free
{
    void operator()(void *pointer) const { std::free(pointer); }
};
template <typename T>
std::unique_ptr<T, Free> take(T *reply)
{
    return std::unique_ptr<T, Free>(reply);
}

} // namespace

OtherClient::OtherClient() : m_connection(xcb_connect(nullptr, nullptr))
{
    if (xcb_connection_has_error(m_connection))
        qFatal("no X server");
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    m_notifier =
        new QSocketNotifier(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &OtherClient::readEvents);
}

OtherClient::~OtherClient()
{
    disconnectNow();
}

void OtherClient::disconnectNow()
{
    if (!m_connection)
        return;
    delete m_notifier;
    m_notifier = nullptr;
    xcb_disconnect(m_connection);
    m_connection = nullptr;
}

bool OtherClient::openFocusedWindow(const QRect &geometry)
{
    openWindow(geometry);
    return QTest::qWaitFor([this] { return focusedWindow() == m_window; });
}

bool OtherClient::takeFocus()
{
    xcb_set_input_focus(m_connection, XCB_INPUT_FOCUS_PARENT, m_window, XCB_CURRENT_TIME);
    return focusedWindow() == m_window;
}

void OtherClient::openWindow(const QRect &geometry)
{
    m_window = xcb_generate_id(m_connection);
    const uint32_t mask =
        XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_FOCUS_CHANGE;
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, m_root,
                      static_cast<int16_t>(geometry.x()), static_cast<int16_t>(geometry.y()),
                      static_cast<uint16_t>(geometry.width()),
                      static_cast<uint16_t>(geometry.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
    // No decorations, so that the window is placed exactly where requested.
    const uint32_t motif[5] = {2, 0, 0, 0, 0};
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, m_window, atom("_MOTIF_WM_HINTS"),
                        atom("_MOTIF_WM_HINTS"), 32, 5, motif);
    // USPosition (1) and PPosition (4).
    const uint32_t normalHints[18] = {1 | 4};
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, m_window, XCB_ATOM_WM_NORMAL_HINTS,
                        XCB_ATOM_WM_SIZE_HINTS, 32, 18, normalHints);
    xcb_map_window(m_connection, m_window);
    xcb_flush(m_connection);
}

void OtherClient::closeWindow()
{
    xcb_destroy_window(m_connection, m_window);
    xcb_flush(m_connection);
    m_window = XCB_NONE;
}

int OtherClient::grabKey(int keycode, quint16 modifiers)
{
    const auto error = take(xcb_request_check(
        m_connection, xcb_grab_key_checked(m_connection, 0, m_root, modifiers,
                                           static_cast<xcb_keycode_t>(keycode), XCB_GRAB_MODE_ASYNC,
                                           XCB_GRAB_MODE_ASYNC)));
    return error ? error->error_code : 0;
}

void OtherClient::ungrabKey(int keycode, quint16 modifiers)
{
    take(xcb_request_check(m_connection,
                           xcb_ungrab_key_checked(m_connection, static_cast<xcb_keycode_t>(keycode),
                                                  m_root, modifiers)));
}

bool OtherClient::grabKeyboard()
{
    const auto reply =
        take(xcb_grab_keyboard_reply(m_connection,
                                     xcb_grab_keyboard(m_connection, 0, m_window, XCB_CURRENT_TIME,
                                                       XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                     nullptr));
    return reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
}

void OtherClient::ungrabKeyboard()
{
    take(xcb_request_check(m_connection,
                           xcb_ungrab_keyboard_checked(m_connection, XCB_CURRENT_TIME)));
}

void OtherClient::ownSelection(const QByteArray &name)
{
    const xcb_window_t owner = xcb_generate_id(m_connection);
    xcb_create_window(m_connection, 0, owner, m_root, -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_set_selection_owner(m_connection, owner, atom(name), XCB_CURRENT_TIME);
    xcb_flush(m_connection);
}

void OtherClient::disownSelection(const QByteArray &name)
{
    xcb_set_selection_owner(m_connection, XCB_NONE, atom(name), XCB_CURRENT_TIME);
    xcb_flush(m_connection);
}

xcb_window_t OtherClient::focusedWindow() const
{
    const auto reply =
        take(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    return reply ? reply->focus : xcb_window_t(XCB_NONE);
}

quint16 OtherClient::modifierState() const
{
    const auto reply = take(
        xcb_query_pointer_reply(m_connection, xcb_query_pointer(m_connection, m_root), nullptr));
    return reply ? reply->mask : quint16(0);
}

QList<quint32> OtherClient::property(xcb_window_t window, const QByteArray &name) const
{
    const auto reply = take(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, window, atom(name), XCB_GET_PROPERTY_TYPE_ANY, 0, 1024),
        nullptr));
    if (!reply || reply->format != 32)
        return {};
    const auto *values = static_cast<const quint32 *>(xcb_get_property_value(reply.get()));
    return {values, values + xcb_get_property_value_length(reply.get()) / 4};
}

QStringList OtherClient::atomNames(xcb_window_t window, const QByteArray &name) const
{
    QStringList names;
    for (const quint32 value : property(window, name)) {
        const auto reply = take(
            xcb_get_atom_name_reply(m_connection, xcb_get_atom_name(m_connection, value), nullptr));
        if (reply)
            names << QString::fromLatin1(xcb_get_atom_name_name(reply.get()),
                                         xcb_get_atom_name_name_length(reply.get()));
    }
    return names;
}

QList<QRect> OtherClient::inputShape(xcb_window_t window) const
{
    const auto reply = take(xcb_shape_get_rectangles_reply(
        m_connection, xcb_shape_get_rectangles(m_connection, window, XCB_SHAPE_SK_INPUT), nullptr));
    QList<QRect> result;
    if (!reply)
        return result;
    const xcb_rectangle_t *rectangles = xcb_shape_get_rectangles_rectangles(reply.get());
    for (int i = 0; i < xcb_shape_get_rectangles_rectangles_length(reply.get()); ++i)
        result << QRect(rectangles[i].x, rectangles[i].y, rectangles[i].width,
                        rectangles[i].height);
    return result;
}

QList<quint32> OtherClient::managedWindows() const
{
    return property(m_root, "_NET_CLIENT_LIST");
}

bool OtherClient::isViewable(xcb_window_t window) const
{
    const auto reply = take(xcb_get_window_attributes_reply(
        m_connection, xcb_get_window_attributes(m_connection, window), nullptr));
    return reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
}

xcb_window_t OtherClient::outermost(xcb_window_t window) const
{
    for (;;) {
        const auto tree =
            take(xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, window), nullptr));
        if (!tree || tree->parent == m_root || tree->parent == XCB_NONE)
            return window;
        window = tree->parent;
    }
}

bool OtherClient::isAbove(xcb_window_t upper, xcb_window_t lower) const
{
    const auto tree =
        take(xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, m_root), nullptr));
    if (!tree)
        return false;
    // Bottom to top.
    const xcb_window_t *first = xcb_query_tree_children(tree.get());
    const QList<xcb_window_t> order(first, first + xcb_query_tree_children_length(tree.get()));
    return order.indexOf(outermost(upper)) > order.indexOf(outermost(lower));
}

bool OtherClient::currentDesktopIs(quint32 number) const
{
    return property(m_root, "_NET_CURRENT_DESKTOP") == QList<quint32>{number};
}

void OtherClient::makeFullScreen()
{
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = m_window;
    event.type = atom("_NET_WM_STATE");
    event.data.data32[0] = 1;
    event.data.data32[1] = atom("_NET_WM_STATE_FULLSCREEN");
    xcb_send_event(m_connection, 0, m_root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char *>(&event));
    xcb_flush(m_connection);
}

QRect OtherClient::screenGeometry(xcb_window_t window) const
{
    const auto size =
        take(xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, window), nullptr));
    const auto origin = take(xcb_translate_coordinates_reply(
        m_connection, xcb_translate_coordinates(m_connection, window, m_root, 0, 0), nullptr));
    if (!size || !origin)
        return {};
    return {origin->dst_x, origin->dst_y, size->width, size->height};
}

QList<OtherClient::Key> OtherClient::keys()
{
    readEvents();
    return m_keys;
}

QList<OtherClient::Button> OtherClient::buttons()
{
    readEvents();
    return m_buttons;
}

int OtherClient::focusLosses()
{
    readEvents();
    return m_focusLosses;
}

void OtherClient::clearInput()
{
    readEvents();
    m_keys.clear();
    m_buttons.clear();
    m_focusLosses = 0;
}

void OtherClient::readEvents()
{
    // Waiting for a reply may also have read events, for which the notifier does not fire.
    while (const auto event = take(xcb_poll_for_event(m_connection)))
        handle(event.get());
}

void OtherClient::handle(const xcb_generic_event_t *event)
{
    switch (event->response_type & ~0x80) {
    case XCB_KEY_PRESS: {
        const auto *press = reinterpret_cast<const xcb_key_press_event_t *>(event);
        m_keys.append({press->detail, press->state});
        break;
    }
    case XCB_BUTTON_PRESS: {
        const auto *press = reinterpret_cast<const xcb_button_press_event_t *>(event);
        m_buttons.append({press->detail, QPoint(press->root_x, press->root_y)});
        break;
    }
    case XCB_FOCUS_OUT:
        // A key grab sends FocusOut with another mode; the focus does not move.
        if (reinterpret_cast<const xcb_focus_out_event_t *>(event)->mode == XCB_NOTIFY_MODE_NORMAL)
            ++m_focusLosses;
        break;
    default:
        break;
    }
}

xcb_atom_t OtherClient::atom(const QByteArray &name) const
{
    const auto reply = take(xcb_intern_atom_reply(
        m_connection,
        xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(name.size()), name.constData()),
        nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

} // namespace quellora
