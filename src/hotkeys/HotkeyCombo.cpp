#include "hotkeys/HotkeyCombo.h"

#include "platform/Platform.h"

#include <algorithm>
#include <array>

namespace quellora {
namespace {

struct KeyEntry
{
    char16_t name;
    quint32 code;
};

// Virtual key codes of the standard ANSI layout; 10 and 36 are no bindable keys.
constexpr std::array<KeyEntry, 47> keyTable{{
    {u'a', 0},  {u's', 1},  {u'd', 2},   {u'f', 3},  {u'h', 4},  {u'g', 5},   {u'z', 6},
    {u'x', 7},  {u'c', 8},  {u'v', 9},   {u'b', 11}, {u'q', 12}, {u'w', 13},  {u'e', 14},
    {u'r', 15}, {u'y', 16}, {u't', 17},  {u'1', 18}, {u'2', 19}, {u'3', 20},  {u'4', 21},
    {u'6', 22}, {u'5', 23}, {u'=', 24},  {u'9', 25}, {u'7', 26}, {u'-', 27},  {u'8', 28},
    {u'0', 29}, {u']', 30}, {u'o', 31},  {u'u', 32}, {u'[', 33}, {u'i', 34},  {u'p', 35},
    {u'l', 37}, {u'j', 38}, {u'\'', 39}, {u'k', 40}, {u';', 41}, {u'\\', 42}, {u',', 43},
    {u'/', 44}, {u'n', 45}, {u'm', 46},  {u'.', 47}, {u'`', 50},
}};

struct ModifierWord
{
    const char16_t *word;
    quint32 flag;
    QString Vocabulary::*display;
};

constexpr std::array<ModifierWord, 7> modifierWords{{
    {u"cmd", GlobalHotkeys::Command, &Vocabulary::command},
    {u"command", GlobalHotkeys::Command, &Vocabulary::command},
    {u"shift", GlobalHotkeys::Shift, &Vocabulary::shift},
    {u"alt", GlobalHotkeys::Option, &Vocabulary::option},
    {u"option", GlobalHotkeys::Option, &Vocabulary::option},
    {u"ctrl", GlobalHotkeys::Control, &Vocabulary::control},
    {u"control", GlobalHotkeys::Control, &Vocabulary::control},
}};

const ModifierWord *findModifier(QStringView token)
{
    const auto *found = std::find_if(
        modifierWords.begin(), modifierWords.end(),
        [token](const ModifierWord &entry) { return token == QStringView(entry.word); });
    return found == modifierWords.end() ? nullptr : found;
}

QStringList tokens(const QString &text)
{
    return text.toLower().split(u'+', Qt::SkipEmptyParts);
}

} // namespace

std::optional<quint32> HotkeyCombo::keyCodeFor(const QString &key)
{
    if (key.size() != 1)
        return std::nullopt;
    const auto *found =
        std::find_if(keyTable.begin(), keyTable.end(),
                     [&key](const KeyEntry &entry) { return key.front() == QChar(entry.name); });
    if (found == keyTable.end())
        return std::nullopt;
    return found->code;
}

QStringList HotkeyCombo::keyNames()
{
    QStringList names;
    names.reserve(static_cast<qsizetype>(keyTable.size()));
    for (const KeyEntry &entry : keyTable)
        names << QString(QChar(entry.name));
    return names;
}

std::optional<HotkeyCombo> HotkeyCombo::parse(const QString &text)
{
    HotkeyCombo combo;
    for (const QString &token : tokens(text)) {
        if (const ModifierWord *modifier = findModifier(token))
            combo.modifiers |= modifier->flag;
        else
            combo.key = token;
    }
    const std::optional<quint32> code = keyCodeFor(combo.key);
    if (!code)
        return std::nullopt;
    combo.keyCode = *code;
    return combo;
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
