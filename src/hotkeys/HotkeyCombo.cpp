#include "hotkeys/HotkeyCombo.h"

#include "platform/Vocabulary.h"

#include <QStringList>

#include <algorithm>
#include <array>

namespace quellora {
namespace {

struct ModifierWord
{
    const char16_t *word;
    Qt::KeyboardModifier modifier;
    QString Vocabulary::*display;
};

constexpr std::array<ModifierWord, 7> modifierWords{{
    {u"cmd", Qt::MetaModifier, &Vocabulary::command},
    {u"command", Qt::MetaModifier, &Vocabulary::command},
    {u"shift", Qt::ShiftModifier, &Vocabulary::shift},
    {u"alt", Qt::AltModifier, &Vocabulary::option},
    {u"option", Qt::AltModifier, &Vocabulary::option},
    {u"ctrl", Qt::ControlModifier, &Vocabulary::control},
    {u"control", Qt::ControlModifier, &Vocabulary::control},
}};

const ModifierWord *findModifier(QStringView token)
{
    const auto *found = std::find_if(
        modifierWords.begin(), modifierWords.end(),
        [token](const ModifierWord &entry) { return token == QStringView(entry.word); });
    return found == modifierWords.end() ? nullptr : found;
}

/// Every bindable character is the value of its key, letters in upper case.
std::optional<Qt::Key> keyNamed(QStringView name)
{
    if (name.size() != 1 || !HotkeyCombo::bindableKeys.contains(name.front()))
        return std::nullopt;
    return static_cast<Qt::Key>(name.front().toUpper().unicode());
}

QStringList tokens(const QString &text)
{
    return text.toLower().split(u'+', Qt::SkipEmptyParts);
}

} // namespace

std::optional<QKeyCombination> HotkeyCombo::parse(const QString &text)
{
    Qt::KeyboardModifiers modifiers;
    QString name;
    for (const QString &token : tokens(text)) {
        if (const ModifierWord *modifier = findModifier(token))
            modifiers |= modifier->modifier;
        else
            name = token;
    }
    const std::optional<Qt::Key> key = keyNamed(name);
    if (!key)
        return std::nullopt;
    return QKeyCombination(modifiers, *key);
}

QString HotkeyCombo::displayString(const QString &text, const Vocabulary &words)
{
    QStringList keys;
    for (const QString &token : tokens(text)) {
        const ModifierWord *modifier = findModifier(token);
        keys << (modifier ? words.*modifier->display : token.toUpper());
    }
    return keys.join(u'+');
}

} // namespace quellora
