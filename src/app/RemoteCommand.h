#pragma once

#include "hotkeys/HotkeyActions.h"

#include <QByteArrayView>

#include <algorithm>
#include <array>

namespace quellora {

/// A command that another process of the user sends to the running program: an argument of the
/// program, e.g. `quellora capture`, for shortcuts that the desktop manages.
struct RemoteCommand
{
    enum class Kind {
        /// Runs a hot key's action.
        Action,
        /// Captures and sends with the prompt at hand of this name, the command's operand.
        Prompt,
        /// Brings the current window to the front.
        Show,
        /// Quits as the menu does.
        Quit,
    };

    const char *name = nullptr;
    /// One line for `--help`, with the operand if there is one.
    const char *summary = nullptr;
    Kind kind = Kind::Action;
    /// For Kind::Action.
    HotkeyAction action = HotkeyAction::Capture;

    /// The command is followed by one operand, which is not empty.
    constexpr bool takesOperand() const { return kind == Kind::Prompt; }
    /// Longest operand, in bytes of UTF-8.
    static constexpr qsizetype maximumOperand = 200;
};

/// The hot keys' actions in the order of hotkeyActions, then the others.
inline constexpr auto remoteCommands = [] {
    std::array<RemoteCommand, hotkeyActions.size() + 3> commands{};
    auto *next = std::transform(hotkeyActions.begin(), hotkeyActions.end(), commands.begin(),
                                [](const HotkeyActionInfo &info) {
                                    return RemoteCommand{info.command, info.summary,
                                                         RemoteCommand::Kind::Action, info.action};
                                });
    *next++ = {"prompt", "capture and send with the prompt NAME", RemoteCommand::Kind::Prompt};
    *next++ = {"show", "bring the window to the front", RemoteCommand::Kind::Show};
    *next = {"quit", "quit the running program", RemoteCommand::Kind::Quit};
    return commands;
}();

/// The command of that name; nullptr if there is none.
constexpr const RemoteCommand *findRemoteCommand(QByteArrayView name)
{
    const auto *found = std::find_if(
        remoteCommands.begin(), remoteCommands.end(),
        [name](const RemoteCommand &command) { return QByteArrayView(command.name) == name; });
    return found == remoteCommands.end() ? nullptr : found;
}

} // namespace quellora
