#pragma once

#include "hotkeys/HotkeyActions.h"

#include <QMap>
#include <QString>

#include <array>

namespace quellora {

class UserDefaults;

/// One combo per action, as it was written, e.g. "ctrl+alt+cmd+c"; empty where the action has none.
/// A combo is not checked before it is registered.
class HotkeyCombos
{
public:
    /// The default combos.
    HotkeyCombos();
    /// The default combos replaced by those of `config.json`.
    explicit HotkeyCombos(const VantiroConfig::Hotkeys &configured);

    const QString &operator[](HotkeyAction action) const;
    QString &operator[](HotkeyAction action);
    /// Takes over the combos of a map by JSON key; ignores keys of no action.
    void replace(const QMap<QString, QString> &combos);

    bool operator==(const HotkeyCombos &) const = default;

private:
    std::array<QString, hotkeyActions.size()> m_combos;
};

/// The user's own bindings, stored per action over those of `config.json`. Main thread only.
namespace HotkeyBindings {

/// @p fallback with every stored override applied.
HotkeyCombos loadEffective(const HotkeyCombos &fallback, const UserDefaults &defaults);
/// An empty combo unsets the action.
void setOverride(const QString &combo, HotkeyAction action, UserDefaults &defaults);
/// Leaves an empty dictionary behind when it was the last override.
void clearOverride(HotkeyAction action, UserDefaults &defaults);

} // namespace HotkeyBindings

} // namespace quellora
