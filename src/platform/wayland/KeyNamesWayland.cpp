#include "platform/wayland/KeyNamesWayland.h"

#include <QFile>

#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <limits>

namespace quellora {
namespace {

// More than any layout needs.
constexpr uint32_t maxKeymapSize = 4U << 20U;
constexpr xkb_layout_index_t firstGroup = 0;

struct KeyboardDeleter
{
    void operator()(wl_keyboard *keyboard) const
    {
        if (wl_keyboard_get_version(keyboard) >= WL_KEYBOARD_RELEASE_SINCE_VERSION)
            wl_keyboard_release(keyboard);
        else
            wl_keyboard_destroy(keyboard);
    }
};
struct XkbDeleter
{
    void operator()(xkb_context *context) const { xkb_context_unref(context); }
    void operator()(xkb_keymap *keymap) const { xkb_keymap_unref(keymap); }
};

/// The callbacks of the protocol; the data is the keymap's text.
struct Listeners
{
    static void keymap(void *data, wl_keyboard *, uint32_t format, int32_t fd, uint32_t size)
    {
        QFile file;
        if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
            return;
        // Mapped, because other clients share the file's position.
        uchar *text = format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1 && size <= maxKeymapSize
                          ? file.map(0, size, QFileDevice::MapPrivateOption)
                          : nullptr;
        if (text)
            *static_cast<QByteArray *>(data) =
                QByteArray(reinterpret_cast<const char *>(text), size);
    }
    static void enter(void *, wl_keyboard *, uint32_t, wl_surface *, wl_array *) {}
    static void leave(void *, wl_keyboard *, uint32_t, wl_surface *) {}
    static void key(void *, wl_keyboard *, uint32_t, uint32_t, uint32_t, uint32_t) {}
    static void modifiers(void *, wl_keyboard *, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t)
    {}
    static void repeatInfo(void *, wl_keyboard *, int32_t, int32_t) {}
    static constexpr wl_keyboard_listener keyboard{&keymap, &enter,     &leave,
                                                   &key,    &modifiers, &repeatInfo};
};

xcb_keysym_t symbol(xkb_keymap *keymap, xkb_keycode_t key, xkb_level_index_t level)
{
    const xkb_keysym_t *symbols = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(keymap, key, firstGroup, level, &symbols);
    return count == 1 ? *symbols : xcb_keysym_t(XCB_NO_SYMBOL);
}

} // namespace

QString KeyNamesWayland::keyName(const WaylandConnection &connection, quint32 nativeScanCode)
{
    wl_seat *seat = WaylandConnection::toolkitSeat();
    if (!seat)
        return {};
    QByteArray keymap;
    const std::unique_ptr<wl_keyboard, KeyboardDeleter> keyboard(
        wl_seat_get_keyboard(connection.waiting(seat).get()));
    wl_keyboard_add_listener(keyboard.get(), &Listeners::keyboard, &keymap);
    connection.roundTrip();
    return KeyLayoutX11(keys(keymap), {}).keyName(nativeScanCode);
}

QHash<xcb_keycode_t, KeyLayoutX11::Symbols> KeyNamesWayland::keys(const QByteArray &keymap)
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
