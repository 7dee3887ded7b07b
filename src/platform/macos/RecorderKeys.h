#pragma once

#include "platform/Platform.h"

namespace quellora {

/// Converts a native key press for the recorder of a new combination.
/// @param modifierFlags the NSEventModifierFlags held
/// @param characters the key's characters in the current layout without modifiers
/// @param keyCode the key's virtual key code
KeyDown recorderKeyDown(quint64 modifierFlags, const QString &characters, quint16 keyCode);

} // namespace quellora
