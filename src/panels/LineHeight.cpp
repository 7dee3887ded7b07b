#include "panels/LineHeight.h"

#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

namespace quellora {

void LineHeight::setDocument(QQuickTextDocument *document)
{
    if (document == m_document)
        return;
    if (m_document)
        disconnect(m_document->textDocument(), nullptr, this, nullptr);
    m_document = document;
    if (m_document)
        connect(m_document->textDocument(), &QTextDocument::contentsChanged, this,
                &LineHeight::apply);
    Q_EMIT documentChanged();
    apply();
}

void LineHeight::setPixels(double pixels)
{
    if (pixels == m_pixels)
        return;
    m_pixels = pixels;
    Q_EMIT pixelsChanged();
    apply();
}

void LineHeight::apply()
{
    if (!m_document || m_isApplying)
        return;
    QTextDocument *text = m_document->textDocument();
    // New paragraphs inherit the format of the preceding one, so the format is missing only after
    // the whole text has been replaced.
    if (text->begin().blockFormat().lineHeight() == m_pixels &&
        text->lastBlock().blockFormat().lineHeight() == m_pixels)
        return;
    m_isApplying = true;
    QTextBlockFormat format;
    format.setLineHeight(m_pixels, QTextBlockFormat::FixedHeight);
    QTextCursor cursor(text);
    // Join the edit that caused this call, so that undo reverts both in one step.
    cursor.joinPreviousEditBlock();
    cursor.select(QTextCursor::Document);
    cursor.mergeBlockFormat(format);
    cursor.endEditBlock();
    m_isApplying = false;
}

} // namespace quellora
