#include "base/Text.h"

#include <QLocale>
#include <QRegularExpression>
#include <QTextBoundaryFinder>

#include <algorithm>

namespace quellora {

namespace {

/// Whether there is always a grapheme boundary between two such UTF-16 units. Fast path: covers
/// most text without the slow QTextBoundaryFinder.
bool isSimple(QChar unit)
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
        if (isSimple(text[at]) && (at + 1 == size || isSimple(text[at + 1]))) {
            ++count;
            ++at;
            continue;
        }
        // Advance to the next known boundary, which is between two simple units.
        qsizetype end = at + 1;
        while (end < size && !(isSimple(text[end - 1]) && isSimple(text[end])))
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

bool isHexColor(const QString &text)
{
    static const QRegularExpression hexColor(
        QStringLiteral("\\A#(?:[0-9a-fA-F]{3,4}|[0-9a-fA-F]{6}|[0-9a-fA-F]{8})\\z"));
    return hexColor.match(text).hasMatch();
}

} // namespace quellora
