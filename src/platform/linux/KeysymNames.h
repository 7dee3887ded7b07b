#pragma once

#include <QString>

/// Names of X11 keysyms, as used in configuration files of desktops.
namespace quellora::KeysymNames {

/// The name for a key of the program's own notation: one character or a keysym's name in any case,
/// e.g. "bracketright" for "]". Empty if there is none.
QString ofKey(const QString &key);

} // namespace quellora::KeysymNames
