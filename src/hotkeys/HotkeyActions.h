#pragma once

#include "base/VantiroConfig.h"

#include <QList>
#include <QString>

#include <array>

namespace quellora {

/// What a hot key does. The values index hotkeyActions.
enum class HotkeyAction {
    Capture,
    Clear,
    Toggle,
    OpacityUp,
    OpacityDown,
    CaptureNoSend,
    NewThread,
    ToggleClicks,
    Retry,
};

/// One row of the table of actions.
struct HotkeyActionInfo
{
    HotkeyAction action;
    /// Key in `config.json`, in the stored overrides and in the record sent at sign-in.
    const char *jsonKey;
    /// Title in the settings, as log lines give it.
    const char *title;
    /// Name in log lines and in messages about failed registrations.
    const char *logName;
    /// Combo of an action that `config.json` does not name; empty if it is unset by default.
    const char *defaultCombo;
    /// Whether a `config.json` without this key is refused.
    bool isRequired;
    /// Argument of the program that makes the running instance do it, and its line in `--help`.
    const char *command;
    const char *summary;

    /// The title with the name of who answers in it.
    QString titleNaming(const QString &answererName) const;
};

/// Every action, in the order of registration and of the settings list. A new action takes a value
/// of HotkeyAction, a row here and a case where AppDelegate runs actions.
inline constexpr auto hotkeyActions = std::to_array<HotkeyActionInfo>({
    {HotkeyAction::Capture, "capture", "Capture screen and send to Claude", "Capture",
     "ctrl+alt+cmd+c", true, "capture", "take a screenshot and send it"},
    {HotkeyAction::Clear, "clear", "Clear the response area", "Clear", "ctrl+alt+cmd+x", true,
     "clear", "clear the response area"},
    {HotkeyAction::Toggle, "toggle", "Toggle overlay visibility", "Toggle", "ctrl+alt+cmd+t", true,
     "toggle", "show or hide the panel"},
    {HotkeyAction::OpacityUp, "opacity_up", "Increase opacity", "Opacity Up", "ctrl+alt+cmd+]",
     true, "opacity-up", "make the panel more opaque"},
    {HotkeyAction::OpacityDown, "opacity_down", "Decrease opacity", "Opacity Down",
     "ctrl+alt+cmd+[", true, "opacity-down", "make the panel more transparent"},
    {HotkeyAction::CaptureNoSend, "capture_no_send", "Capture (no send)", "Capture (No Send)",
     "ctrl+alt+cmd+shift+c", false, "capture-no-send", "attach a screenshot to the next message"},
    {HotkeyAction::NewThread, "new_thread", "Start a new thread", "New Thread", "cmd+n", false,
     "new-thread", "start a new thread"},
    {HotkeyAction::ToggleClicks, "toggle_clicks", "Let clicks reach the answer", "Toggle Clicks",
     "", false, "toggle-clicks", "let clicks reach the answer, or pass through it"},
    {HotkeyAction::Retry, "retry", "Ask the last question again", "Retry", "", false, "retry",
     "ask the last question again"},
});

constexpr const HotkeyActionInfo &hotkeyAction(HotkeyAction action)
{
    return hotkeyActions.at(static_cast<std::size_t>(action));
}

/// The keys that `config.json` may have for the actions.
QList<VantiroConfig::HotkeyKey> hotkeyConfigKeys();

} // namespace quellora
