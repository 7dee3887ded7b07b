#include "hotkeys/HotkeyManager.h"

#include "backend/Answerer.h"
#include "base/Log.h"
#include "hotkeys/HotkeyCombo.h"
#include "platform/DesktopShortcuts.h"

#include <QPointer>

#include <algorithm>
#include <utility>

namespace quellora {

HotkeyManager::HotkeyManager(GlobalHotkeys &platform, Vocabulary words, Clock clock,
                             ProblemSink problemSink, DesktopShortcuts *desktop, QObject *parent)
    : QObject(parent)
    , m_platform(platform)
    , m_words(std::move(words))
    , m_answerer(givenAnswerer)
    , m_clock(std::move(clock))
    , m_problemSink(std::move(problemSink))
    , m_desktop(desktop)
{
    if (!m_desktop)
        return;
    connect(m_desktop, &DesktopShortcuts::changed, this, &HotkeyManager::followDesktop);
    connect(m_desktop, &DesktopShortcuts::activated, this, [this](const QString &id) {
        for (const HotkeyId &each : ids()) {
            if (id == each.command() && m_isRunning)
                fire(each);
        }
    });
}

HotkeyManager::~HotkeyManager()
{
    unregisterAll();
    if (m_handlerInstalled)
        m_platform.removeHandler();
}

void HotkeyManager::setPrompts(const QList<PromptPreset> &prompts)
{
    if (prompts == m_prompts)
        return;
    const QList<HotkeyId> before = ids();
    m_prompts = prompts;
    const QList<HotkeyId> now = ids();
    for (const HotkeyId &id : before) {
        if (now.contains(id))
            continue;
        unregisterAction(id);
        m_combos.removePrompt(id.promptId());
        if (m_refusals.contains(id))
            setRefusal(id, std::nullopt);
        registerRefusedBy(id);
    }
    if (m_isRunning && !isDesktopDelivering()) {
        for (const HotkeyId &id : now) {
            if (!before.contains(id))
                registerAction(id, std::as_const(m_combos)[id]);
        }
    }
    // The lines contain the prompts' names.
    reportStandingProblems();
    if (m_isOffered)
        offer();
    Q_EMIT promptsChanged();
}

void HotkeyManager::registerRefusedBy(const HotkeyId &holder)
{
    const QMap<HotkeyId, Refusal> refusals = m_refusals;
    for (auto it = refusals.begin(); it != refusals.end(); ++it) {
        if (it->reason == Refusal::Reason::OwnAction && it->holder == holder)
            registerAction(it.key(), it->combo);
    }
}

void HotkeyManager::reportStandingProblems()
{
    for (auto it = m_refusals.cbegin(); it != m_refusals.cend(); ++it)
        m_problemSink(it.key(), problemLine(it.key(), *it));
}

QList<HotkeyId> HotkeyManager::ids() const
{
    QList<HotkeyId> ids;
    ids.reserve(qsizetype(hotkeyActions.size()) + m_prompts.size());
    for (const HotkeyActionInfo &row : hotkeyActions)
        ids << row.action;
    for (const PromptPreset &prompt : m_prompts)
        ids << HotkeyId::prompt(prompt.id);
    return ids;
}

QString HotkeyManager::title(const HotkeyId &id, const QString &answererName) const
{
    return id.isPrompt() ? QStringLiteral("Capture and send: ") + promptName(id)
                         : hotkeyAction(id.action()).titleNaming(answererName);
}

QString HotkeyManager::logName(const HotkeyId &id) const
{
    // The prompt's name is the user's own text, which log lines leave out.
    return id.isPrompt() ? QStringLiteral("Prompt ") + id.promptId()
                         : QString::fromLatin1(hotkeyAction(id.action()).logName);
}

QString HotkeyManager::promptName(const HotkeyId &id) const
{
    const auto found =
        std::find_if(m_prompts.begin(), m_prompts.end(),
                     [&id](const PromptPreset &each) { return each.id == id.promptId(); });
    return found == m_prompts.end() ? QString() : found->name;
}

void HotkeyManager::start(const HotkeyCombos &combos)
{
    installHandler();
    registerAll(combos);
}

void HotkeyManager::stop()
{
    m_isRunning = false;
    unregisterAll();
    if (std::exchange(m_handlerInstalled, false))
        m_platform.removeHandler();
    Log::event(QStringLiteral("[HotkeyManager] Stopped, all hotkeys unregistered"));
}

void HotkeyManager::suspendAll()
{
    m_isRunning = false;
    unregisterAll();
    Log::event(QStringLiteral("[HotkeyManager] Suspended all hotkeys for capture"));
}

void HotkeyManager::resume(const HotkeyCombos &combos)
{
    registerAll(combos);
    Log::event(QStringLiteral("[HotkeyManager] Resumed all hotkeys after capture"));
}

bool HotkeyManager::updateHotkey(const QString &jsonKey, const QString &combo)
{
    const std::optional<HotkeyId> found = HotkeyId::fromJsonKey(jsonKey);
    if (!found || !ids().contains(*found)) {
        Log::event(
            QStringLiteral("[HotkeyManager] ERROR: updateHotkey called with unknown jsonKey '") +
            jsonKey + u'\'');
        return false;
    }
    const HotkeyId &action = *found;
    if (isDesktopDelivering()) {
        m_combos[action] = combo;
        return true;
    }
    const auto active = m_activeHotkeys.constFind(jsonKey);
    const std::optional<QString> previous =
        active == m_activeHotkeys.constEnd() ? std::nullopt : std::optional(*active);

    const auto refused = m_refusals.constFind(action);
    const std::optional<Refusal> standing =
        refused == m_refusals.constEnd() ? std::nullopt : std::optional(*refused);

    unregisterAction(action);
    if (registerAction(action, combo)) {
        m_combos[action] = combo;
        registerRefusedBy(action);
        return true;
    }
    if (!previous) {
        // The attempt is undone: the problem before it, if any, stands again.
        setRefusal(action, standing);
    } else {
        Log::event(QStringLiteral("[HotkeyManager] '") + combo +
                   QStringLiteral("' failed to register for ") + logName(action) +
                   QStringLiteral(" — rolling back to previous combo '") + *previous + u'\'');
        registerAction(action, *previous);
    }
    return false;
}

void HotkeyManager::installHandler()
{
    // The system may deliver a press after the manager was destroyed.
    m_platform.installHandler([self = QPointer(this)](GlobalHotkeys::Registration id) {
        if (self)
            self->handlePress(id);
    });
    m_handlerInstalled = true;
}

void HotkeyManager::registerAll(const HotkeyCombos &combos)
{
    m_combos = combos;
    m_isRunning = true;
    if (isDesktopDelivering())
        return;
    const bool wasUnavailable = std::exchange(m_isUnavailable, false);
    const Delivery before = m_lastDelivery;
    for (const HotkeyId &id : ids())
        registerAction(id, combos[id]);
    if (m_isUnavailable && !wasUnavailable)
        Log::event(QStringLiteral("[HotkeyManager] WARNING: This session has no hotkeys for "
                                  "programs to register"));
    m_lastDelivery = delivery();
    if (m_lastDelivery != before)
        Q_EMIT deliveryChanged();
}

bool HotkeyManager::registerAction(const HotkeyId &action, const QString &combo)
{
    // An action has one registration at most.
    unregisterAction(action);
    if (combo.isEmpty()) {
        setRefusal(action, std::nullopt);
        return true;
    }

    const QString name = logName(action);
    const std::optional<QKeyCombination> parsed = HotkeyCombo::parse(combo);
    if (!parsed) {
        Log::event(
            QStringLiteral("[HotkeyManager] ERROR: Unsupported hotkey combo '") + combo +
            QStringLiteral("' for ") + name +
            QStringLiteral(" — no virtual keycode mapping for its key, skipping registration"));
        setRefusal(action, Refusal{combo, Refusal::Reason::UnsupportedKey});
        return false;
    }

    const GlobalHotkeys::Result result = m_platform.registerHotkey(*parsed);
    if (result) {
        m_registrations.insert(action, *result);
        m_activeHotkeys.insert(action.jsonKey(), combo);
        Log::event(QStringLiteral("[HotkeyManager] Registered ") + name + QStringLiteral(" -> ") +
                   combo);
        setRefusal(action, std::nullopt);
        return true;
    }
    if (m_desktop && result.error().kind == GlobalHotkeys::Failure::Kind::Unavailable) {
        // Not a matter of this combo: logged once for all.
        m_isUnavailable = true;
        setRefusal(action, std::nullopt);
        return false;
    }
    Log::event(QStringLiteral("[HotkeyManager] ERROR: Failed to register ") + name +
               QStringLiteral(" (") + combo + QStringLiteral("), OSStatus ") +
               QString::number(result.error().status) +
               QStringLiteral(" — likely already claimed by another app"));
    if (result.error().kind == GlobalHotkeys::Failure::Kind::UnsupportedKey) {
        setRefusal(action, Refusal{combo, Refusal::Reason::UnsupportedKey});
        return false;
    }
    const std::optional<HotkeyId> holder = holderOf(*parsed);
    setRefusal(action, holder ? Refusal{combo, Refusal::Reason::OwnAction, *holder}
                              : Refusal{combo, Refusal::Reason::OtherProgram});
    return false;
}

std::optional<HotkeyId> HotkeyManager::holderOf(QKeyCombination combo) const
{
    for (const HotkeyId &id : ids()) {
        const auto active = m_activeHotkeys.constFind(id.jsonKey());
        if (active != m_activeHotkeys.constEnd() && HotkeyCombo::parse(*active) == combo)
            return id;
    }
    return std::nullopt;
}

void HotkeyManager::setRefusal(const HotkeyId &action, const std::optional<Refusal> &refusal)
{
    if (refusal)
        m_refusals.insert(action, *refusal);
    else
        m_refusals.remove(action);
    m_problemSink(action, refusal ? problemLine(action, *refusal) : QString());
}

QString HotkeyManager::problemLine(const HotkeyId &action, const Refusal &refusal) const
{
    const QString name = logName(action);
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
        return unavailable + QStringLiteral("used by ") + title(refusal.holder, m_answerer) +
               QStringLiteral(". Choose another shortcut for one of the two in Settings.");
    }
    Q_UNREACHABLE();
}

