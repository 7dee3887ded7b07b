#pragma once

#include "platform/linux/X11Connection.h"

#include <QHash>
#include <QList>
#include <QString>

#include <optional>

namespace quellora {

/// Which physical key stands for each key name in one keyboard layout, and which modifier bits
/// stand for each modifier. A value: a snapshot of the server's mapping.
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

    /// Reads the mapping in force (two round trips).
    static KeyLayoutX11 read(const X11Connection &x11);

    /// Assigns keys to the names: by the plain symbol; without one by the key's position on an
    /// ANSI keyboard, as long as that key carries no other name (so that letters work in layouts
    /// without Latin letters); else by the shifted symbol; else by position all the same.
    KeyLayoutX11(const QHash<xcb_keycode_t, Symbols> &keys, const ModifierMasks &masks);

    /// The key for a lower-case key name; absent for a name that is not in the key table.
    std::optional<xcb_keycode_t> keycode(const QString &keyName) const;
    /// The name of a key, plain symbols before positions; empty for every other key.
    QString keyName(quint32 keycode) const;

    /// X modifier bits for a combination of GlobalHotkeys::Modifier flags.
    quint16 modifierBits(quint32 hotkeyModifiers) const;
    /// Every combination of the lock modifiers that must not matter, starting with none.
    QList<quint16> lockVariants() const;
    /// The part of an event's state that hot keys are told apart by.
    quint16 relevantState(quint16 state) const;

private:
    struct Assignment
    {
        QString name;
        xcb_keycode_t keycode;
    };

    QList<Assignment> m_assignments;
    ModifierMasks m_masks;
};

} // namespace quellora
