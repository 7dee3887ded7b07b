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

} // namespace

QString HotkeyActionInfo::titleNaming(const QString &answererName) const
{
    return QString::fromLatin1(title).replace(givenAnswerer, answererName);
}

QList<VantiroConfig::HotkeyKey> hotkeyConfigKeys()
{
    QList<VantiroConfig::HotkeyKey> keys;
    for (const HotkeyActionInfo &row : hotkeyActions)
        keys << VantiroConfig::HotkeyKey{row.jsonKey, row.isRequired};
    return keys;
}

} // namespace quellora
