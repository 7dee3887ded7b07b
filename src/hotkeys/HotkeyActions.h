#pragma once

#include "base/VantiroConfig.h"

#include <QList>
#include <QString>

#include <array>
#include <optional>
#include <tuple>

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
    CaptureWindow,
    CaptureRegion,
    CaptureLastRegion,
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
    {HotkeyAction::CaptureWindow, "capture_window", "Capture the window in front and send",
     "Capture Window", "", false, "capture-window",
     "take a picture of the window in front and send it"},
    {HotkeyAction::CaptureRegion, "capture_region", "Capture a region and send", "Capture Region",
     "", false, "capture-region", "choose a region of the screen and send it"},
    {HotkeyAction::CaptureLastRegion, "capture_last_region", "Capture the last region and send",
     "Capture Last Region", "", false, "capture-last-region",
     "take a picture of the last region again and send it"},
    {HotkeyAction::ToggleClicks, "toggle_clicks", "Let clicks reach the answer", "Toggle Clicks",
     "", false, "toggle-clicks", "let clicks reach the answer, or pass through it"},
    {HotkeyAction::Retry, "retry", "Ask the last question again", "Retry", "", false, "retry",
     "ask the last question again"},
});

constexpr const HotkeyActionInfo &hotkeyAction(HotkeyAction action)
{
    return hotkeyActions.at(static_cast<std::size_t>(action));
}

/// What a hot key does: an action of the table, or to capture and send with one of the user's
/// prompts.
class HotkeyId
{
public:
    // NOLINTNEXTLINE(google-explicit-constructor): every action is one.
    HotkeyId(HotkeyAction action) : m_action(action) {}
    static HotkeyId prompt(const QString &promptId);
    /// The one with this key in the stored overrides; nothing for other texts.
    static std::optional<HotkeyId> fromJsonKey(const QString &key);

    /// Whether it is one of the user's prompts.
    bool isPrompt() const { return !m_promptId.isEmpty(); }
    /// Of the table; only unless isPrompt().
    HotkeyAction action() const { return m_action; }
    /// Empty unless isPrompt().
    const QString &promptId() const { return m_promptId; }
    /// Key in the stored overrides and in the record sent at sign-in.
    QString jsonKey() const;
    /// Name in the desktop's shortcuts.
    QString command() const;

    bool operator==(const HotkeyId &) const = default;
    /// The order of the table; prompts by id.
    bool operator<(const HotkeyId &other) const
    {
        return std::tie(m_action, m_promptId) < std::tie(other.m_action, other.m_promptId);
    }

private:
    HotkeyAction m_action;
    QString m_promptId;
};

/// The keys that `config.json` may have for the actions.
QList<VantiroConfig::HotkeyKey> hotkeyConfigKeys();

} // namespace quellora