void HotkeyManager::setAnswererName(const QString &name)
{
    if (name == m_answerer)
        return;
    m_answerer = name;
    reportStandingProblems();
}

void HotkeyManager::withdrawRefusals()
{
    for (const HotkeyId &id : ids()) {
        if (m_refusals.contains(id))
            setRefusal(id, std::nullopt);
    }
}

void HotkeyManager::offerToDesktop()
{
    if (m_desktop && !m_isOffered)
        offer();
}

void HotkeyManager::offer()
{
    QList<DesktopShortcuts::Action> actions;
    QMap<QString, QString> names;
    for (const HotkeyId &id : ids()) {
        QString description = id.isPrompt()
                                  ? title(id, m_answerer)
                                  : QString::fromLatin1(hotkeyAction(id.action()).summary);
        description.front() = description.front().toUpper();
        actions << DesktopShortcuts::Action{id.command(), description,
                                            HotkeyCombo::parse(std::as_const(m_combos)[id])};
        names.insert(id.command(), description);
    }
    // Their order is of no interest to the desktop.
    if (std::exchange(m_isOffered, true) && names == m_offered)
        return;
    m_offered = names;
    m_desktop->offer(actions);
}

bool HotkeyManager::isDesktopDelivering() const
{
    return m_desktop && m_desktop->state().isApplied();
}

