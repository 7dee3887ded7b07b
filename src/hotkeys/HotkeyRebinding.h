#pragma once

#include "hotkeys/HotkeyBindings.h"

#include <QObject>
#include <QString>

#include <array>
#include <optional>
#include <utility>

namespace quellora {

class HotkeyManager;
class LocalKeyMonitor;
class UserDefaults;
struct KeyDown;

/// Records a new combo for one action or unsets it, registers it at once and stores it. Main thread
/// only.
///
/// While recording, every global hot key is unregistered and the monitor receives all key presses.
/// A combo that the system uses too has to be confirmed. A combo that cannot be registered is not
/// stored, and the previous one stays in force.
class HotkeyRebinding : public QObject
{
    Q_OBJECT
public:
    /// A recorded combo that awaits confirmation, and the system feature that uses it.
    struct Conflict
    {
        QString combo;
        QString featureName;
        bool operator==(const Conflict &) const = default;
    };
    /// Why the last change of an action failed.
    struct Rollback
    {
        HotkeyId action;
        QString message;
        bool operator==(const Rollback &) const = default;
    };

    /// Combos that macOS uses and their features, looked up by exact text.
    static const std::array<std::pair<QString, QString>, 12> &knownSystemShortcuts();
    /// The combo text of a key press, modifiers in the order ctrl, alt, cmd, shift. Nothing without
    /// a modifier or for a key that is no letter, digit or one of []-=;',./\`.
    static std::optional<QString> captureComboString(const KeyDown &key);

    /// All collaborators must outlive this object.
    /// @param configFileHotkeys the combos that a reset restores
    HotkeyRebinding(HotkeyManager &manager, UserDefaults &defaults, LocalKeyMonitor &monitor,
                    HotkeyCombos configFileHotkeys, QObject *parent = nullptr);
    /// Removes the key monitor; does not register the hot keys again.
    ~HotkeyRebinding() override;

    const HotkeyManager &manager() const { return m_manager; }
    /// The combos in force.
    const HotkeyCombos &hotkeysConfig() const { return m_hotkeysConfig; }
    const HotkeyCombos &configFileHotkeys() const { return m_configFileHotkeys; }
    /// The action that is being recorded.
    const std::optional<HotkeyId> &capturingHotkeyAction() const { return m_capturing; }
    /// Why the combo recorded last was refused.
    std::optional<QString> hotkeyCaptureError() const;
    const std::optional<Conflict> &pendingSystemConflict() const { return m_conflict; }
    const std::optional<Rollback> &hotkeyRollbackMessage() const { return m_rollback; }

    /// Title of an action's row in the settings.
    QString title(const HotkeyId &id) const;
    /// Sets the model's name used in titles.
    void setAnswererName(const QString &name);

    /// Starts recording; cancels a recording under way.
    void beginCapturingHotkey(const HotkeyId &action);
    /// Ends recording without a change and registers every hot key again; without effect when idle.
    void cancelHotkeyCapture();
    /// Applies the combo that awaits confirmation.
    void confirmSystemConflict();
    /// Drops the combo that awaits confirmation; recording continues.
    void cancelPendingSystemConflict();
    /// Leaves one action without a combo.
    void unsetHotkey(const HotkeyId &action);
    /// Restores the config file's combo of one action.
    void resetHotkey(const HotkeyId &action);
    /// Restores the config file's combos of all actions.
    void resetAllHotkeys();

Q_SIGNALS:
    /// Something that a row shows has changed.
    void changed();
    /// hotkeysConfig() has a new value.
    void hotkeysConfigChanged();

private:
    void handleCaptureKeyDown(const KeyDown &key);
    void setHotkey(const HotkeyId &action, const QString &combo);
    /// Registers the combo; on failure keeps @p failure as the row's message.
    bool bind(const HotkeyId &action, const QString &combo, const QString &failure);
    void setHotkeysConfig(const HotkeyCombos &combos);
    /// The other action with this combo, compared by meaning rather than by text.
    std::optional<HotkeyId> ownerOf(const QString &combo, const HotkeyId &except) const;
    /// Title in log lines.
    QString logTitle(const HotkeyId &id) const;
    /// Forgets the combos of prompts that are gone.
    void followPrompts();

    HotkeyManager &m_manager;
    UserDefaults &m_defaults;
    LocalKeyMonitor &m_monitor;
    HotkeyCombos m_configFileHotkeys;
    HotkeyCombos m_hotkeysConfig;
    QString m_answerer;
    std::optional<HotkeyId> m_capturing;
    /// The action that already has the combo recorded last.
    std::optional<HotkeyId> m_takenBy;
    std::optional<Conflict> m_conflict;
    std::optional<Rollback> m_rollback;
};

} // namespace quellora
