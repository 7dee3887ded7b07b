#pragma once

#include "platform/ShortcutGuide.h"

#include <QStringList>

/// Shortcut guides of the Linux desktops.
namespace quellora::ShortcutGuideLinux {

/// The guide of a desktop in a Wayland session.
/// @param desktops names of the desktop as in `XDG_CURRENT_DESKTOP`, e.g. {"ubuntu", "GNOME"}
/// @param program how to call this program in a shell
ShortcutGuide guideFor(const QStringList &desktops, const QString &program);
/// The guide for the current session; empty in X11 sessions.
ShortcutGuide current();
/// A combination as in `config.json` in the notation of sway's configuration, e.g.
/// "Ctrl+Mod1+bracketright".
QString swayCombo(const QString &combo);

} // namespace quellora::ShortcutGuideLinux
