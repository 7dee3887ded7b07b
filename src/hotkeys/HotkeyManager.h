#pragma once

#include "base/PromptPresets.h"
#include "hotkeys/HotkeyBindings.h"
#include "platform/Platform.h"

#include <QMap>
#include <QObject>

#include <chrono>
#include <functional>
#include <optional>

namespace quellora {

class DesktopShortcuts;

/// Registers every action that has a combo as a system-wide hot key and reports presses with
/// pressed(). A press that follows another one of the same action within debounceInterval is
/// dropped. Main thread only.
///
/// Where the desktop has shortcuts of its own, the actions can be offered to it. While it delivers
/// presses, no combo is registered, so that no press counts twice.
///
/// A combo that cannot be registered is logged and reported to the problem sink; the other actions
/// are not affected. The problem stands until the action has a combo that is registered.
class HotkeyManager : public QObject
{
    Q_OBJECT
public:
    /// A monotonic clock, so that setting the system time never silences a hot key.
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    /// Receives what to tell the user about an action's combo; an empty line once it is registered.
    using ProblemSink = std::function<void(const HotkeyId &id, const QString &markdownLine)>;

    static constexpr std::chrono::milliseconds debounceInterval{300};

    /// Who delivers key presses at present.
    enum class Delivery {
        /// This program gets its combos from every window.
        Own,
        /// This program gets its combos from some windows only.
        OwnPartly,
        /// The desktop delivers the keys it assigned.
        Desktop,
        /// No key works.
        None,
    };

    /// @param platform outlives the manager
    /// @param words names the keys in messages to the user
    /// @param desktop where @p platform does not get keys from every window; outlives the manager
    HotkeyManager(GlobalHotkeys &platform, Vocabulary words, Clock clock, ProblemSink problemSink,
                  DesktopShortcuts *desktop = nullptr, QObject *parent = nullptr);
    /// Releases what is still registered, without a log line.
    ~HotkeyManager() override;

    /// The user's prompts, which are actions, too: those that are new are registered with their
    /// combos in force, those that are gone are unregistered.
    void setPrompts(const QList<PromptPreset> &prompts);
    /// Every action: those of the table, then the prompts in their order.
    QList<HotkeyId> ids() const;
    /// Title of an action in the settings; with @p answererName in place of who answers.
    QString title(const HotkeyId &id, const QString &answererName) const;

    /// Installs the handler and registers every action.
    void start(const HotkeyCombos &combos);
    /// Unregisters everything and removes the handler.
    void stop();
    /// Unregisters everything while a new combo is recorded; the handler stays installed.
    void suspendAll();
    /// Registers every action again after suspendAll().
    void resume(const HotkeyCombos &combos);
    /// Registers a new combo for one action, or none if it is empty; on failure registers its
    /// previous combo again. An action that was refused because of the replaced combo is
    /// registered.
    /// @return whether the new combo is in force
    bool updateHotkey(const QString &jsonKey, const QString &combo);

    /// Offers the actions to the desktop, with the combos in force as a suggestion, and from then
    /// on again whenever a prompt is added, renamed or removed. Call after start(). The desktop may
    /// ask the user. No effect after the first time and where the desktop has no shortcuts.
    void offerToDesktop();
    Delivery delivery() const;
    /// The key that the desktop assigned to an action, in its words; empty if there is none.
    QString desktopKey(const HotkeyId &id) const;
    /// While delivery() is not Own, why the desktop does not deliver keys, in a sentence for the
    /// user; else empty.
    QString desktopReason() const;
    /// Whether it is still open if the desktop will deliver keys.
    bool isDesktopUndecided() const;

    /// Sets the model's name used in problem lines and reports the standing ones again.
    void setAnswererName(const QString &name);

    /// The registered combos, as written, by the JSON key of the action.
    const QMap<QString, QString> &activeHotkeys() const { return m_activeHotkeys; }

Q_SIGNALS:
    /// Emitted from the event loop, after the system's handler has returned.
    void pressed(HotkeyAction action);
    /// Likewise for one of the user's prompts.
    void promptPressed(const QString &promptId);
    /// ids() or their titles have changed.
    void promptsChanged();
    /// delivery(), the desktop's reason or one of its keys has changed.
    void deliveryChanged();

private:
    /// Why an action's combo is not registered.
    struct Refusal
    {
        enum class Reason { UnsupportedKey, OtherProgram, OwnAction };
        QString combo;
        Reason reason = Reason::UnsupportedKey;
        /// Who has the combo, for Reason::OwnAction.
        HotkeyId holder = HotkeyAction::Capture;
    };

    void installHandler();
    void registerAll(const HotkeyCombos &combos);
    bool registerAction(const HotkeyId &action, const QString &combo);
    void unregisterAction(const HotkeyId &action);
    void unregisterAll();
    /// Registers the actions that were refused because of an action's combo, which is free now.
    void registerRefusedBy(const HotkeyId &holder);
    void reportStandingProblems();
    /// The action that has registered this combination.
    std::optional<HotkeyId> holderOf(QKeyCombination combo) const;
    void setRefusal(const HotkeyId &action, const std::optional<Refusal> &refusal);
    QString problemLine(const HotkeyId &action, const Refusal &refusal) const;
    /// Name in log lines and problem lines.
    QString logName(const HotkeyId &id) const;
    QString promptName(const HotkeyId &id) const;
    void handlePress(GlobalHotkeys::Registration registration);
    void fire(const HotkeyId &action);
    /// Unless the desktop knows the actions already.
    void offer();
    bool isDesktopDelivering() const;
    void followDesktop();
    void withdrawRefusals();

    GlobalHotkeys &m_platform;
    Vocabulary m_words;
    QString m_answerer;
    Clock m_clock;
    ProblemSink m_problemSink;
    DesktopShortcuts *m_desktop;
    bool m_isOffered = false;
    /// The descriptions offered, by the action's command.
    QMap<QString, QString> m_offered;
    /// The combos in force.
    HotkeyCombos m_combos;
    /// Whether combos are registered unless the desktop delivers presses.
    bool m_isRunning = false;
    /// Whether this session has no hot keys for programs.
    bool m_isUnavailable = false;
    bool m_wasDesktopDelivering = false;
    /// As last announced.
    Delivery m_lastDelivery = Delivery::Own;
    QMap<QString, QString> m_activeHotkeys;
    QMap<HotkeyId, GlobalHotkeys::Registration> m_registrations;
    QMap<HotkeyId, Refusal> m_refusals;
    bool m_handlerInstalled = false;
    QMap<HotkeyId, std::chrono::steady_clock::time_point> m_lastFireTime;
    QList<PromptPreset> m_prompts;
};

} // namespace quellora
