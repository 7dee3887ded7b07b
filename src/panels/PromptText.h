#pragma once

#include <QString>

namespace quellora {

/// The prompt in two parts: the text typed in the field, followed by pasted text that is too long
/// for the field. Laying out a megabyte of text blocks the main thread for seconds, again on every
/// key press, so such text is never put into the field.
class PromptText
{
public:
    /// Limits for text that a field lays out within a few milliseconds, regardless of line breaks.
    static constexpr qsizetype maximumFieldLength = 16000;
    static constexpr qsizetype maximumFieldLines = 800;

    /// Whether @p text is within the limits of the field.
    static bool fitsField(const QString &text);

    const QString &typed() const { return m_typed; }
    /// The long pasted text; empty if there is none.
    const QString &pasted() const { return m_pasted; }
    /// The whole prompt: typed and pasted text, separated by a line break.
    QString fullText() const;

    void setTyped(const QString &text) { m_typed = text; }
    void removePasted() { m_pasted.clear(); }
    /// Replaces the prompt; the text becomes the typed part if it fits the field, else the pasted
    /// part.
    void setFullText(const QString &text);
    /// Pastes @p text over the typed characters from @p start to @p end if the result does not fit
    /// the field. Text typed after @p end stays after the pasted text.
    /// @return false, without any change, if it fits the field
    bool pasteLongText(const QString &text, qsizetype start, qsizetype end);

private:
    QString m_typed;
    QString m_pasted;
};

} // namespace quellora
