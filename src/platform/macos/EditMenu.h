#pragma once

#include <QKeySequence>

#include <array>

class QWindow;

namespace quellora {

/// One command of the Edit menu; its key equivalent is the key with Command.
struct EditCommand
{
    const char *title;
    /// The action that native text fields know it by.
    const char *action;
    char key;
    bool withShift;
    QKeySequence::StandardKey standardKey;
    /// Whether a line comes below it.
    bool endsGroup;
};

/// The Edit menu from top to bottom.
inline constexpr std::array<EditCommand, 6> editCommands{{
    {"Undo", "undo:", 'z', false, QKeySequence::Undo, false},
    {"Redo", "redo:", 'z', true, QKeySequence::Redo, true},
    {"Cut", "cut:", 'x', false, QKeySequence::Cut, false},
    {"Copy", "copy:", 'c', false, QKeySequence::Copy, false},
    {"Paste", "paste:", 'v', false, QKeySequence::Paste, false},
    {"Select All", "selectAll:", 'a', false, QKeySequence::SelectAll, false},
}};

/// Presses and releases the key combination of a command in @p window, for whatever has the focus
/// there. Without effect while it is at it already, so that a key that comes back to the menu ends
/// there. Main thread only.
/// @return whether anything took the press
bool sendStandardKey(QWindow &window, QKeySequence::StandardKey standardKey);

} // namespace quellora
