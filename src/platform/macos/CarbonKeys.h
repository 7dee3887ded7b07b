#pragma once

#include <Qt>
#include <QtGlobal>

#include <optional>

/// Carbon key codes and modifier flags of hot keys.
namespace quellora::CarbonKeys {

inline constexpr quint32 command = 1U << 8;
inline constexpr quint32 shift = 1U << 9;
inline constexpr quint32 option = 1U << 11;
inline constexpr quint32 control = 1U << 12;

/// The virtual key code at which the standard ANSI layout has a letter, a digit or one of
/// []-=;',./\`; nullopt for other keys.
std::optional<quint32> keyCode(Qt::Key key);
/// The modifiers of GlobalHotkeys as Carbon flags.
quint32 modifierFlags(Qt::KeyboardModifiers modifiers);

} // namespace quellora::CarbonKeys
