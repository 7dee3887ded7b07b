#pragma once

#include "base/VantiroConfig.h"

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

/// Records a new combo for one action, binds it live and remembers it. Main thread only.
///
/// Idle, then recording (every global hot key released, the keyboard taken), then either waiting
/// for the user's word on a combo that the system uses too, or applied, or given up. A combo that
/// cannot be registered leaves the previous one in force and nothing stored.
class HotkeyRebinding : public QObject
{
    Q_OBJECT
public:
    using Hotkeys = VantiroConfig::Hotkeys;

    /// A recorded combo that awaits confirmation, and the system's feature that uses it.
    struct Conflict
    {
        QString combo;
        QString featureName;
        bool operator==(const Conflict &) const = default;
    };
    /// Why the last change of an action did not come about.
    struct Rollback
    {
        HotkeyAction action;
        QString message;
        bool operator==(const Rollback &) const = default;
    };

    /// Combos of the operating system and what they do there; looked up by their exact text.
    static const std::array<std::pair<QString, QString>, 12> &knownSystemShortcuts();
    /// The combo text of a key press, modifiers in the order ctrl, alt, cmd, shift. Nothing without
    /// a modifier or for a key that is no letter, digit or one of []-=;',./\`.
    static std::optional<QString> captureComboString(const KeyDown &key);

    /// Everything must outlive this object.
    /// @param configFileHotkeys the bindings that a reset goes back to
    HotkeyRebinding(HotkeyManager &manager, UserDefaults &defaults, LocalKeyMonitor &monitor,
                    Hotkeys configFileHotkeys, QObject *parent = nullptr);
    /// Lets go of the keyboard; whoever ends a session calls cancelHotkeyCapture() before.
    ~HotkeyRebinding() override;

    /// The bindings in force.
    const Hotkeys &hotkeysConfig() const { return m_hotkeysConfig; }
    const Hotkeys &configFileHotkeys() const { return m_configFileHotkeys; }
    /// The action that is being recorded.
    const std::optional<HotkeyAction> &capturingHotkeyAction() const { return m_capturing; }
    /// Why the last combo recorded was not taken.
    std::optional<QString> hotkeyCaptureError() const;
    const std::optional<Conflict> &pendingSystemConflict() const { return m_conflict; }
    const std::optional<Rollback> &hotkeyRollbackMessage() const { return m_rollback; }

    /// Title of an action's row.
    QString title(HotkeyAction action) const;
    /// Whom titles name as the one who answers.
    void setAnswererName(const QString &name);

    /// Starts recording; a recording under way is given up first.
    void beginCapturingHotkey(HotkeyAction action);
    /// Gives up recording and registers every binding again; nothing when none is under way.
    void cancelHotkeyCapture();
    /// Binds the combo in spite of the system's use of it.
    void confirmSystemConflict();
    /// Drops the pending combo; recording goes on.
    void cancelPendingSystemConflict();
    /// Back to the file's combo for one action.
    void resetHotkey(HotkeyAction action);
    /// Back to the file's combos for all.
    void resetAllHotkeys();

Q_SIGNALS:
    /// Anything that a row shows has changed.
    void changed();
    /// hotkeysConfig() has a new value.
    void hotkeysConfigChanged();

private:
    void handleCaptureKeyDown(const KeyDown &key);
    void setHotkey(HotkeyAction action, const QString &combo);
    /// Binds live; on failure the message is kept for the action's row.
    bool bind(HotkeyAction action, const QString &combo, const QString &failure);
    void setHotkeysConfig(const Hotkeys &hotkeys);
    /// The other action that has this combo, however it is written.
    std::optional<HotkeyAction> ownerOf(const QString &combo, HotkeyAction except) const;

    HotkeyManager &m_manager;
    UserDefaults &m_defaults;
    LocalKeyMonitor &m_monitor;
    Hotkeys m_configFileHotkeys;
    Hotkeys m_hotkeysConfig;
    QString m_answerer;
    std::optional<HotkeyAction> m_capturing;
    /// The action that has the combo which was recorded last.
    std::optional<HotkeyAction> m_takenBy;
    std::optional<Conflict> m_conflict;
    std::optional<Rollback> m_rollback;
};

} // namespace quellora
