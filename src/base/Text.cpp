#include "base/Text.h"

#include <QLocale>
#include <QTextBoundaryFinder>

#include <algorithm>

namespace quellora {

namespace {

/// Whether a UTF-16 unit is a character of its own beside another one of this kind: most letters
/// of most answers are, and finding their borders the long way would take much too long.
bool standsAlone(QChar unit)
{
    const char16_t u = unit.unicode();
    return (u < 0x300 && u != '\r') || (u >= 0x370 && u < 0x483) || (u >= 0x3041 && u < 0x3097) ||
           (u >= 0x4E00 && u < 0xA000);
}

} // namespace

qsizetype characterCount(const QString &text)
{
    qsizetype count = 0;
    const qsizetype size = text.size();
    for (qsizetype at = 0; at < size;) {
        if (standsAlone(text[at]) && (at + 1 == size || standsAlone(text[at + 1]))) {
            ++count;
            ++at;
            continue;
        }
        // Up to the next border that is sure: the one between two that stand alone.
        qsizetype end = at + 1;
        while (end < size && !(standsAlone(text[end - 1]) && standsAlone(text[end])))
            ++end;
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text.constData() + at, end - at);
        while (finder.toNextBoundary() != -1)
            ++count;
        at = end;
    }
    return count;
}

QString decimalText(double value)
{
    QString text = QString::number(value, 'f', QLocale::FloatingPointShortest);
    const bool isWhole = std::none_of(text.begin(), text.end(), [](QChar character) {
        return character == QLatin1Char('.') || character.isLetter();
    });
    if (isWhole)
        text += QLatin1String(".0");
    return text;
}

} // namespace quellora
