#pragma once

#include <QKeySequence>

#include <array>

class QWindow;

namespace quellora {

/// A command of the Edit menu; its key equivalent is the key with Command.
struct EditCommand
{
    const char *title;
    /// The action selector of native text fields.
    const char *action;
    char key;
    bool withShift;
    QKeySequence::StandardKey standardKey;
    /// Whether a separator follows.
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

/// Sends the press and release of a command's key combination to @p window. Ignores nested calls,
/// so that a press which returns to the menu is not sent again. Main thread only.
/// @return whether the press was accepted
bool sendStandardKey(QWindow &window, QKeySequence::StandardKey standardKey);

} // namespace quellora
