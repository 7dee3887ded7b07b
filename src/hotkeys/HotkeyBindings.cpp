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

const QString &HotkeyCombos::operator[](const HotkeyId &id) const
{
    static const QString none;
    if (!id.isPrompt())
        return m_combos.at(static_cast<std::size_t>(id.action()));
    const auto found = m_promptCombos.constFind(id.promptId());
    return found == m_promptCombos.constEnd() ? none : *found;
}

QString &HotkeyCombos::operator[](const HotkeyId &id)
{
    return id.isPrompt() ? m_promptCombos[id.promptId()]
                         : m_combos.at(static_cast<std::size_t>(id.action()));
}

void HotkeyCombos::replace(const QMap<QString, QString> &combos)
{
    for (auto it = combos.begin(); it != combos.end(); ++it) {
        if (const auto id = HotkeyId::fromJsonKey(it.key()))
            (*this)[*id] = it.value();
    }
}

HotkeyCombos HotkeyBindings::loadEffective(const HotkeyCombos &fallback,
                                           const UserDefaults &defaults)
{
    HotkeyCombos effective = fallback;
    effective.replace(storedBindings(defaults));
    return effective;
}

void HotkeyBindings::setOverride(const QString &combo, const HotkeyId &id, UserDefaults &defaults)
{
    QMap<QString, QString> stored = storedBindings(defaults);
    stored.insert(id.jsonKey(), combo);
    defaults.setStringDictionary(storedBindingsKey(), stored);
}

void HotkeyBindings::clearOverride(const HotkeyId &id, UserDefaults &defaults)
{
    QMap<QString, QString> stored = storedBindings(defaults);
    stored.remove(id.jsonKey());
    defaults.setStringDictionary(storedBindingsKey(), stored);
}

} // namespace quellora
