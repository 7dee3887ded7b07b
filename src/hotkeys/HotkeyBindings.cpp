#include "hotkeys/HotkeyBindings.h"

#include "backend/Answerer.h"
#include "base/UserDefaults.h"

#include <algorithm>

namespace quellora {
namespace {

struct ActionRow
{
    HotkeyAction action;
    const char16_t *jsonKey;
    const char16_t *settingsTitle;
    const char16_t *logName;
    QString VantiroConfig::Hotkeys::*field;
};

using Hotkeys = VantiroConfig::Hotkeys;

const std::array<ActionRow, 7> rows{{
    {HotkeyAction::Capture, u"capture", u"Capture screen and send to Claude", u"Capture",
     &Hotkeys::capture},
    {HotkeyAction::Clear, u"clear", u"Clear the response area", u"Clear", &Hotkeys::clear},
    {HotkeyAction::Toggle, u"toggle", u"Toggle overlay visibility", u"Toggle", &Hotkeys::toggle},
    {HotkeyAction::OpacityUp, u"opacity_up", u"Increase opacity", u"Opacity Up",
     &Hotkeys::opacityUp},
    {HotkeyAction::OpacityDown, u"opacity_down", u"Decrease opacity", u"Opacity Down",
     &Hotkeys::opacityDown},
    {HotkeyAction::CaptureNoSend, u"capture_no_send", u"Capture (no send)", u"Capture (No Send)",
     &Hotkeys::captureNoSend},
    {HotkeyAction::NewThread, u"new_thread", u"Start a new thread", u"New Thread",
     &Hotkeys::newThread},
}};

const ActionRow &row(HotkeyAction action)
{
    return rows.at(static_cast<std::size_t>(action));
}

QString storedBindingsKey()
{
    return QString::fromLatin1(DefaultsKey::hotkeyBindings);
}

QMap<QString, QString> storedBindings(const UserDefaults &defaults)
{
    return defaults.stringDictionary(storedBindingsKey()).value_or(QMap<QString, QString>());
}

} // namespace

QString HotkeyActions::jsonKey(HotkeyAction action)
{
    return QString::fromUtf16(row(action).jsonKey);
}

QString HotkeyActions::settingsTitle(HotkeyAction action)
{
    return QString::fromUtf16(row(action).settingsTitle);
}

QString HotkeyActions::settingsTitle(HotkeyAction action, const QString &answererName)
{
    return settingsTitle(action).replace(givenAnswerer, answererName);
}

QString HotkeyActions::logName(HotkeyAction action)
{
    return QString::fromUtf16(row(action).logName);
}

std::optional<HotkeyAction> HotkeyActions::fromJsonKey(const QString &key)
{
    const auto *found = std::find_if(rows.begin(), rows.end(), [&key](const ActionRow &entry) {
        return key == QStringView(entry.jsonKey);
    });
    if (found == rows.end())
        return std::nullopt;
    return found->action;
}

QString HotkeyActions::combo(HotkeyAction action, const Hotkeys &hotkeys)
{
    return hotkeys.*row(action).field;
}

Hotkeys HotkeyActions::updating(HotkeyAction action, const QString &combo, Hotkeys hotkeys)
{
    hotkeys.*row(action).field = combo;
    return hotkeys;
}

Hotkeys HotkeyBindings::loadEffective(const Hotkeys &fallback, const UserDefaults &defaults)
{
    const QMap<QString, QString> stored = storedBindings(defaults);
    Hotkeys effective = fallback;
    for (const HotkeyAction action : HotkeyActions::all) {
        const auto found = stored.constFind(HotkeyActions::jsonKey(action));
        if (found != stored.constEnd())
            effective = HotkeyActions::updating(action, *found, effective);
    }
    return effective;
}

void HotkeyBindings::setOverride(const QString &combo, HotkeyAction action, UserDefaults &defaults)
{
    QMap<QString, QString> stored = storedBindings(defaults);
    stored.insert(HotkeyActions::jsonKey(action), combo);
    defaults.setStringDictionary(storedBindingsKey(), stored);
}

void HotkeyBindings::clearOverride(HotkeyAction action, UserDefaults &defaults)
{
    QMap<QString, QString> stored = storedBindings(defaults);
    stored.remove(HotkeyActions::jsonKey(action));
    defaults.setStringDictionary(storedBindingsKey(), stored);
}

} // namespace quellora