bool HotkeyManager::isDesktopUndecided() const
{
    return m_desktop && m_desktop->state().state() == Capability::State::BestEffort;
}

HotkeyManager::Delivery HotkeyManager::delivery() const
{
    if (isDesktopDelivering())
        return Delivery::Desktop;
    if (m_isUnavailable && m_registrations.isEmpty())
        return Delivery::None;
    return m_desktop ? Delivery::OwnPartly : Delivery::Own;
}

QString HotkeyManager::desktopKey(const HotkeyId &id) const
{
    return isDesktopDelivering() ? m_desktop->trigger(id.command()) : QString();
}

QString HotkeyManager::desktopReason() const
{
    return m_desktop ? m_desktop->state().reason() : QString();
}

void HotkeyManager::followDesktop()
{
    const bool isDelivering = isDesktopDelivering();
    m_lastDelivery = delivery();
    if (isDelivering != m_wasDesktopDelivering) {
        m_wasDesktopDelivering = isDelivering;
        if (isDelivering) {
            unregisterAll();
            withdrawRefusals();
        } else if (m_isRunning) {
            registerAll(m_combos);
        }
    }
    Q_EMIT deliveryChanged();
}

void HotkeyManager::unregisterAction(const HotkeyId &action)
{
    m_activeHotkeys.remove(action.jsonKey());
    if (const GlobalHotkeys::Registration registration = m_registrations.take(action))
        m_platform.unregisterHotkey(registration);
}

void HotkeyManager::unregisterAll()
{
    for (const HotkeyId &id : ids())
        unregisterAction(id);
}

void HotkeyManager::handlePress(GlobalHotkeys::Registration registration)
{
    const auto found =
        std::find(m_registrations.constBegin(), m_registrations.constEnd(), registration);
    if (found == m_registrations.constEnd())
        return;
    fire(found.key());
}

void HotkeyManager::fire(const HotkeyId &action)
{
    const QString name = logName(action);
    const std::chrono::steady_clock::time_point now = m_clock();
    const auto last = m_lastFireTime.constFind(action);
    if (last != m_lastFireTime.constEnd() && now - *last < debounceInterval) {
        Log::event(QStringLiteral("[HotkeyManager] Ignored re-fire of ") + name +
                   QStringLiteral(" within debounce window"));
        return;
    }
    m_lastFireTime.insert(action, now);
    Log::event(QStringLiteral("[HotkeyManager] Fired: ") + name);
    QMetaObject::invokeMethod(
        this,
        [this, action] {
            if (action.isPrompt())
                Q_EMIT promptPressed(action.promptId());
            else
                Q_EMIT pressed(action.action());
        },
        Qt::QueuedConnection);
}

} // namespace quellora
