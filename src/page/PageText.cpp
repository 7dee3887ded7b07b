#include "page/PageAddresses.h"
#include "page/ResponsePage.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>

#include <algorithm>

namespace quellora::responsepage {

namespace {

QString codeStyleAddress(AppTheme theme)
{
    return QString::fromLatin1(theme == AppTheme::Dark ? pageaddress::darkCodeStyle
                                                       : pageaddress::lightCodeStyle);
}

} // namespace

QString escapedForJson(const QString &text)
{
    // Not the library's writer: it would lose half of a character that two pieces share.
    QString escaped;
    escaped.reserve(text.size() + text.size() / 16);
    for (const QChar c : text) {
        if (c == QLatin1Char('"') || c == QLatin1Char('\\')) {
            escaped += QLatin1Char('\\');
            escaped += c;
        } else if (c == QLatin1Char('\n')) {
            escaped += QLatin1StringView("\\n");
        } else if (c < QLatin1Char(' ') || c == QLatin1Char('<') || c == QChar::LineSeparator ||
                   c == QChar::ParagraphSeparator) {
            escaped += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        } else {
            escaped += c;
        }
    }
    return escaped;
}

QString escapedForHtml(const QString &text)
{
    QString escaped = text;
    escaped.replace(QLatin1Char('&'), QLatin1StringView("&amp;"));
    escaped.replace(QLatin1Char('<'), QLatin1StringView("&lt;"));
    escaped.replace(QLatin1Char('>'), QLatin1StringView("&gt;"));
    escaped.replace(QLatin1Char('"'), QLatin1StringView("&quot;"));
    escaped.replace(QLatin1Char('\''), QLatin1StringView("&#39;"));
    return escaped;
}

QString shortestDecimal(double value)
{
    return QString::number(value, 'f', QLocale::FloatingPointShortest);
}

QString defaultDecimal(double value)
{
    const QString text = shortestDecimal(value);
    return text.contains(QLatin1Char('.')) ? text : text + QStringLiteral(".0");
}

double pillAlpha(double windowAlpha)
{
    return (1 - std::clamp(windowAlpha, 0.0, 1.0)) * 0.72;
}

double codeAlpha(double windowAlpha)
{
    return std::max(pillAlpha(windowAlpha), 0.15);
}

QString threadTimestamp(const QDateTime &time)
{
    static const QLocale english(QLocale::English, QLocale::UnitedStates);
    return english.toString(time.toLocalTime(), QStringLiteral("MMM d, h:mm AP"));
}

QString themeScript(const PageAppearance &appearance)
{
    const QString color = appearance.textColorHex
                              ? QStringLiteral("document.documentElement.style.setProperty("
                                               "'--text', '%1');")
                                    .arg(*appearance.textColorHex)
                              : QStringLiteral("document.documentElement.style.removeProperty("
                                               "'--text');");
    return color +
           QStringLiteral("document.body.className = '%1';"
                          "(function(){var link=document.getElementById('hljs-theme');"
                          "if(link){link.href='%2';}})();")
               .arg(appearance.theme == AppTheme::Light ? QStringLiteral("light") : QString(),
                    codeStyleAddress(appearance.theme));
}

QString hintScript(const PageAppearance &appearance)
{
    // As a JSON text they are literals of the script whatever they hold.
    const QJsonArray texts{appearance.captureHotkey, hintEnd(appearance.answererName),
                           thinkingText(appearance.answererName)};
    return QStringLiteral("(function(texts){var key=document.querySelector('#ph kbd');"
                          "if(key){key.textContent=texts[0];key.nextSibling.textContent=texts[1];"
                          "document.getElementById('ld').textContent=texts[2];}})(") +
           QString::fromUtf8(QJsonDocument(texts).toJson(QJsonDocument::Compact)) +
           QStringLiteral(");");
}

QString pillAlphaScript(double windowAlpha)
{
    return QStringLiteral("document.documentElement.style.setProperty('--pill-alpha', '%1');"
                          "document.documentElement.style.setProperty('--code-alpha', '%2');")
        .arg(shortestDecimal(pillAlpha(windowAlpha)), shortestDecimal(codeAlpha(windowAlpha)));
}

QString hideLoadingScript()
{
    return QStringLiteral("document.getElementById('loading').style.display='none';");
}

QString streamRenderScript(const QString &buffer, bool highlightCode)
{
    return streamRenderScriptOfEscaped(escapedForJson(buffer), highlightCode);
}

QString streamRenderScriptOfEscaped(const QString &escaped, bool highlightCode)
{
    QString script = QStringLiteral("document.getElementById('") +
                     QLatin1StringView(streamingElementId) +
                     QStringLiteral("').innerHTML = marked.parse(\"") + escaped +
                     QStringLiteral("\");\ndocument.body.scrollTop = document.body.scrollHeight;");
    if (highlightCode) {
        script += QStringLiteral("\ndocument.querySelectorAll('pre code')"
                                 ".forEach(el => hljs.highlightElement(el));");
    }
    return script;
}

QString scrollByScript(double pixels)
{
    return QStringLiteral("document.body.scrollBy(0, %1);").arg(defaultDecimal(pixels));
}

QString scrollToFractionScript(double fraction)
{
    return QStringLiteral("(function(){var extent=Math.max(1, document.body.scrollHeight-"
                          "document.body.clientHeight); document.body.scrollTop = extent * %1;"
                          "})();")
        .arg(defaultDecimal(fraction));
}

} // namespace quellora::responsepage
