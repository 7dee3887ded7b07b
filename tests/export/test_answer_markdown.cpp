#include "export/AnswerMarkdown.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using namespace quellora;

/// Answers as parts of one Markdown document.
class TestAnswerMarkdown : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void picturesBecomeLinks_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("inert");
        const auto row = [](const char *tag, const char *answer, const char *inert) {
            QTest::newRow(tag) << QString::fromUtf8(answer) << QString::fromUtf8(inert);
        };
        const auto same = [&](const char *tag, const char *answer) { row(tag, answer, answer); };
        row("inline", "See ![a chart](https://h/c.png \"t\").",
            "See [a chart](https://h/c.png \"t\").");
        row("without a description", "![](https://h/c.png)", "[Picture](https://h/c.png)");
        row("brackets in the description", "![a [b] c](u)", "[a [b] c](u)");
        row("over two lines", "![a\nb](u)", "[a\nb](u)");
        row("after an escaped backslash", "\\\\![a](u)", "\\\\[a](u)");
        row("in a link", "[![build](https://h/b.svg)](https://h)", "[build](https://h)");
        row("in a description", "![a ![b](u) c](v)", "[a [b](u) c](v)");
        row("deep brackets", "![a [b [c [d]]]](u)", "!\\[a [b [c [d]]]](u)");
        row("code in the description", "![`x`](u)", "!\\[`x`](u)");
        row("reference", "![a][r] ![r] ![R][]\n\n[r]: https://h/p.png",
            "[a][r] [r] [R][]\n\n[r]: https://h/p.png");
        row("label of a footnote", "Oh![^1]\n\n[^1]: https://h", "Oh\\![^1]\n\n[^1]: https://h");
        same("escaped", "\\![a](u)");
        same("no address", "vec![1, 2] and !x");
        same("link", "[a](u) <https://h/p.png>");
        same("code span", "`![a](u) <img src=x>` and ``a ` ![a](u)``");
        same("fence", "```md\n![a](u)\n<img src=\"x\">\n```\n");
        same("fence in a list", "1. Add:\n\n    ```html\n    <img src=\"x\">\n    ```\n");
        same("longer fence", "````\n```\n![a](u)\n````");
        row("after a fence", "```\nx\n```\n![a](u)", "```\nx\n```\n[a](u)");
        row("a lone backtick", "a ` b\n\n![a](u) `", "a ` b\n\n[a](u) `");
        row("an escaped backtick", "\\`![a](u)`", "\\`[a](u)`");
        row("line that looks like a fence", "text\n\n    ```\n\n![a](u)",
            "text\n\n    ```\n\n[a](u)");
        row("element", "<img src=\"https://h/p\"> <IMG/src=x>",
            "&lt;img src=\"https://h/p\"> &lt;IMG/src=x>");
        row("escaped element", "<div>\n\\<img src=x>\n</div>", "<div>\n&lt;img src=x>\n</div>");
        row("attribute", "<p title=\">\" style=\"background:url(https://h)\">x</p>",
            "&lt;p title=\">\" style=\"background:url(https://h)\">x</p>");
        row("style sheet", "<style>@import 'https://h'</style>",
            "&lt;style>@import 'https://h'</style>");
        same("harmless elements", "<kbd>Ctrl</kbd> a < b <details open><br><imgx>");
        same("address in a link", "<a href=\"https://h?src=1\">x</a>");
    }

    void picturesBecomeLinks()
    {
        QFETCH(QString, answer);
        QFETCH(QString, inert);
        QCOMPARE(answermarkdown::withoutPictures({answer}), QStringList(inert));
    }

    void addressOfAnotherAnswerMakesAPicture()
    {
        QCOMPARE(answermarkdown::withoutPictures({"![r]", "[r]: https://h/p.png"}),
                 QStringList({"[r]", "[r]: https://h/p.png"}));
    }

    void footnotesStayApart()
    {
        const QStringList answers{"One[^1] and two[^B].\n\n[^1]: First `[^1]`\n[^B]: Only here",
                                  "Three[^1].\n\n[^1]: Second", "Four[^1] without a note, \\[^1]"};
        QCOMPARE(
            answermarkdown::withOwnFootnotes(answers),
            QStringList({"One[^1-1] and two[^B].\n\n[^1-1]: First `[^1]`\n[^B]: Only here",
                         "Three[^2-1].\n\n[^2-1]: Second", "Four\\[^1] without a note, \\[^1]"}));
        // A single answer stays as it is.
        QCOMPARE(answermarkdown::withOwnFootnotes({answers.first()}), QStringList(answers.first()));
    }

    void newLabelsDoNotMeetOthers()
    {
        QCOMPARE(
            answermarkdown::withOwnFootnotes(
                {"a[^X] b[^1-x]\n\n[^x]: A\n[^1-x]: B", "c[^x]\n\n[^x]: C"}),
            QStringList({"a[^a1-X] b[^1-x]\n\n[^a1-x]: A\n[^1-x]: B", "c[^2-x]\n\n[^2-x]: C"}));
    }
};

QUELLORA_TEST(QCoreApplication, TestAnswerMarkdown)
#include "test_answer_markdown.moc"
