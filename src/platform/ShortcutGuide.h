#pragma once

#include <QString>

#include <functional>

namespace quellora {

/// Where keys are bound in the desktop's own settings, for sessions in which the program does not
/// receive its hot keys from every window.
struct ShortcutGuide
{
    /// How to bind this program's commands, in whole sentences for the user; empty if no guide is
    /// needed.
    QString advice;
    /// Returns the text to enter there for a key combination (as in `config.json`; empty if none is
    /// set) and a command of the program, e.g. "capture". Set if there is advice.
    std::function<QString(const QString &combo, const QString &command)> line = {};
    /// Where the user changes keys that the desktop assigned to this program, for use within a
    /// sentence: "System Settings → Shortcuts → Quellora".
    QString assignedKeysPlace = {};
};

} // namespace quellora
