#include "platform/macos/RecorderKeys.h"

#include <algorithm>
#include <array>

namespace quellora {
namespace {

constexpr quint16 escapeKeyCode = 53;
constexpr QStringView bindablePunctuation = u"[]-=;',./\\`";

struct ModifierFlag
{
    quint64 native;
    Qt::KeyboardModifier modifier;
};
constexpr std::array<ModifierFlag, 4> modifierFlagTable{{
    {1U << 17, Qt::ShiftModifier},
    {1U << 18, Qt::ControlModifier},
    {1U << 19, Qt::AltModifier},
    {1U << 20, Qt::MetaModifier},
}};

/// Accepts letters of every alphabet: registration fails for those that no key code maps to.
QString bindableCharacter(const QString &characters)
{
    const QString lower = characters.toLower();
    if (lower.size() != 1)
        return {};
    const QChar only = lower.front();
    const bool isBindable = only.isLetter() || only.isDigit() || bindablePunctuation.contains(only);
    return isBindable ? lower : QString();
}

} // namespace

KeyDown recorderKeyDown(quint64 modifierFlags, const QString &characters, quint16 keyCode)
{
    KeyDown key;
    for (const ModifierFlag &flag : modifierFlagTable) {
        if (modifierFlags & flag.native)
            key.modifiers |= flag.modifier;
    }
    key.character = bindableCharacter(characters);
    key.isEscape = keyCode == escapeKeyCode;
    return key;
}

} // namespace quellora
