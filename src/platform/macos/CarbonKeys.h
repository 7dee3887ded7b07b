#pragma once

#include <Qt>
#include <QtGlobal>

#include <optional>

/// Keys and modifiers of hot keys in the terms of Carbon.
namespace quellora::CarbonKeys {

inline constexpr quint32 command = 1U << 8;
inline constexpr quint32 shift = 1U << 9;
inline constexpr quint32 option = 1U << 11;
inline constexpr quint32 control = 1U << 12;

/// The virtual key code at which the standard ANSI layout has a letter, a digit or one of
/// []-=;',./\`; absent for other keys.
std::optional<quint32> keyCode(Qt::Key key);
/// The modifiers of GlobalHotkeys as flags from above.
quint32 modifierFlags(Qt::KeyboardModifiers modifiers);

} // namespace quellora::CarbonKeys
