#include "page/SpokenAnswer.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using namespace quellora;

/// What is read out of an answer.
class TestSpokenAnswer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsSentences_data()
    {
        QTest::addColumn<QString>("markdown");
        QTest::addColumn<QStringList>("sentences");
        const auto row = [](const char *name, const char *markdown, const QStringList &sentences) {
            QTest::newRow(name) << QString::fromUtf8(markdown) << sentences;
        };
        row("nothing", "", {});
        row("blanks", " \n\n \n", {});
        row("one sentence", "One.", {"One."});
        row("without an end", "no full stop", {"no full stop"});
        row("sentences", "One is here. Two? Three!", {"One is here.", "Two?", "Three!"});
        row("numbers and abbreviations", "It is 3.5, e.g. the mean. Next.",
            {"It is 3.5, e.g. the mean.", "Next."});
        row("other scripts", "これは文です。次の文。", {"これは文です。", "次の文。"});
        row("lines of a paragraph", "A sentence over\ntwo lines. And\nmore",
            {"A sentence over two lines.", "And more"});
        row("carriage returns", "One line\r\nand two\r\n\r\nThree\rfour",
            {"One line and two", "Three four"});
        row("paragraphs", "First part\n\nSecond part", {"First part", "Second part"});
        row("emphasis", "**Bold.** Then *soft* and ~~old~~ and __both__ words.",
            {"Bold.", "Then soft and old and both words."});
        row("marks that are none", "3 * 4 = 12 and snake_case_name and a_b.",
            {"3 * 4 = 12 and snake_case_name and a_b."});
        row("headings", "# The title\nText below. \n## Part two ##\n",
            {"The title", "Text below.", "Part two ##"});
        row("underlined heading", "The title here\n=====\nText", {"The title here", "Text"});
        row("rules", "Above it\n\n---\n\n***\n\nBelow it", {"Above it", "Below it"});
        row("list", "- First item\n- Second item. It is long.\n* Third one",
            {"First item", "Second item.", "It is long.", "Third one"});
        row("numbered list", "1. First item\n2. Second item\n10) Tenth item",
            {"1: First item", "2: Second item", "10: Tenth item"});
        row("nested list", "- Outer item\n    - Inner item\n\n    Text of the outer item",
            {"Outer item", "Inner item", "Text of the outer item"});
        row("task list", "- [x] Check it\n- [ ] Plot it", {"Done: Check it", "To do: Plot it"});
        row("quote", "> Quoted words. Two\n> > deep", {"Quoted words.", "Two", "deep"});
        row("link", "See the [guide. It helps](https://example.com/a_b?c=1) now. Then go.",
            {"See the guide. It helps now.", "Then go."});
        row("link at the beginning", "[The guide](https://example.com/x) helps. So it does.",
            {"The guide helps.", "So it does."});
        row("picture", "![A chart](chart.png) shows it.", {"A chart shows it."});
        row("addresses", "See https://www.example.com/a/b?c=d#e and <http://host.example/x>.",
            {"See example.com and host.example."});
        row("definitions", "A [label][1] here\n\n[1]: https://example.com/x\n", {"A label here"});
        row("footnotes", "Some text[^1] here\n\n[^1]: The small print.",
            {"Some text here", "Footnote 1: The small print."});
        row("code in the text", "Call `a.b(). C` then. Done.", {"Call a.b(). C then.", "Done."});
        row("escapes and entities", "1 \\* 2 &lt; 3 &amp; 4", {"1 * 2 < 3 & 4"});
        row("HTML", "A <b>bold</b> <br> word <!-- hidden -->", {"A bold word"});
        row("code block", "Before it:\n\n```python\nprint('a. b')\n\nx = 1\n```\nAfter it",
            {"Before it:", "Code block, python, 3 lines.", "After it"});
        row("code block of one line", "~~~\nls\n~~~", {"Code block, 1 line."});
        row("code block in a list", "1. Do this\n   ```sh\n   ls\n   ```\n2. Do that",
            {"1: Do this", "Code block, sh, 1 line.", "2: Do that"});
        row("longer fence", "````\n```\nx\n```\n````\nText", {"Code block, 3 lines.", "Text"});
        row("unfinished code block", "```c\nint a;\nint b;", {"Code block, c, 2 lines."});
        row("indented code", "Look at this:\n\n    a = 1\n    b = 2\n\nText here",
            {"Look at this:", "Code block, 2 lines.", "Text here"});
        row("formula", "The sum\n\n$$\n\\sum_i x_i\n$$\n\nis $n$ or \\(m\\). It costs $5 and $7.",
            {"The sum", "Formula.", "is n or m.", "It costs $5 and $7."});
        row("formula in one line", "$$x^2$$\n\\[ y \\]\nText", {"Formula.", "Formula.", "Text"});
        row("table", "| Name | Mean |\n|:---|---:|\n| east | **3** |\n|  | 4 |\n\nText",
            {"Name, Mean", "east, 3", "4", "Text"});
        row("only marks", "***\n\n> \n\n- \n\n**", {});
    }

    void readsSentences()
    {
        QFETCH(QString, markdown);
        QFETCH(QStringList, sentences);
        QCOMPARE(SpokenAnswer::sentencesOf(markdown), sentences);
        // The pieces in which it arrives make no difference.
        for (const int size : {1, 3, 7}) {
            SpokenAnswer answer;
            QStringList said;
            for (qsizetype i = 0; i < markdown.size(); i += size)
                said += answer.append(markdown.mid(i, size));
            QCOMPARE(said + answer.finish(), sentences);
        }
    }

    void saysASentenceAsSoonAsItIsComplete()
    {
        SpokenAnswer answer;
        QCOMPARE(answer.append("A first sentence. A sec"), QStringList{"A first sentence."});
        QCOMPARE(answer.append("ond one"), QStringList());
        QCOMPARE(answer.append(". "), QStringList());
        QCOMPARE(answer.append("And"), QStringList{"A second one."});
        QCOMPARE(answer.append("\n\n"), QStringList{"And"});
        QCOMPARE(answer.append("```js\nlet a;\n``"), QStringList());
        QCOMPARE(answer.append("`\n"), QStringList{"Code block, js, 1 line."});
        QCOMPARE(answer.finish(), QStringList());
    }

    void readsTheCodeOfMessages()
    {
        QCOMPARE(
            SpokenAnswer::sentencesOf("**Error:**\n```\nno *such*\n\nhost\n```\nThen:\n\n    ls\n",
                                      SpokenAnswer::Code::Read),
            (QStringList{"Error:", "no *such*", "host", "Then:", "ls"}));
    }

    void canBeUsedAgain()
    {
        SpokenAnswer answer;
        answer.append("```\nunfinished");
        answer.finish();
        QCOMPARE(answer.append("Text of the next answer.\n\n"),
                 QStringList{"Text of the next answer."});
    }

    void longTextIsSaidInParts()
    {
        const QString text = QStringLiteral("word ").repeated(2000).trimmed();
        SpokenAnswer answer;
        const QStringList parts = answer.append(text);
        QVERIFY(parts.size() > 5);
        const QStringList all = parts + answer.finish();
        for (const QString &part : all)
            QVERIFY(part.size() <= 1000);
        QCOMPARE(all.join(QLatin1Char(' ')), text);
    }

    void hostileTextIsBounded_data()
    {
        QTest::addColumn<QString>("text");
        for (const char *text : {"[^", "[", "`", "\\(", "<a", "![a](", "$x", "* ", "> ", "|", "-",
                                 "a. `", "_a", "1. "})
            QTest::newRow(text) << QString::fromLatin1(text);
    }

    void hostileTextIsBounded()
    {
        QFETCH(QString, text);
        // Takes minutes where the time grows with the square of the length.
        for (const QString &part : SpokenAnswer::sentencesOf(text.repeated(200'000 / text.size())))
            QVERIFY(part.size() <= 1000);
    }
};

QUELLORA_TEST(QCoreApplication, TestSpokenAnswer)
#include "test_spoken_answer.moc"
