#include "QtFuzz.h"
#include "hotkeys/HotkeyCombo.h"
#include "platform/Vocabulary.h"

using namespace quellora;
using namespace quellora::fuzz;

/// A combination reads the same in its displayed form, in capitals and with empty tokens.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    prepareQt();
    const QString text = QString::fromUtf8(bytes(view(data, size)));
    const auto combo = HotkeyCombo::parse(text);
    Vocabulary words;
    words.command = QStringLiteral("Cmd");
    words.option = QStringLiteral("Option");
    words.control = QStringLiteral("Ctrl");
    words.shift = QStringLiteral("Shift");
    const QString shown = HotkeyCombo::displayString(text, words);
    require(HotkeyCombo::parse(QLatin1Char('+') + text + QStringLiteral("++")) == combo);
    if (combo)
        require(HotkeyCombo::parse(shown) == combo);
    return 0;
}
