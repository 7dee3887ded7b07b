#include "hotkeys/HotkeyRebinding.h"

#include "backend/Answerer.h"
#include "base/Log.h"
#include "base/UserDefaults.h"
#include "hotkeys/HotkeyCombo.h"
#include "hotkeys/HotkeyManager.h"
#include "hotkeys/LocalKeyMonitor.h"
#include "platform/Platform.h"

#include <QStringList>

#include <algorithm>

namespace quellora {
namespace {

constexpr QStringView bindablePunctuation = u"[]-=;',./\\`";

void log(const QString &message)
{
    Log::event(QStringLiteral("[OverlayWindowController] ") + message);
}

std::optional<QString> systemFeature(const QString &combo)
{
    const auto &known = HotkeyRebinding::knownSystemShortcuts();
    const auto *found = std::find_if(known.begin(), known.end(),
                                     [&combo](const auto &row) { return row.first == combo; });
    return found == known.end() ? std::nullopt : std::optional(found->second);
}

} // namespace

const std::array<std::pair<QString, QString>, 12> &HotkeyRebinding::knownSystemShortcuts()
{
    // The recorder never yields the combos with space, tab and comma.
    static const std::array<std::pair<QString, QString>, 12> table{{
        {QStringLiteral("cmd+space"), QStringLiteral("Spotlight Search")},
        {QStringLiteral("ctrl+cmd+space"), QStringLiteral("Emoji & Symbols picker")},
        {QStringLiteral("cmd+tab"), QStringLiteral("App Switcher")},
        {QStringLiteral("cmd+shift+3"), QStringLiteral("Screenshot (full screen)")},
        {QStringLiteral("cmd+shift+4"), QStringLiteral("Screenshot (selection)")},
        {QStringLiteral("cmd+shift+5"), QStringLiteral("Screenshot & Recording tools")},
        {QStringLiteral("ctrl+cmd+q"), QStringLiteral("Lock Screen")},
        {QStringLiteral("cmd+h"), QStringLiteral("Hide application")},
        {QStringLiteral("cmd+m"), QStringLiteral("Minimize window")},
        {QStringLiteral("cmd+q"), QStringLiteral("Quit application")},
        {QStringLiteral("cmd+shift+q"), QStringLiteral("Log Out")},
        {QStringLiteral("cmd+comma"), QStringLiteral("App Preferences")},
    }};
    return table;
}

std::optional<QString> HotkeyRebinding::captureComboString(const KeyDown &key)
{
    QStringList parts;
    if (key.modifiers & Qt::ControlModifier)
        parts << QStringLiteral("ctrl");
    if (key.modifiers & Qt::AltModifier)
        parts << QStringLiteral("alt");
    if (key.modifiers & Qt::MetaModifier)
        parts << QStringLiteral("cmd");
    if (key.modifiers & Qt::ShiftModifier)
        parts << QStringLiteral("shift");
    if (parts.isEmpty())
        return std::nullopt;
    const QString character = key.character.toLower();
    if (character.size() != 1)
        return std::nullopt;
    const QChar only = character.front();
    if (!only.isLetter() && !only.isDigit() && !bindablePunctuation.contains(only))
        return std::nullopt;
    parts << character;
    return parts.join(u'+');
}

HotkeyRebinding::HotkeyRebinding(HotkeyManager &manager, UserDefaults &defaults,
                                 LocalKeyMonitor &monitor, HotkeyCombos configFileHotkeys,
                                 QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_defaults(defaults)
    , m_monitor(monitor)
    , m_configFileHotkeys(std::move(configFileHotkeys))
    , m_hotkeysConfig(HotkeyBindings::loadEffective(m_configFileHotkeys, defaults))
    , m_answerer(givenAnswerer)
{
    m_manager.setAnswererName(m_answerer);
    connect(&m_manager, &HotkeyManager::promptsChanged, this, &HotkeyRebinding::followPrompts);
}

HotkeyRebinding::~HotkeyRebinding()
{
    if (m_capturing)
        m_monitor.remove();
}

void HotkeyRebinding::beginCapturingHotkey(const HotkeyId &action)
{
    cancelHotkeyCapture();
    m_capturing = action;
    m_takenBy.reset();
    m_rollback.reset();
    m_conflict.reset();
    m_manager.suspendAll();
    m_monitor.install([this](const KeyDown &key) { handleCaptureKeyDown(key); },
                      [this] { cancelHotkeyCapture(); });
    log(QStringLiteral("Hotkey capture started for ") + logTitle(action));
    Q_EMIT changed();
}

void HotkeyRebinding::handleCaptureKeyDown(const KeyDown &key)
{
    if (!m_capturing)
        return;
    if (key.isEscape) {
        cancelHotkeyCapture();
        return;
    }
    if (m_conflict)
        return;
    const std::optional<QString> combo = captureComboString(key);
    if (!combo)
        return;
    const HotkeyId action = *m_capturing;
    m_takenBy = ownerOf(*combo, action);
    if (m_takenBy) {
        Q_EMIT changed();
        return;
    }
    if (const std::optional<QString> feature = systemFeature(*combo)) {
        m_conflict = Conflict{*combo, *feature};
        log(QStringLiteral("Hotkey capture: '") + *combo +
            QStringLiteral("' may conflict with system shortcut '") + *feature +
            QStringLiteral("' — awaiting confirmation"));
        Q_EMIT changed();
        return;
    }
    setHotkey(action, *combo);
}

std::optional<HotkeyId> HotkeyRebinding::ownerOf(const QString &combo, const HotkeyId &except) const
{
    const std::optional<QKeyCombination> wanted = HotkeyCombo::parse(combo);
    for (const HotkeyId &other : m_manager.ids()) {
        const QString &held = std::as_const(m_hotkeysConfig)[other];
        if (other != except && (held == combo || (wanted && HotkeyCombo::parse(held) == wanted)))
            return other;
    }
    return std::nullopt;
}

std::optional<QString> HotkeyRebinding::hotkeyCaptureError() const
{
    if (!m_takenBy)
        return std::nullopt;
    return QStringLiteral("Already used by ") + title(*m_takenBy) +
           QStringLiteral(". Try a different combo.");
}

QString HotkeyRebinding::title(const HotkeyId &id) const
{
    return m_manager.title(id, m_answerer);
}

QString HotkeyRebinding::logTitle(const HotkeyId &id) const
{
    // The prompt's name is the user's own text, which log lines leave out.
    return id.isPrompt() ? QStringLiteral("Prompt ") + id.promptId()
                         : QString::fromLatin1(hotkeyAction(id.action()).title);
}

void HotkeyRebinding::followPrompts()
{
    const QList<HotkeyId> ids = m_manager.ids();
    if (m_capturing && !ids.contains(*m_capturing))
        cancelHotkeyCapture();
    HotkeyCombos combos = m_hotkeysConfig;
    for (const QString &promptId : m_hotkeysConfig.promptIds()) {
        const HotkeyId id = HotkeyId::prompt(promptId);
        if (ids.contains(id))
            continue;
        combos.removePrompt(promptId);
        HotkeyBindings::clearOverride(id, m_defaults);
    }
    setHotkeysConfig(combos);
}

void HotkeyRebinding::setAnswererName(const QString &name)
{
    if (name == m_answerer)
        return;
    m_answerer = name;
    m_manager.setAnswererName(name);
    Q_EMIT changed();
}

void HotkeyRebinding::confirmSystemConflict()
{
    if (!m_capturing || !m_conflict)
        return;
    const QString combo = m_conflict->combo;
    setHotkey(*m_capturing, combo);
}

void HotkeyRebinding::cancelPendingSystemConflict()
{
    if (!m_conflict)
        return;
    m_conflict.reset();
    Q_EMIT changed();
}

void HotkeyRebinding::cancelHotkeyCapture()
{
    m_monitor.remove();
    if (!m_capturing)
        return;
    m_capturing.reset();
    m_takenBy.reset();
    m_conflict.reset();
    m_manager.resume(m_hotkeysConfig);
    Q_EMIT changed();
}

bool HotkeyRebinding::bind(const HotkeyId &action, const QString &combo, const QString &failure)
{
    cancelHotkeyCapture();
    if (!m_manager.updateHotkey(action.jsonKey(), combo)) {
        m_rollback = Rollback{action, failure};
        Q_EMIT changed();
        return false;
    }
    m_rollback.reset();
    HotkeyCombos combos = m_hotkeysConfig;
    combos[action] = combo;
    setHotkeysConfig(combos);
    return true;
}

void HotkeyRebinding::setHotkey(const HotkeyId &action, const QString &combo)
{
    const QString title = logTitle(action);
    const bool isBound = bind(
        action, combo, QStringLiteral("Couldn't register that combo — kept your previous one."));
    const QString line = QStringLiteral("Hotkey ") + title + QStringLiteral(" -> ") + combo;
    if (!isBound) {
        log(line + QStringLiteral(" FAILED to register — rolled back, not persisted"));
        return;
    }
    HotkeyBindings::setOverride(combo, action, m_defaults);
    log(line + QStringLiteral(", persisted + registered live"));
}

void HotkeyRebinding::unsetHotkey(const HotkeyId &action)
{
    if (std::as_const(m_hotkeysConfig)[action].isEmpty())
        return;
    bind(action, QString(), QString());
    HotkeyBindings::setOverride(QString(), action, m_defaults);
    log(QStringLiteral("Hotkey ") + logTitle(action) +
        QStringLiteral(" unset, persisted + unregistered live"));
}

void HotkeyRebinding::resetHotkey(const HotkeyId &action)
{
    const QString title = logTitle(action);
    const QString combo = std::as_const(m_configFileHotkeys)[action];
    const bool isBound =
        bind(action, combo,
             QStringLiteral("Couldn't register the default combo — kept your previous one."));
    const QString line = QStringLiteral("Hotkey ") + title + QStringLiteral(" reset to ");
    if (!isBound) {
        log(line + QStringLiteral("default FAILED to register — rolled back, not persisted"));
        return;
    }
    HotkeyBindings::clearOverride(action, m_defaults);
    log(line + QStringLiteral("config.json default (") +
        (combo.isEmpty() ? QStringLiteral("not set") : combo) + u')');
}

void HotkeyRebinding::resetAllHotkeys()
{
    m_defaults.remove(QString::fromLatin1(DefaultsKey::hotkeyBindings));
    // The message about an earlier change no longer applies.
    m_rollback.reset();
    setHotkeysConfig(m_configFileHotkeys);
    cancelHotkeyCapture();
    m_manager.stop();
    m_manager.start(m_configFileHotkeys);
    log(QStringLiteral(
        "All hotkeys reset to config.json defaults, persisted + re-registered live"));
}

void HotkeyRebinding::setHotkeysConfig(const HotkeyCombos &combos)
{
    const bool differs = combos != m_hotkeysConfig;
    m_hotkeysConfig = combos;
    Q_EMIT changed();
    if (differs)
        Q_EMIT hotkeysConfigChanged();
}

} // namespace quellora
