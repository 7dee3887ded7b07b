#pragma once

#include <QKeyCombination>
#include <QString>
#include <QStringView>

#include <optional>

namespace quellora {

struct Vocabulary;

/// The written form of key combinations, such as "ctrl+alt+cmd+shift+c".
///
/// Tokens are joined by "+", compared case-insensitively, empty ones are skipped. A token is a
/// modifier word or the key; the last of several keys counts.
namespace HotkeyCombo {

/// The names of the keys that can be bound, one character each.
inline constexpr QStringView bindableKeys = u"abcdefghijklmnopqrstuvwxyz0123456789[]-=;',./\\`";

/// The combination in the terms of GlobalHotkeys; absent when the text names no bindable key.
std::optional<QKeyCombination> parse(const QString &text);
/// The form shown to the user, in the order written and with the system's names of the keys:
/// "Ctrl+Option+Cmd+Shift+C" or "Ctrl+Alt+Super+Shift+C".
QString displayString(const QString &text, const Vocabulary &words);

} // namespace HotkeyCombo

} // namespace quellora
