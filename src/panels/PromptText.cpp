#include "panels/PromptText.h"

namespace quellora {

bool PromptText::fitsField(const QString &text)
{
    return text.size() <= maximumFieldLength && text.count(u'\n') < maximumFieldLines;
}

QString PromptText::fullText() const
{
    if (m_pasted.isEmpty())
        return m_typed;
    return m_typed.isEmpty() ? m_pasted : m_typed + u'\n' + m_pasted;
}

void PromptText::setFullText(const QString &text)
{
    const bool fits = fitsField(text);
    m_typed = fits ? text : QString();
    m_pasted = fits ? QString() : text;
}

bool PromptText::pasteLongText(const QString &text, qsizetype start, qsizetype end)
{
    QString plain = text;
    plain.replace(QStringLiteral("\r\n"), QStringLiteral("\n")).replace(u'\r', u'\n');
    const QString before = m_typed.left(start);
    const QString after = m_typed.mid(end);
    if (fitsField(before + plain + after))
        return false;
    if (after.isEmpty() && !m_pasted.isEmpty())
        m_pasted += u'\n' + plain;
    else
        m_pasted = m_pasted.isEmpty() ? plain + after : plain + after + u'\n' + m_pasted;
    m_typed = before;
    return true;
}

} // namespace quellora
