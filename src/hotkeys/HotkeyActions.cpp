#include "hotkeys/HotkeyActions.h"

#include "backend/Answerer.h"

namespace quellora {
namespace {

constexpr bool isIndexedByAction()
{
    for (std::size_t i = 0; i < hotkeyActions.size(); ++i) {
        if (hotkeyActions.at(i).action != static_cast<HotkeyAction>(i))
            return false;
    }
    return true;
}
static_assert(isIndexedByAction());

constexpr QLatin1StringView promptKeyStart("prompt.");

} // namespace

QString HotkeyActionInfo::titleNaming(const QString &answererName) const
{
    return QString::fromLatin1(title).replace(givenAnswerer, answererName);
}

HotkeyId HotkeyId::prompt(const QString &promptId)
{
    HotkeyId id(HotkeyAction::Capture);
    id.m_promptId = promptId;
    return id;
}

std::optional<HotkeyId> HotkeyId::fromJsonKey(const QString &key)
{
    if (key.startsWith(promptKeyStart) && key.size() > promptKeyStart.size())
        return prompt(key.mid(promptKeyStart.size()));
    for (const HotkeyActionInfo &row : hotkeyActions) {
        if (key == QLatin1StringView(row.jsonKey))
            return row.action;
    }
    return std::nullopt;
}

QString HotkeyId::jsonKey() const
{
    return isPrompt() ? promptKeyStart + m_promptId
                      : QString::fromLatin1(hotkeyAction(m_action).jsonKey);
}

QString HotkeyId::command() const
{
    return isPrompt() ? QLatin1StringView("prompt-") + m_promptId
                      : QString::fromLatin1(hotkeyAction(m_action).command);
}

QList<VantiroConfig::HotkeyKey> hotkeyConfigKeys()
{
    QList<VantiroConfig::HotkeyKey> keys;
    for (const HotkeyActionInfo &row : hotkeyActions)
        keys << VantiroConfig::HotkeyKey{row.jsonKey, row.isRequired};
    return keys;
}

} // namespace quellora
