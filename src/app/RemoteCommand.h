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
        /// Brings the current window to the front.
        Show,
        /// Quits as the menu does.
        Quit,
    };

    const char *name;
    /// One line for `--help`.
    const char *summary;
    Kind kind;
    /// For Kind::Action.
    HotkeyAction action = HotkeyAction::Capture;
};

inline constexpr auto remoteCommands = std::to_array<RemoteCommand>({
    {"capture", "take a screenshot and send it", RemoteCommand::Kind::Action,
     HotkeyAction::Capture},
    {"capture-no-send", "attach a screenshot to the next message", RemoteCommand::Kind::Action,
     HotkeyAction::CaptureNoSend},
    {"toggle", "show or hide the panel", RemoteCommand::Kind::Action, HotkeyAction::Toggle},
    {"clear", "clear the response area", RemoteCommand::Kind::Action, HotkeyAction::Clear},
    {"new-thread", "start a new thread", RemoteCommand::Kind::Action, HotkeyAction::NewThread},
    {"opacity-up", "make the panel more opaque", RemoteCommand::Kind::Action,
     HotkeyAction::OpacityUp},
    {"opacity-down", "make the panel more transparent", RemoteCommand::Kind::Action,
     HotkeyAction::OpacityDown},
    {"show", "bring the window to the front", RemoteCommand::Kind::Show},
    {"quit", "quit the running program", RemoteCommand::Kind::Quit},
});

/// The command of that name; nullptr if there is none.
constexpr const RemoteCommand *findRemoteCommand(QByteArrayView name)
{
    const auto *found = std::find_if(
        remoteCommands.begin(), remoteCommands.end(),
        [name](const RemoteCommand &command) { return QByteArrayView(command.name) == name; });
    return found == remoteCommands.end() ? nullptr : found;
}

} // namespace quellora
