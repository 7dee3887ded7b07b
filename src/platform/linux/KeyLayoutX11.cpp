#include "platform/linux/KeyLayoutX11.h"

#include <xcb/xcb_keysyms.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <array>
#include <initializer_list>

namespace quellora {
namespace {

struct Position
{
    char16_t name;
    xcb_keycode_t keycode;
};

// Key codes of the main block of an ANSI keyboard; the same with every X driver.
constexpr std::array<Position, 47> ansiPositions{{
    {u'`', 49}, {u'1', 10},  {u'2', 11}, {u'3', 12}, {u'4', 13},  {u'5', 14}, {u'6', 15},
    {u'7', 16}, {u'8', 17},  {u'9', 18}, {u'0', 19}, {u'-', 20},  {u'=', 21}, {u'q', 24},
    {u'w', 25}, {u'e', 26},  {u'r', 27}, {u't', 28}, {u'y', 29},  {u'u', 30}, {u'i', 31},
    {u'o', 32}, {u'p', 33},  {u'[', 34}, {u']', 35}, {u'\\', 51}, {u'a', 38}, {u's', 39},
    {u'd', 40}, {u'f', 41},  {u'g', 42}, {u'h', 43}, {u'j', 44},  {u'k', 45}, {u'l', 46},
    {u';', 47}, {u'\'', 48}, {u'z', 52}, {u'x', 53}, {u'c', 54},  {u'v', 55}, {u'b', 56},
    {u'n', 57}, {u'm', 58},  {u',', 59}, {u'.', 60}, {u'/', 61},
}};

struct FreeSymbols
{
    void operator()(xcb_key_symbols_t *symbols) const { xcb_key_symbols_free(symbols); }
};

} // namespace

KeyLayoutX11 KeyLayoutX11::read(const X11Connection &x11)
{
    QHash<xcb_keycode_t, Symbols> keys;
    ModifierMasks masks;

    const std::unique_ptr<xcb_key_symbols_t, FreeSymbols> symbols(xcb_key_symbols_alloc(x11.get()));
    const auto modifierCookie = xcb_get_modifier_mapping(x11.get());
    const xcb_setup_t *setup = xcb_get_setup(x11.get());
    if (symbols) {
        for (int code = setup->min_keycode; code <= setup->max_keycode; ++code) {
            const auto keycode = static_cast<xcb_keycode_t>(code);
            const Symbols found{xcb_key_symbols_get_keysym(symbols.get(), keycode, 0),
                                xcb_key_symbols_get_keysym(symbols.get(), keycode, 1)};
            if (found.plain != XCB_NO_SYMBOL || found.shifted != XCB_NO_SYMBOL)
                keys.insert(keycode, found);
        }
    }

    const XcbPtr<xcb_get_modifier_mapping_reply_t> modifiers(
        xcb_get_modifier_mapping_reply(x11.get(), modifierCookie, nullptr));
    if (!modifiers)
        return {keys, masks};
    const xcb_keycode_t *codes = xcb_get_modifier_mapping_keycodes(modifiers.get());
    const int perModifier = modifiers->keycodes_per_modifier;
    // Shift, Lock and Control have fixed bits; the modifier mapping assigns the other five.
    const auto bitOf = [&](std::initializer_list<xcb_keysym_t> wanted, quint16 fallback) {
        for (int index = XCB_MAP_INDEX_1; index <= XCB_MAP_INDEX_5; ++index) {
            for (int i = 0; i < perModifier; ++i) {
                const Symbols key = keys.value(codes[index * perModifier + i]);
                for (const xcb_keysym_t symbol : wanted) {
                    if (key.plain == symbol || key.shifted == symbol)
                        return static_cast<quint16>(1U << index);
                }
            }
        }
        return fallback;
    };
    masks.alt = bitOf({XKB_KEY_Alt_L, XKB_KEY_Alt_R}, masks.alt);
    masks.super = bitOf({XKB_KEY_Super_L, XKB_KEY_Super_R}, masks.super);
    masks.numLock = bitOf({XKB_KEY_Num_Lock}, masks.numLock);
    return {keys, masks};
}

KeyLayoutX11::KeyLayoutX11(const QHash<xcb_keycode_t, Symbols> &keys, const ModifierMasks &masks)
    : m_masks(masks)
{
    const auto isTaken = [this](xcb_keycode_t keycode) {
        return std::any_of(m_assignments.cbegin(), m_assignments.cend(),
                           [keycode](const Assignment &entry) { return entry.keycode == keycode; });
    };
    // If several keys have the symbol, prefers the one at the ANSI position, then the lowest code.
    const auto keyWith = [&keys](const Position &entry,
                                 xcb_keysym_t Symbols::*level) -> std::optional<xcb_keycode_t> {
        const xcb_keysym_t wanted = xkb_utf32_to_keysym(entry.name);
        if (keys.value(entry.keycode).*level == wanted)
            return entry.keycode;
        std::optional<xcb_keycode_t> lowest;
        for (auto it = keys.cbegin(); it != keys.cend(); ++it) {
            if ((*it).*level == wanted && (!lowest || it.key() < *lowest))
                lowest = it.key();
        }
        return lowest;
    };

    QList<Position> withoutSymbol;
    for (const Position &entry : ansiPositions) {
        if (const auto keycode = keyWith(entry, &Symbols::plain))
            m_assignments.append({entry.name, *keycode});
        else
            withoutSymbol.append(entry);
    }
    QList<Position> displaced;
    for (const Position &entry : std::as_const(withoutSymbol)) {
        if (isTaken(entry.keycode))
            displaced.append(entry);
        else
            m_assignments.append({entry.name, entry.keycode});
    }
    for (const Position &entry : std::as_const(displaced)) {
        const auto shifted = keyWith(entry, &Symbols::shifted);
        m_assignments.append(
            {entry.name, shifted && !isTaken(*shifted) ? *shifted : entry.keycode});
    }
}

std::optional<xcb_keycode_t> KeyLayoutX11::keycode(Qt::Key key) const
{
    for (const Assignment &entry : m_assignments) {
        if (QChar(entry.name).toUpper().unicode() == key)
            return entry.keycode;
    }
    return std::nullopt;
}

QString KeyLayoutX11::keyName(quint32 keycode) const
{
    for (const Assignment &entry : m_assignments) {
        if (entry.keycode == keycode)
            return QChar(entry.name);
    }
    return {};
}

quint16 KeyLayoutX11::modifierBits(Qt::KeyboardModifiers modifiers) const
{
    int bits = 0;
    if (modifiers & Qt::ShiftModifier)
        bits |= XCB_MOD_MASK_SHIFT;
    if (modifiers & Qt::ControlModifier)
        bits |= XCB_MOD_MASK_CONTROL;
    if (modifiers & Qt::AltModifier)
        bits |= m_masks.alt;
    if (modifiers & Qt::MetaModifier)
        bits |= m_masks.super;
    return static_cast<quint16>(bits);
}

QList<quint16> KeyLayoutX11::lockVariants() const
{
    constexpr quint16 lock = XCB_MOD_MASK_LOCK;
    if (m_masks.numLock == 0)
        return {0, lock};
    return {0, lock, m_masks.numLock, static_cast<quint16>(m_masks.numLock | lock)};
}

quint16 KeyLayoutX11::relevantState(quint16 state) const
{
    constexpr int realModifiers = XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 |
                                  XCB_MOD_MASK_2 | XCB_MOD_MASK_3 | XCB_MOD_MASK_4 | XCB_MOD_MASK_5;
    return static_cast<quint16>(state & realModifiers & ~m_masks.numLock);
}

} // namespace quellora
