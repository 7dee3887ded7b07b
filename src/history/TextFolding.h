#pragma once

#include <QByteArray>
#include <QByteArrayMatcher>
#include <QHash>
#include <QLocale>

#include <array>
#include <optional>
#include <string_view>
#include <vector>

namespace quellora {

/// A part of a text, in bytes of its UTF-8 form.
struct TextRange
{
    qsizetype start = 0;
    qsizetype length = 0;

    bool operator==(const TextRange &) const = default;
};

/// Reduces texts so that what differs only in case, accents or the amount of white space becomes
/// equal: the form in which searches compare.
///
/// Learns each character's reduced form on first use. Not reentrant; each thread needs its own.
class TextFolding
{
public:
    /// @param locale decides on the lower case of letters
    explicit TextFolding(const QLocale &locale);

    /// Appends the reduced form of @p utf8 to @p folded, which is cleared first.
    void fold(std::string_view utf8, QByteArray &folded);
    QByteArray fold(std::string_view utf8);

    /// The part of @p utf8 that becomes @p part of its reduced form.
    TextRange sourceOf(std::string_view utf8, const TextRange &part);

private:
    /// The reduced form of a character of the basic plane.
    struct Reduced
    {
        static constexpr qint8 unknown = 0;
        static constexpr qint8 isLong = -1;

        /// Number of bytes plus one, unknown or isLong.
        qint8 state = unknown;
        std::array<char, 3> bytes = {};
    };

    std::string_view reduce(std::string_view character);
    QByteArray reducedForm(char16_t character) const;

    QLocale m_locale;
    std::vector<Reduced> m_reduced;
    QHash<char16_t, QByteArray> m_long;
    /// The reduced forms of the ASCII characters that have one byte; 0 for the others.
    std::array<char, 128> m_ascii = {};
};

/// A search text in reduced form. Not reentrant; each thread needs its own.
class SearchText
{
public:
    SearchText(const QString &text, const QLocale &locale);

    /// Whether there is nothing to search for.
    bool isEmpty() const { return m_matcher.pattern().isEmpty(); }
    /// The first occurrence in a text.
    std::optional<TextRange> findIn(std::string_view utf8);
    /// Whether it occurs in a text in reduced form.
    bool isInReduced(const QByteArray &reduced) const { return m_matcher.indexIn(reduced) >= 0; }
    /// The search text in reduced form.
    QByteArray reduced() const { return m_matcher.pattern(); }
    /// The reduced form of a text.
    QByteArray reduced(const QString &text);
    /// Whether both find the same.
    bool operator==(const SearchText &other) const
    {
        return m_matcher.pattern() == other.m_matcher.pattern();
    }

private:
    TextFolding m_folding;
    QByteArrayMatcher m_matcher;
    QByteArray m_folded;
};

} // namespace quellora
