#pragma once

#include "hotkeys/HotkeyActions.h"

#include <QMap>
#include <QString>
#include <QStringList>

#include <array>

namespace quellora {

class UserDefaults;

/// One combo per action and prompt, as it was written, e.g. "ctrl+alt+cmd+c"; empty where the
/// action has none. A combo is not checked before it is registered.
class HotkeyCombos
{
public:
    /// The default combos.
    HotkeyCombos();
    /// The default combos replaced by those of `config.json`.
    explicit HotkeyCombos(const VantiroConfig::Hotkeys &configured);

    /// Empty for a prompt that has no combo.
    const QString &operator[](const HotkeyId &id) const;
    QString &operator[](const HotkeyId &id);
    /// The prompts that have a combo, also those that exist no longer.
    QStringList promptIds() const { return m_promptCombos.keys(); }
    void removePrompt(const QString &promptId) { m_promptCombos.remove(promptId); }
    /// Takes over the combos of a map by JSON key; ignores keys of no action.
    void replace(const QMap<QString, QString> &combos);

    bool operator==(const HotkeyCombos &) const = default;

private:
    std::array<QString, hotkeyActions.size()> m_combos;
    /// By the prompt's id.
    QMap<QString, QString> m_promptCombos;
};

/// The user's own bindings, stored per action over those of `config.json`. Main thread only.
namespace HotkeyBindings {

/// @p fallback with every stored override applied.
HotkeyCombos loadEffective(const HotkeyCombos &fallback, const UserDefaults &defaults);
/// An empty combo unsets the action.
void setOverride(const QString &combo, const HotkeyId &id, UserDefaults &defaults);
/// Leaves an empty dictionary behind when it was the last override.
void clearOverride(const HotkeyId &id, UserDefaults &defaults);

} // namespace HotkeyBindings

} // namespace quellora
