#include "hotkeys/HotkeyBindings.h"

#include "base/UserDefaults.h"

namespace quellora {
namespace {

QString storedBindingsKey()
{
    return QString::fromLatin1(DefaultsKey::hotkeyBindings);
}

QMap<QString, QString> storedBindings(const UserDefaults &defaults)
{
    return defaults.stringDictionary(storedBindingsKey()).value_or(QMap<QString, QString>());
}

} // namespace

HotkeyCombos::HotkeyCombos()
{
    for (const HotkeyActionInfo &row : hotkeyActions)
        (*this)[row.action] = QString::fromLatin1(row.defaultCombo);
}

HotkeyCombos::HotkeyCombos(const VantiroConfig::Hotkeys &configured) : HotkeyCombos()
{
    replace(configured);
}

const QString &HotkeyCombos::operator[](HotkeyAction action) const
{
    return m_combos.at(static_cast<std::size_t>(action));
}

QString &HotkeyCombos::operator[](HotkeyAction action)
{
    return m_combos.at(static_cast<std::size_t>(action));
}

void HotkeyCombos::replace(const QMap<QString, QString> &combos)
{
    for (const HotkeyActionInfo &row : hotkeyActions)
        (*this)[row.action] = combos.value(row.jsonKey, (*this)[row.action]);
}

HotkeyCombos HotkeyBindings::loadEffective(const HotkeyCombos &fallback,
                                           const UserDefaults &defaults)
{
    HotkeyCombos effective = fallback;
    effective.replace(storedBindings(defaults));
    return effective;
}

void HotkeyBindings::setOverride(const QString &combo, HotkeyAction action, UserDefaults &defaults)
{
    QMap<QString, QString> stored = storedBindings(defaults);
    stored.insert(hotkeyAction(action).jsonKey, combo);
    defaults.setStringDictionary(storedBindingsKey(), stored);
}

void HotkeyBindings::clearOverride(HotkeyAction action, UserDefaults &defaults)
{
    QMap<QString, QString> stored = storedBindings(defaults);
    stored.remove(hotkeyAction(action).jsonKey);
    defaults.setStringDictionary(storedBindingsKey(), stored);
}

} // namespace quellora
