#pragma once

#include <QString>

namespace quellora {

/// Markdown of a service message made safe to show.
struct StyledMarkdown
{
    /// Rich text built only from paragraphs, emphasis, code and links; every character of the
    /// source is escaped, so nothing in it can load, run or draw anything.
    QString richText;
    /// The same words without markup, for assistive technology.
    QString plainText;

    bool operator==(const StyledMarkdown &) const = default;

    /// Colours and, in logical pixels, line height and the space between paragraphs.
    struct Style
    {
        QString linkColor = QStringLiteral("#7db2ff");
        QString emphasisColor = QStringLiteral("#a2a6b3");
        QString strongColor = QStringLiteral("#ffffff");
        int lineHeight = 19;
        int paragraphGap = 8;
    };

    /// Longest body that is shown; the rest is cut off with an ellipsis.
    static constexpr qsizetype maximumLength = 20000;

    /// Converts @p markdown. Raw HTML stays text, images become their description, and only links
    /// to http and https addresses stay links.
    static StyledMarkdown fromMarkdown(const QString &markdown, const Style &style);
    static StyledMarkdown fromMarkdown(const QString &markdown);

    /// Whether @p address may be opened for the user: a complete http or https address.
    static bool isSafeAddress(const QString &address);
};

} // namespace quellora
