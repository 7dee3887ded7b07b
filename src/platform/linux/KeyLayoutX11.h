#pragma once

#include "platform/linux/X11Connection.h"

#include <QHash>
#include <QList>
#include <QString>
#include <Qt>

#include <optional>

namespace quellora {

/// Maps key names to X key codes and Qt modifiers to X modifier bits. A snapshot of the server's
/// keyboard mapping.
class KeyLayoutX11
{
public:
    /// The keysyms of one key in the first group, without and with Shift.
    struct Symbols
    {
        xcb_keysym_t plain = XCB_NO_SYMBOL;
        xcb_keysym_t shifted = XCB_NO_SYMBOL;
    };
    struct ModifierMasks
    {
        quint16 alt = XCB_MOD_MASK_1;
        quint16 super = XCB_MOD_MASK_4;
        /// 0 if no modifier is mapped to Num Lock.
        quint16 numLock = 0;

        bool operator==(const ModifierMasks &) const = default;
    };

    /// Reads the current mapping (two round trips).
    static KeyLayoutX11 read(const X11Connection &x11);

    /// Assigns a key to each name, in this order of preference: the key that types it without
    /// Shift; the key at its position on an ANSI keyboard, unless that key already has a name (so
    /// that letters work in non-Latin layouts); the key that types it with Shift; its ANSI
    /// position.
    KeyLayoutX11(const QHash<xcb_keycode_t, Symbols> &keys, const ModifierMasks &masks);

    /// The key code of a key; nullopt if it cannot be bound.
    std::optional<xcb_keycode_t> keycode(Qt::Key key) const;
    /// The name of a key; empty if it has none.
    QString keyName(quint32 keycode) const;

    /// X modifier bits of Qt modifiers.
    quint16 modifierBits(Qt::KeyboardModifiers modifiers) const;
    /// The bits of all combinations of Caps Lock and Num Lock, starting with none.
    QList<quint16> lockVariants() const;
    /// The modifier bits of an event's state without lock keys, pointer buttons and layout group.
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
