#include "hotkeys/HotkeyManager.h"

#include "backend/Answerer.h"
#include "base/Log.h"
#include "hotkeys/HotkeyBindings.h"
#include "hotkeys/HotkeyCombo.h"

#include <QPointer>

#include <utility>

namespace quellora {
namespace {

HotkeyAction configAction(HotkeyManager::Action action)
{
    return static_cast<HotkeyAction>(action);
}

HotkeyManager::Action managerAction(HotkeyAction action)
{
    return static_cast<HotkeyManager::Action>(action);
}

QString jsonKeyOf(HotkeyManager::Action action)
{
    return HotkeyActions::jsonKey(configAction(action));
}

QString nameOf(HotkeyManager::Action action)
{
    return HotkeyActions::logName(configAction(action));
}

} // namespace

HotkeyManager::HotkeyManager(GlobalHotkeys &platform, Vocabulary words, Clock clock,
                             ProblemSink problemSink, QObject *parent)
    : QObject(parent)
    , m_platform(platform)
    , m_words(std::move(words))
    , m_answerer(givenAnswerer)
    , m_clock(std::move(clock))
    , m_problemSink(std::move(problemSink))
{}

HotkeyManager::~HotkeyManager()
{
    unregisterAll();
    if (m_handlerInstalled)
        m_platform.removeHandler();
}

void HotkeyManager::start(const VantiroConfig::Hotkeys &hotkeys)
{
    installHandler();
    registerAll(hotkeys);
}

void HotkeyManager::stop()
{
    unregisterAll();
    if (std::exchange(m_handlerInstalled, false))
        m_platform.removeHandler();
    Log::event(QStringLiteral("[HotkeyManager] Stopped, all hotkeys unregistered"));
}

void HotkeyManager::suspendAll()
{
    unregisterAll();
    Log::event(QStringLiteral("[HotkeyManager] Suspended all hotkeys for capture"));
}

void HotkeyManager::resume(const VantiroConfig::Hotkeys &hotkeys)
{
    registerAll(hotkeys);
    Log::event(QStringLiteral("[HotkeyManager] Resumed all hotkeys after capture"));
}

bool HotkeyManager::updateHotkey(const QString &jsonKey, const QString &combo)
{
    const std::optional<HotkeyAction> found = HotkeyActions::fromJsonKey(jsonKey);
    if (!found) {
        Log::event(
            QStringLiteral("[HotkeyManager] ERROR: updateHotkey called with unknown jsonKey '") +
            jsonKey + u'\'');
        return false;
    }
    const Action action = managerAction(*found);
    const auto active = m_activeHotkeys.constFind(jsonKey);
    const std::optional<QString> previous =
        active == m_activeHotkeys.constEnd() ? std::nullopt : std::optional(*active);

    const auto refused = m_refusals.constFind(action);
    const std::optional<Refusal> standing =
        refused == m_refusals.constEnd() ? std::nullopt : std::optional(*refused);

    unregisterAction(action);
    if (registerAction(action, combo)) {
        const QMap<Action, Refusal> refusals = m_refusals;
        for (auto it = refusals.begin(); it != refusals.end(); ++it) {
            if (it->reason == Refusal::Reason::OwnAction && it->holder == action)
                registerAction(it.key(), it->combo);
        }
        return true;
    }
    if (!previous) {
        // What was wrong before still is.
        if (standing)
            setRefusal(action, standing);
    } else {
        Log::event(QStringLiteral("[HotkeyManager] '") + combo +
                   QStringLiteral("' failed to register for ") + nameOf(action) +
                   QStringLiteral(" — rolling back to previous combo '") + *previous + u'\'');
        registerAction(action, *previous);
    }
    return false;
}

void HotkeyManager::installHandler()
{
    // The guard keeps a late press of the system from reaching a manager that is gone.
    m_platform.installHandler([self = QPointer(this)](quint32 id) {
        if (self)
            self->handleFire(id);
    });
    m_handlerInstalled = true;
}

void HotkeyManager::registerAll(const VantiroConfig::Hotkeys &hotkeys)
{
    for (const HotkeyAction action : HotkeyActions::all)
        registerAction(managerAction(action), HotkeyActions::combo(action, hotkeys));
}

bool HotkeyManager::registerAction(Action action, const QString &combo)
{
    // An action holds one registration at most, however often it is registered.
    unregisterAction(action);

    const QString name = nameOf(action);
    const std::optional<HotkeyCombo> parsed = HotkeyCombo::parse(combo);
    if (!parsed) {
        Log::event(
            QStringLiteral("[HotkeyManager] ERROR: Unsupported hotkey combo '") + combo +
            QStringLiteral("' for ") + name +
            QStringLiteral(" — no virtual keycode mapping for its key, skipping registration"));
        setRefusal(action, Refusal{combo, Refusal::Reason::UnsupportedKey});
        return false;
    }

    const GlobalHotkeys::Result result =
        m_platform.registerHotkey(parsed->key, parsed->keyCode, parsed->modifiers, signature,
                                  static_cast<quint32>(action) + 1);
    if (result.status == 0 && result.registration != 0) {
        m_hotKeyRefs.insert(action, result.registration);
        m_activeHotkeys.insert(jsonKeyOf(action), combo);
        Log::event(QStringLiteral("[HotkeyManager] Registered ") + name + QStringLiteral(" -> ") +
                   combo);
        setRefusal(action, std::nullopt);
        return true;
    }
    Log::event(QStringLiteral("[HotkeyManager] ERROR: Failed to register ") + name +
               QStringLiteral(" (") + combo + QStringLiteral("), OSStatus ") +
               QString::number(result.status) +
               QStringLiteral(" — likely already claimed by another app"));
    const std::optional<Action> holder = holderOf(*parsed);
    setRefusal(action, holder ? Refusal{combo, Refusal::Reason::OwnAction, *holder}
                              : Refusal{combo, Refusal::Reason::OtherProgram});
    return false;
}

std::optional<HotkeyManager::Action> HotkeyManager::holderOf(const HotkeyCombo &combo) const
{
    for (const HotkeyAction action : HotkeyActions::all) {
        const auto active = m_activeHotkeys.constFind(HotkeyActions::jsonKey(action));
        if (active != m_activeHotkeys.constEnd() && HotkeyCombo::parse(*active) == combo)
            return managerAction(action);
    }
    return std::nullopt;
}

void HotkeyManager::setRefusal(Action action, const std::optional<Refusal> &refusal)
{
    if (refusal)
        m_refusals.insert(action, *refusal);
    else
        m_refusals.remove(action);
    m_problemSink(configAction(action), refusal ? problemLine(action, *refusal) : QString());
}

QString HotkeyManager::problemLine(Action action, const Refusal &refusal) const
{
    const QString name = nameOf(action);
    const QString display = HotkeyCombo::displayString(refusal.combo, m_words);
    const QString unavailable = QStringLiteral("**") + display + QStringLiteral(" (") + name +
                                QStringLiteral(") is unavailable** — already ");
    switch (refusal.reason) {
    case Refusal::Reason::UnsupportedKey:
        return QStringLiteral("**") + name + QStringLiteral(" (") + display +
               QStringLiteral(") could not be registered** — unsupported key.");
    case Refusal::Reason::OtherProgram:
        return unavailable +
               QStringLiteral("in use by another app. Use the Prompt panel buttons instead, or "
                              "free up that shortcut and relaunch.");
    case Refusal::Reason::OwnAction:
        return unavailable + QStringLiteral("used by ") +
               HotkeyActions::settingsTitle(configAction(refusal.holder), m_answerer) +
               QStringLiteral(". Choose another shortcut for one of the two in Settings.");
    }
    Q_UNREACHABLE();
}

void HotkeyManager::setAnswererName(const QString &name)
{
    if (name == m_answerer)
        return;
    m_answerer = name;
    for (auto it = m_refusals.begin(); it != m_refusals.end(); ++it)
        m_problemSink(configAction(it.key()), problemLine(it.key(), *it));
}

void HotkeyManager::unregisterAction(Action action)
{
    m_activeHotkeys.remove(jsonKeyOf(action));
    if (const GlobalHotkeys::Registration registration = m_hotKeyRefs.take(action))
        m_platform.unregisterHotkey(registration);
}

void HotkeyManager::unregisterAll()
{
    for (const HotkeyAction action : HotkeyActions::all)
        unregisterAction(managerAction(action));
}

void HotkeyManager::handleFire(quint32 id)
{
    if (id < 1 || id > HotkeyActions::all.size())
        return;
    const auto action = static_cast<Action>(id - 1);
    const std::chrono::steady_clock::time_point now = m_clock();
    const auto last = m_lastFireTime.constFind(action);
    if (last != m_lastFireTime.constEnd() && now - *last < debounceInterval) {
        Log::event(QStringLiteral("[HotkeyManager] Ignored re-fire of ") + nameOf(action) +
                   QStringLiteral(" within debounce window"));
        return;
    }
    m_lastFireTime.insert(action, now);
    Log::event(QStringLiteral("[HotkeyManager] Fired: ") + nameOf(action));
    QMetaObject::invokeMethod(
        this,
        [this, action] {
            // A copy: the callback may replace itself.
            if (const Callback run = callback(action))
                run();
        },
        Qt::QueuedConnection);
}

HotkeyManager::Callback HotkeyManager::callback(Action action) const
{
    switch (action) {
    case Action::Capture:
        return onCapture;
    case Action::Clear:
        return onClear;
    case Action::Toggle:
        return onToggle;
    case Action::OpacityUp:
        return onOpacityUp;
    case Action::OpacityDown:
        return onOpacityDown;
    case Action::CaptureNoSend:
        return onCaptureNoSend;
    case Action::NewThread:
        return onNewThread;
    }
    Q_UNREACHABLE();
}

} // namespace quellora
