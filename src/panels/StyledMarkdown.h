#pragma once

#include <QString>

namespace quellora {

/// Markdown of a service message converted to safe rich text.
struct StyledMarkdown
{
    /// Rich text that consists only of paragraphs, emphasis, code and links. All text is escaped,
    /// so the source cannot inject active content or resources.
    QString richText;
    /// The text without markup, for assistive technology.
    QString plainText;

    bool operator==(const StyledMarkdown &) const = default;

    /// Colours, and line height and paragraph spacing in logical pixels.
    struct Style
    {
        QString linkColor = QStringLiteral("#7db2ff");
        QString emphasisColor = QStringLiteral("#a2a6b3");
        QString strongColor = QStringLiteral("#ffffff");
        int lineHeight = 19;
        int paragraphGap = 8;
    };

    /// Maximum length in characters; longer text is truncated with an ellipsis.
    static constexpr qsizetype maximumLength = 20000;

    /// Converts @p markdown. Raw HTML is shown as text, images are replaced by their description,
    /// and only http and https links are kept.
    static StyledMarkdown fromMarkdown(const QString &markdown, const Style &style);
    static StyledMarkdown fromMarkdown(const QString &markdown);

    /// Whether @p address is an absolute http or https URL, which may be opened.
    static bool isSafeAddress(const QString &address);
};

} // namespace quellora
