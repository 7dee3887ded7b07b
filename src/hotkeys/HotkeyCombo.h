#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace quellora {

struct Vocabulary;

/// A parsed key combination such as "ctrl+alt+cmd+shift+c".
///
/// Tokens are joined by "+", compared case-insensitively, empty ones are skipped. A token is a
/// modifier word or the key; the last of several keys counts. Only the 47 keys of the key table
/// can be bound: letters, digits and eleven punctuation keys.
struct HotkeyCombo
{
    /// Lower-case key name of the key table.
    QString key;
    /// Virtual key code of the standard ANSI layout.
    quint32 keyCode = 0;
    /// Combination of GlobalHotkeys::Modifier flags.
    quint32 modifiers = 0;

    bool operator==(const HotkeyCombo &) const = default;

    /// Absent when the text names no key or one that is not in the key table.
    static std::optional<HotkeyCombo> parse(const QString &text);
    /// The form shown to the user, in the order written and with the system's names of the keys:
    /// "Ctrl+Option+Cmd+Shift+C" or "Ctrl+Alt+Super+Shift+C".
    static QString displayString(const QString &text, const Vocabulary &words);
    /// The code of one key name of the table; absent for every other text.
    static std::optional<quint32> keyCodeFor(const QString &key);
    /// All key names that can be bound, in the order of the table.
    static QStringList keyNames();
};

} // namespace quellora
