#pragma once

#include "app/VantiroConfig.h"
#include "platform/Platform.h"

#include <QMap>
#include <QObject>

#include <chrono>
#include <functional>

namespace quellora {

/// Registers the seven actions as system-wide hot keys, drops bounces and forwards every press to
/// its callback. Main thread only; callbacks run later, from the event loop, and only while the
/// manager exists.
///
/// A combo that cannot be registered is logged and described to the problem sink; the other
/// actions are not affected.
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
    using ProblemSink = std::function<void(const QString &markdownLine)>;

    /// "Qlor", first character in the most significant byte.
    static constexpr quint32 signature = 0x516C6F72;
    static constexpr std::chrono::milliseconds debounceInterval{300};

    /// @param platform outlives the manager
    /// @param problemSink takes the user-facing line of every failed registration
    HotkeyManager(GlobalHotkeys &platform, Clock clock, ProblemSink problemSink,
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
    /// Binds one action anew; on failure its previous combo is registered again.
    /// @return whether the new combo is in force
    bool updateHotkey(const QString &jsonKey, const QString &combo);

    /// What is registered now: JSON key of the action to combo, as written.
    const QMap<QString, QString> &activeHotkeys() const { return m_activeHotkeys; }

private:
    void installHandler();
    void registerAll(const VantiroConfig::Hotkeys &hotkeys);
    bool registerAction(Action action, const QString &combo);
    void unregisterAction(Action action);
    void unregisterAll();
    void handleFire(quint32 id);
    Callback callback(Action action) const;

    GlobalHotkeys &m_platform;
    Clock m_clock;
    ProblemSink m_problemSink;
    QMap<QString, QString> m_activeHotkeys;
    QMap<Action, GlobalHotkeys::Registration> m_hotKeyRefs;
    bool m_handlerInstalled = false;
    QMap<Action, std::chrono::steady_clock::time_point> m_lastFireTime;
};

} // namespace quellora
