#include "platform/wayland/WaylandKeyboard.h"

#include <QFile>

#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace quellora {
namespace {

// More than any layout needs.
constexpr uint32_t maxKeymapSize = 4U << 20U;
constexpr xkb_layout_index_t firstGroup = 0;

struct XkbDeleter
{
    void operator()(xkb_context *context) const { xkb_context_unref(context); }
    void operator()(xkb_keymap *keymap) const { xkb_keymap_unref(keymap); }
};

xcb_keysym_t symbol(xkb_keymap *keymap, xkb_keycode_t key, xkb_level_index_t level)
{
    const xkb_keysym_t *symbols = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(keymap, key, firstGroup, level, &symbols);
    return count == 1 ? *symbols : xcb_keysym_t(XCB_NO_SYMBOL);
}

} // namespace

/// The callbacks of the protocol; the data is the keyboard.
struct WaylandKeyboard::Listeners
{
    static WaylandKeyboard &self(void *data) { return *static_cast<WaylandKeyboard *>(data); }

    static void keymap(void *data, wl_keyboard *, uint32_t format, int32_t fd, uint32_t size)
    {
        QFile file;
        if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
            return;
        // Mapped, because other programs share the file's position.
        const uchar *text = format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1 && size <= maxKeymapSize
                                ? file.map(0, size, QFileDevice::MapPrivateOption)
                                : nullptr;
        self(data).m_keymap =
            text ? QByteArray(reinterpret_cast<const char *>(text), size) : QByteArray();
    }
    static void enter(void *data, wl_keyboard *, uint32_t, wl_surface *surface, wl_array *)
    {
        self(data).m_focus = surface;
        if (surface)
            Q_EMIT self(data).entered(surface);
    }
    static void leave(void *data, wl_keyboard *, uint32_t, wl_surface *)
    {
        // The event's surface is null if this program has destroyed it.
        if (wl_surface *before = std::exchange(self(data).m_focus, nullptr))
            Q_EMIT self(data).left(before);
    }
    static void key(void *, wl_keyboard *, uint32_t, uint32_t, uint32_t, uint32_t) {}
    static void modifiers(void *, wl_keyboard *, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t)
    {}
    static void repeatInfo(void *, wl_keyboard *, int32_t, int32_t) {}
    static constexpr wl_keyboard_listener keyboard{&keymap, &enter,     &leave,
                                                   &key,    &modifiers, &repeatInfo};
};

WaylandKeyboard::WaylandKeyboard(const WaylandConnection &connection, QObject *parent)
    : QObject(parent), m_connection(connection)
{
    connect(&connection, &WaylandConnection::seatChanged, this, &WaylandKeyboard::follow);
    follow();
}

WaylandKeyboard::~WaylandKeyboard() = default;

void WaylandKeyboard::follow()
{
    if (m_connection.hasKeyboard() == (m_keyboard != nullptr))
        return;
    if (m_keyboard) {
        m_keyboard.reset();
        if (wl_surface *before = std::exchange(m_focus, nullptr))
            Q_EMIT left(before);
        return;
    }
    m_keyboard.reset(wl_seat_get_keyboard(m_connection.seat()));
    wl_keyboard_add_listener(m_keyboard.get(), &Listeners::keyboard, this);
    m_connection.flush();
}

QString WaylandKeyboard::keyName(quint32 nativeScanCode) const
{
    return KeyLayoutX11(keys(m_keymap), {}).keyName(nativeScanCode);
}

QHash<xcb_keycode_t, KeyLayoutX11::Symbols> WaylandKeyboard::keys(const QByteArray &keymap)
{
    QHash<xcb_keycode_t, KeyLayoutX11::Symbols> keys;
    const std::unique_ptr<xkb_context, XkbDeleter> context(
        xkb_context_new(XKB_CONTEXT_NO_DEFAULT_INCLUDES));
    if (!context || keymap.isEmpty())
        return keys;
    const std::unique_ptr<xkb_keymap, XkbDeleter> map(xkb_keymap_new_from_string(
        context.get(), keymap.constData(), XKB_KEYMAP_FORMAT_TEXT_V1, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!map)
        return keys;
    const xkb_keycode_t last = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(map.get()),
                                                       std::numeric_limits<xcb_keycode_t>::max());
    for (xkb_keycode_t key = xkb_keymap_min_keycode(map.get()); key <= last; ++key) {
        const KeyLayoutX11::Symbols found{symbol(map.get(), key, 0), symbol(map.get(), key, 1)};
        if (found.plain != XCB_NO_SYMBOL || found.shifted != XCB_NO_SYMBOL)
            keys.insert(static_cast<xcb_keycode_t>(key), found);
    }
    return keys;
}

} // namespace quellora
