#pragma once

#include <QString>

namespace quellora {

/// The text of the prompt box in two parts: what is typed in its field, and below it what was
/// pasted but is too long for a field. Laying out a megabyte holds the main thread for seconds, and
/// again with every key; so the field never gets it, and the prompt still holds all of it.
class PromptText
{
public:
    /// What a field lays out within a few milliseconds, however its lines break.
    static constexpr qsizetype maximumFieldLength = 16000;
    static constexpr qsizetype maximumFieldLines = 800;

    /// Whether @p text is short enough for the field.
    static bool fitsField(const QString &text);

    const QString &typed() const { return m_typed; }
    /// Empty when nothing is too long.
    const QString &pasted() const { return m_pasted; }
    /// The prompt: what was typed, a line end, what was pasted.
    QString whole() const;

    void setTyped(const QString &text) { m_typed = text; }
    void removePasted() { m_pasted.clear(); }
    /// Takes over a prompt from elsewhere: all of it into the field, or all of it beside it.
    void setWhole(const QString &text);
    /// Takes @p text that is pasted over the typed characters from @p start to @p end, when it does
    /// not fit the field. What was typed behind that place stays behind it.
    /// @return whether it was taken; otherwise nothing has changed
    bool takePaste(const QString &text, qsizetype start, qsizetype end);

private:
    QString m_typed;
    QString m_pasted;
};

} // namespace quellora
