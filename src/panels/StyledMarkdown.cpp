#include "panels/StyledMarkdown.h"

#include <QStringList>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextList>
#include <QUrl>

namespace quellora {

namespace {

/// Plain text of a fragment; for an image its description in brackets.
QString fragmentText(const QTextFragment &fragment)
{
    const QTextCharFormat format = fragment.charFormat();
    if (format.isImageFormat()) {
        const QString description = format.property(QTextFormat::ImageAltText).toString();
        return description.isEmpty() ? QString()
                                     : QLatin1Char('[') + description + QLatin1Char(']');
    }
    QString text = fragment.text();
    text.remove(QChar::ObjectReplacementCharacter);
    return text;
}

QString fragmentHtml(const QTextFragment &fragment, const StyledMarkdown::Style &style)
{
    const QTextCharFormat format = fragment.charFormat();
    QString html = fragmentText(fragment).toHtmlEscaped();
    html.replace(QChar::LineSeparator, QStringLiteral("<br/>"));
    html.replace(QLatin1Char('\n'), QStringLiteral("<br/>"));
    if (html.isEmpty())
        return html;
    if (format.fontFixedPitch())
        html = QStringLiteral("<code>%1</code>").arg(html);
    if (format.fontWeight() > QFont::Normal)
        html = QStringLiteral("<span style=\"font-weight:600;color:%1\">%2</span>")
                   .arg(style.strongColor, html);
    if (format.fontItalic())
        html = QStringLiteral("<i style=\"color:%1\">%2</i>").arg(style.emphasisColor, html);
    if (format.fontStrikeOut())
        html = QStringLiteral("<s>%1</s>").arg(html);
    if (StyledMarkdown::isSafeAddress(format.anchorHref())) {
        const QString address =
            QString::fromLatin1(QUrl(format.anchorHref()).toEncoded()).toHtmlEscaped();
        html = QStringLiteral("<a href=\"%1\" style=\"color:%2\">%3</a>")
                   .arg(address, style.linkColor, html);
    }
    return html;
}

/// "• " or "2. " for a list item, else empty.
QString listMarker(const QTextBlock &block)
{
    const QTextList *list = block.textList();
    if (!list)
        return {};
    if (list->format().style() == QTextListFormat::ListDecimal)
        return list->itemText(block) + QLatin1Char(' ');
    return QStringLiteral("\u2022 ");
}

} // namespace

bool StyledMarkdown::isSafeAddress(const QString &address)
{
    const QUrl url(address, QUrl::StrictMode);
    return url.isValid() && !url.host().isEmpty() &&
           (url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http"));
}

StyledMarkdown StyledMarkdown::fromMarkdown(const QString &markdown)
{
    return fromMarkdown(markdown, Style());
}

StyledMarkdown StyledMarkdown::fromMarkdown(const QString &markdown, const Style &style)
{
    QString source = markdown;
    // The document uses this character as a placeholder for images.
    source.remove(QChar::ObjectReplacementCharacter);
    if (source.size() > maximumLength)
        source = source.left(maximumLength) + QStringLiteral("\u2026");

    // The document is never laid out, so it does not load any resources.
    QTextDocument document;
    document.setUndoRedoEnabled(false);
    QTextDocument::MarkdownFeatures features = QTextDocument::MarkdownDialectGitHub;
    features.setFlag(QTextDocument::MarkdownNoHTML);
    document.setMarkdown(source, features);

    QStringList paragraphs;
    QStringList lines;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        QString html;
        QString text;
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            html += fragmentHtml(it.fragment(), style);
            text += fragmentText(it.fragment());
        }
        text.replace(QChar::LineSeparator, QLatin1Char('\n'));
        if (text.trimmed().isEmpty())
            continue;
        const QString marker = listMarker(block);
        if (block.blockFormat().headingLevel() > 0)
            html = QStringLiteral("<span style=\"font-weight:600;color:%1\">%2</span>")
                       .arg(style.strongColor, html);
        paragraphs.append(QStringLiteral("<p style=\"margin:%1px 0 0 0;-qt-line-height-type:fixed;"
                                         "line-height:%2px\">%3%4</p>")
                              .arg(paragraphs.isEmpty() ? 0 : style.paragraphGap)
                              .arg(style.lineHeight)
                              .arg(marker, html));
        lines.append(marker + text);
    }
    return {paragraphs.join(QString()), lines.join(QLatin1Char('\n'))};
}

} // namespace quellora
