#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace quellora {

/// Turns the Markdown of a growing answer into sentences to be read out: without marks, links as
/// their texts, code blocks and displayed formulas by name. A value; usable from any thread.
class SpokenAnswer
{
public:
    /// What is said of a code block: its language and number of lines, or its lines.
    enum class Code { Named, Read };

    explicit SpokenAnswer(Code code = Code::Named) : m_code(code) {}

    /// Adds a piece of the answer.
    /// @return the sentences that have become complete
    QStringList append(const QString &piece);
    /// The answer is complete.
    /// @return what is left of it
    QStringList finish();
    /// The sentences of a whole text.
    static QStringList sentencesOf(const QString &markdown, Code code = Code::Named);

private:
    /// A block that is named instead of read.
    struct Named
    {
        /// What the line that ends it begins with; empty for an indented code block.
        QString end;
        /// E.g. "Code block, python"; the number of lines follows if they count.
        QString name;
        bool isCode = true;
        int lines = 0;
    };

    void takeLine();
    /// Takes the beginning of a line of text before the rest has arrived.
    void beginLine();
    /// Whether @p line begins a block of another kind than text, or is part of one.
    bool takeSpecialLine(const QString &line);
    bool beginNamedBlock(const QString &line);
    void endNamedBlock();
    /// Adds the line, which is text, to the block.
    void takeText();
    void takeSentences();
    void endBlock();
    /// Says @p source, a long one in parts.
    void say(const QString &source);

    Code m_code;
    QStringList m_sentences;
    /// The unfinished line, unless its text goes into the block as it comes.
    QString m_line;
    bool m_isLineBegun = false;
    bool m_isHeading = false;
    /// Source of the current paragraph, heading or item that has not been said.
    QString m_block;
    std::optional<Named> m_named;
    bool m_isInList = false;
    bool m_endsWithReturn = false;
};

} // namespace quellora
