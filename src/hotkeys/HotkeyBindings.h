#pragma once

#include "base/VantiroConfig.h"

#include <QString>

#include <array>
#include <optional>

namespace quellora {

class UserDefaults;

/// Names and fields of the seven bindable actions.
namespace HotkeyActions {

/// In the order of registration, of the hot-key ids and of the settings list.
inline constexpr std::array<HotkeyAction, 7> all{
    HotkeyAction::Capture,   HotkeyAction::Clear,       HotkeyAction::Toggle,
    HotkeyAction::OpacityUp, HotkeyAction::OpacityDown, HotkeyAction::CaptureNoSend,
    HotkeyAction::NewThread,
};

/// Key in `config.json`, in the stored overrides and in the record sent at sign-in.
QString jsonKey(HotkeyAction action);
/// Title of the row in the settings sheet, as log lines give it.
QString settingsTitle(HotkeyAction action);
/// The title with the name of who answers in it.
QString settingsTitle(HotkeyAction action, const QString &answererName);
/// Name in log lines and in messages about failed registrations.
QString logName(HotkeyAction action);
/// The action with this key, compared exactly.
std::optional<HotkeyAction> fromJsonKey(const QString &key);

/// The action's combo in @p hotkeys.
QString combo(HotkeyAction action, const VantiroConfig::Hotkeys &hotkeys);
/// A copy of @p hotkeys with the action's combo replaced.
VantiroConfig::Hotkeys updating(HotkeyAction action, const QString &combo,
                                VantiroConfig::Hotkeys hotkeys);

} // namespace HotkeyActions

/// The user's own bindings, stored per action over those of `config.json`. Combos are stored and
/// returned as they are; an invalid one shows when it is registered. Main thread only.
namespace HotkeyBindings {

/// @p fallback with every stored override applied.
VantiroConfig::Hotkeys loadEffective(const VantiroConfig::Hotkeys &fallback,
                                     const UserDefaults &defaults);
void setOverride(const QString &combo, HotkeyAction action, UserDefaults &defaults);
/// Leaves an empty dictionary behind when it was the last override.
void clearOverride(HotkeyAction action, UserDefaults &defaults);

} // namespace HotkeyBindings

} // namespace quellora
