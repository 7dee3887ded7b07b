#pragma once

#include "base/VantiroConfig.h"
#include "platform/Platform.h"

#include <QMap>
#include <QObject>

#include <chrono>
#include <functional>
#include <optional>

namespace quellora {

struct HotkeyCombo;

/// Registers the seven actions as system-wide hot keys, drops bounces and forwards every press to
/// its callback. Main thread only; callbacks run later, from the event loop, and only while the
/// manager exists.
///
/// A combo that cannot be registered is logged and described to the problem sink until the action
/// has one that can; the other actions are not affected.
class HotkeyManager : public QObject
{
    Q_OBJECT
public:
    /// The manager's actions; the raw value plus 1 is the id of the registration.
    enum class Action {
        Capture = 0,
        Clear,
        Toggle,
        OpacityUp,
        OpacityDown,
        CaptureNoSend,
        NewThread,
    };
    using Callback = std::function<void()>;
    /// A monotonic clock, so that setting the system time never silences a hot key.
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    /// Takes what the user should know about an action's combo; an empty line once it is in force.
    using ProblemSink = std::function<void(HotkeyAction action, const QString &markdownLine)>;

    /// "Qlor", first character in the most significant byte.
    static constexpr quint32 signature = 0x516C6F72;
    static constexpr std::chrono::milliseconds debounceInterval{300};

    /// @param platform outlives the manager
    /// @param words in which keys are named to the user
    HotkeyManager(GlobalHotkeys &platform, Vocabulary words, Clock clock, ProblemSink problemSink,
                  QObject *parent = nullptr);
    /// Releases what is still registered, without a log line.
    ~HotkeyManager() override;

    Callback onCapture;
    Callback onClear;
    Callback onToggle;
    Callback onOpacityUp;
    Callback onOpacityDown;
    Callback onCaptureNoSend;
    Callback onNewThread;

    /// Installs the handler and registers all seven actions.
    void start(const VantiroConfig::Hotkeys &hotkeys);
    /// Unregisters everything and removes the handler.
    void stop();
    /// Unregisters everything for the time a new combo is recorded; the handler stays.
    void suspendAll();
    /// Registers all seven actions again after suspendAll().
    void resume(const VantiroConfig::Hotkeys &hotkeys);
    /// Binds one action anew; on failure its previous combo is registered again. Another action
    /// that could not have its combo because of this one's previous combo gets it.
    /// @return whether the new combo is in force
    bool updateHotkey(const QString &jsonKey, const QString &combo);

    /// Whom the lines about problems name as the one who answers.
    void setAnswererName(const QString &name);

    /// What is registered now: JSON key of the action to combo, as written.
    const QMap<QString, QString> &activeHotkeys() const { return m_activeHotkeys; }

private:
    /// Why an action is without its combo.
    struct Refusal
    {
        enum class Reason { UnsupportedKey, OtherProgram, OwnAction };
        QString combo;
        Reason reason = Reason::UnsupportedKey;
        /// Who has the combo, for Reason::OwnAction.
        Action holder = Action::Capture;
        bool operator==(const Refusal &) const = default;
    };

    void installHandler();
    void registerAll(const VantiroConfig::Hotkeys &hotkeys);
    bool registerAction(Action action, const QString &combo);
    void unregisterAction(Action action);
    void unregisterAll();
    /// The action of ours that has this combo now, however it is written.
    std::optional<Action> holderOf(const HotkeyCombo &combo) const;
    void setRefusal(Action action, const std::optional<Refusal> &refusal);
    QString problemLine(Action action, const Refusal &refusal) const;
    void handleFire(quint32 id);
    Callback callback(Action action) const;

    GlobalHotkeys &m_platform;
    Vocabulary m_words;
    QString m_answerer;
    Clock m_clock;
    ProblemSink m_problemSink;
    QMap<QString, QString> m_activeHotkeys;
    QMap<Action, GlobalHotkeys::Registration> m_hotKeyRefs;
    QMap<Action, Refusal> m_refusals;
    bool m_handlerInstalled = false;
    QMap<Action, std::chrono::steady_clock::time_point> m_lastFireTime;
};

} // namespace quellora
