#pragma once

#include "platform/linux/X11Connection.h"

#include <QHash>
#include <QList>
#include <QString>
#include <Qt>

#include <optional>

namespace quellora {

/// Maps key names to key codes and modifiers to modifier bits. A snapshot of the server's keyboard
/// mapping.
class KeyLayoutX11
{
public:
    /// The symbols of one key in the first group, without and with shift.
    struct Symbols
    {
        xcb_keysym_t plain = XCB_NO_SYMBOL;
        xcb_keysym_t shifted = XCB_NO_SYMBOL;
    };
    struct ModifierMasks
    {
        quint16 alt = XCB_MOD_MASK_1;
        quint16 super = XCB_MOD_MASK_4;
        /// 0 when Num Lock is on no modifier.
        quint16 numLock = 0;

        bool operator==(const ModifierMasks &) const = default;
    };

    /// Reads the current mapping (two round trips).
    static KeyLayoutX11 read(const X11Connection &x11);

    /// Assigns a key to each name, in this order of preference: the key that types it without
    /// shift; the key at its position on an ANSI keyboard, unless that key has another name (keeps
    /// letters working in non-Latin layouts); the key that types it with shift; its ANSI position.
    KeyLayoutX11(const QHash<xcb_keycode_t, Symbols> &keys, const ModifierMasks &masks);

    /// The key code of a hot key; absent for a key that cannot be bound.
    std::optional<xcb_keycode_t> keycode(Qt::Key key) const;
    /// The name of a key; empty for a key without one.
    QString keyName(quint32 keycode) const;

    /// X modifier bits for the modifiers of a hot key.
    quint16 modifierBits(Qt::KeyboardModifiers modifiers) const;
    /// All combinations of Caps Lock and Num Lock, starting with none.
    QList<quint16> lockVariants() const;
    /// The modifiers in an event's state without locks, buttons and layout group.
    quint16 relevantState(quint16 state) const;

private:
    struct Assignment
    {
        char16_t name;
        xcb_keycode_t keycode;
    };

    QList<Assignment> m_assignments;
    ModifierMasks m_masks;
};

} // namespace quellora
