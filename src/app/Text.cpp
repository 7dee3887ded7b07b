#include "app/Text.h"

#include <QLocale>
#include <QTextBoundaryFinder>

#include <algorithm>

namespace quellora {

qsizetype characterCount(const QString &text)
{
    // Plain ASCII without CR LF pairs needs no segmentation; most prompts are just that.
    const bool plain = std::all_of(text.begin(), text.end(), [](QChar character) {
        return character.unicode() < 0x80 && character != QLatin1Char('\r');
    });
    if (plain)
        return text.size();
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

QString decimalText(double value)
{
    QString text = QString::number(value, 'g', QLocale::FloatingPointShortest);
    const bool isWhole = std::none_of(text.begin(), text.end(), [](QChar character) {
        return character == QLatin1Char('.') || character.isLetter();
    });
    if (isWhole)
        text += QLatin1String(".0");
    return text;
}

} // namespace quellora
