#include "history/TextFolding.h"

#include <QString>

#include <algorithm>

namespace quellora {

namespace {

constexpr size_t basicPlane = 0x10000;

bool isAscii(char c)
{
    return static_cast<unsigned char>(c) < 0x80;
}

/// Number of bytes of the character that begins with @p lead; 1 for a byte that begins none.
size_t lengthOf(char lead)
{
    const auto byte = static_cast<unsigned char>(lead);
    return byte < 0xc0 ? 1 : byte < 0xe0 ? 2 : byte < 0xf0 ? 3 : 4;
}

/// The character at the beginning of @p rest, which is not empty; may be cut off.
std::string_view firstCharacter(std::string_view rest)
{
    return rest.substr(0, lengthOf(rest.front()));
}

/// Decodes a character of two or three bytes.
char16_t decoded(std::string_view character)
{
    const auto bits = [character](size_t at, unsigned mask) {
        return static_cast<unsigned char>(character[at]) & mask;
    };
    return character.size() == 2
               ? static_cast<char16_t>(bits(0, 0x1f) << 6 | bits(1, 0x3f))
               : static_cast<char16_t>(bits(0, 0x0f) << 12 | bits(1, 0x3f) << 6 | bits(2, 0x3f));
}

} // namespace

TextFolding::TextFolding(const QLocale &locale) : m_locale(locale), m_reduced(basicPlane)
{
    for (size_t i = 0; i < m_ascii.size(); ++i) {
        const QByteArray form = reducedForm(static_cast<char16_t>(i));
        m_ascii[i] = form.size() == 1 ? form.front() : '\0';
    }
}

QByteArray TextFolding::reducedForm(char16_t character) const
{
    const QChar given(character);
    if (given.isSpace())
        return QByteArrayLiteral(" ");
    // Syllables of Hangul would fall apart into letters.
    const bool isSyllable = given >= QChar(0xac00) && given <= QChar(0xd7a3);
    if (isSyllable || given.isSurrogate())
        return QString(given).toUtf8();
    const QString apart = m_locale.toLower(QString(given))
                              .toCaseFolded()
                              .normalized(QString::NormalizationForm_KD)
                              .toCaseFolded();
    QString reduced;
    for (const QChar part : apart) {
        if (!part.isMark())
            reduced += part.isSpace() ? QChar(u' ') : part;
    }
    return reduced.replace(QChar(u'ß'), QLatin1String("ss")).toUtf8();
}

/// The reduced form of a character that is not plain ASCII; empty for one that is left out.
std::string_view TextFolding::reduce(std::string_view character)
{
    if (character.size() > 3 || (character.size() == 1 && !isAscii(character.front())))
        return character;
    const char16_t code =
        character.size() == 1 ? static_cast<char16_t>(character.front()) : decoded(character);
    Reduced &known = m_reduced[code];
    if (known.state == Reduced::unknown) {
        const QByteArray form = reducedForm(code);
        if (form.size() <= qsizetype(known.bytes.size())) {
            std::copy(form.begin(), form.end(), known.bytes.begin());
            known.state = static_cast<qint8>(form.size() + 1);
        } else {
            m_long.insert(code, form);
            known.state = Reduced::isLong;
        }
    }
    if (known.state == Reduced::isLong) {
        const QByteArray &form = *m_long.constFind(code);
        return {form.constData(), static_cast<size_t>(form.size())};
    }
    return {known.bytes.data(), static_cast<size_t>(known.state - 1)};
}

void TextFolding::fold(std::string_view utf8, QByteArray &folded)
{
    folded.resize(qsizetype(utf8.size()));
    char *out = folded.data();
    qsizetype size = 0;
    char last = '\0';
    for (size_t at = 0; at < utf8.size();) {
        const char c = utf8[at];
        if (const char plain = isAscii(c) ? m_ascii[static_cast<unsigned char>(c)] : '\0') {
            // Overwritten by the next one if it is the second of two spaces.
            out[size] = plain;
            size += plain == ' ' && last == ' ' ? 0 : 1;
            last = plain;
            ++at;
            continue;
        }
        const std::string_view character = firstCharacter(utf8.substr(at));
        at += character.size();
        const std::string_view form = reduce(character);
        // Room for this form and for the rest as it is.
        const auto needed = size + qsizetype(form.size() + utf8.size() - at);
        if (needed > folded.size()) {
            folded.resize(needed + needed / 8);
            out = folded.data();
        }
        for (const char part : form) {
            out[size] = part;
            size += part == ' ' && last == ' ' ? 0 : 1;
            last = part;
        }
    }
    folded.resize(size);
}

QByteArray TextFolding::fold(std::string_view utf8)
{
    QByteArray folded;
    fold(utf8, folded);
    return folded;
}

TextRange TextFolding::sourceOf(std::string_view utf8, const TextRange &part)
{
    const qsizetype partEnd = part.start + part.length;
    qsizetype size = 0;
    char last = '\0';
    qsizetype start = -1;
    size_t at = 0;
    while (at < utf8.size()) {
        const std::string_view character = firstCharacter(utf8.substr(at));
        const qsizetype before = size;
        for (const char form : reduce(character)) {
            size += form == ' ' && last == ' ' ? 0 : 1;
            last = form;
        }
        // Accents and further spaces belong to what they follow.
        if (size > before && before >= partEnd)
            break;
        if (start < 0 && size > part.start)
            start = qsizetype(at);
        at += character.size();
    }
    return {start, qsizetype(at) - start};
}

SearchText::SearchText(const QString &text, const QLocale &locale)
    : m_folding(locale), m_matcher(m_folding.fold(text.toUtf8().toStdString()).trimmed())
{}

std::optional<TextRange> SearchText::findIn(std::string_view utf8)
{
    m_folding.fold(utf8, m_folded);
    const qsizetype at = m_matcher.indexIn(m_folded);
    if (at < 0)
        return std::nullopt;
    return m_folding.sourceOf(utf8, {at, m_matcher.pattern().size()});
}

QByteArray SearchText::reduced(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    return m_folding.fold({utf8.constData(), static_cast<size_t>(utf8.size())});
}

} // namespace quellora
