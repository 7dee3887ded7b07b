#pragma once

#include "platform/Platform.h"

namespace quellora {

/// A key press as the recorder of a new combination sees it.
/// @param modifierFlags the system's flags of the modifiers that are held
/// @param characters what the key writes in the current layout without any modifier
/// @param keyCode the key's virtual key code
KeyDown recorderKeyDown(quint64 modifierFlags, const QString &characters, quint16 keyCode);

} // namespace quellora
