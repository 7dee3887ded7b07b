#include "ExportFixture.h"
#include "export/ThreadMarkdown.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using namespace quellora;

class TestThreadMarkdown : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qputenv("TZ", "UTC"); }

    void escapes_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("markdown");
        const auto row = [](const char *tag, const char *text, const char *markdown) {
            QTest::newRow(tag) << QString::fromUtf8(text) << QString::fromUtf8(markdown);
        };
        row("plain", "Why is it so?", "Why is it so?");
        row("marks", "*a* `b` [c](d) ~e~ \\ $f$", "\\*a\\* \\`b\\` \\[c](d) \\~e\\~ \\\\ \\$f\\$");
        row("picture", "![x](http://h/i)", "!\\[x](http://h/i)");
        row("underscores", "snake_case_name _it_", "snake_case_name \\_it\\_");
        row("tags", "<b>x</b> a < b <!-- <?", "\\<b>x\\</b> a < b \\<!-- \\<?");
        row("entities", "&amp; a & b &#65;", "\\&amp; a & b \\&#65;");
        row("heading", "# no\n## no\nC# yes", "\\# no\\\n\\## no\\\nC# yes");
        row("quote", "> no\na > b", "\\> no\\\na > b");
        row("bullets", "- no\n+ no\n* no\n-x", "\\- no\\\n\\+ no\\\n\\* no\\\n-x");
        row("numbers", "1. no\n2) no\n3.14", "1\\. no\\\n2\\) no\\\n3.14");
        row("rules", "---\n- - -\n***\n___", "\\---\\\n\\- - -\\\n\\*\\*\\*\\\n\\_\\_\\_");
        row("underline", "a\n===\n=", "a\\\n\\===\\\n\\=");
        row("table", "a | b\n--- | ---", "a \\| b\\\n\\--- \\| ---");
        row("fence", "```\nx\n~~~", "\\`\\`\\`\\\nx\\\n\\~\\~\\~");
        row("indentation", "    int x;\n\ty",
            "&nbsp;&nbsp;&nbsp;&nbsp;int x;\\\n"
            "&nbsp;&nbsp;&nbsp;&nbsp;y");
        row("blanks", "a  b ", "a&nbsp;&nbsp;b&nbsp;");
        row("paragraphs", "a\n\nb", "a\n\nb");
        row("other line ends", "a\r\nb\rc", "a\\\nb\\\nc");
        row("empty", "", "");
    }
    void escapes()
    {
        QFETCH(QString, text);
        QTEST(threadmarkdown::escaped(text), "markdown");
    }

    void closesWhatIsOpen_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("closed");
        const auto row = [](const char *tag, const char *answer, const char *closed) {
            QTest::newRow(tag) << QString::fromUtf8(answer) << QString::fromUtf8(closed);
        };
        row("nothing", "a\n\n```\nb\n```\n", "a\n\n```\nb\n```");
        row("fence", "```cpp\nint x;", "```cpp\nint x;\n```");
        row("long fence", "````\n```\nx\n```", "````\n```\nx\n```\n````");
        row("tildes", "~~~ `x`\na\n```\n", "~~~ `x`\na\n```\n~~~");
        row("no fence", "``` a`b\ntext", "``` a`b\ntext");
        row("closing fence has no words", "```\na\n``` b", "```\na\n``` b\n```");
        row("indented fence", "  ```\na", "  ```\na\n```");
        row("comment", "a <!-- b", "a <!-- b\n-->");
        row("ended comment", "a <!-- b --> c\n<!-- d\n-->", "a <!-- b --> c\n<!-- d\n-->");
        row("comment in code", "```\n<!--\n```", "```\n<!--\n```");
        row("fence in comment", "<!--\n```\n-->\nx", "<!--\n```\n-->\nx");
        row("script", "<SCRIPT>\nx", "<SCRIPT>\nx\n</script>");
        row("pre", "<pre class=x>\nx", "<pre class=x>\nx\n</pre>");
        row("ended pre", "<pre>x</pre>\ny", "<pre>x</pre>\ny");
        row("processing instruction", "<?php\nx", "<?php\nx\n?>");
        row("other line ends", "```\r\na\r\n", "```\na\n```");
        row("empty", "", "");
    }
    void closesWhatIsOpen()
    {
        QFETCH(QString, answer);
        QTEST(threadmarkdown::closed(answer), "closed");
    }

    void wholeThread()
    {
        CaptureSession thread =
            threadOf({QStringLiteral("It is **red**.\n\n```\nx"), QStringLiteral("Second")});
        thread.turns[1].prompt = QStringLiteral("  ");
        const QString text = threadmarkdown::ofThread(thread, [](const auto &screenshot) {
            return QStringLiteral("p/%1.jpg").arg(screenshot.index);
        });
        QCOMPARE(text, QStringLiteral("# What is \\<this> & \\*that\\*?\n"
                                      "\n---\n\n"
                                      "**Note** · Mar 1, 2026, 12:00 PM\n\n"
                                      "> A note\\\n> with \\<b>two\\</b> lines\n"
                                      "\n---\n\n"
                                      "**Question** · Mar 1, 2026, 12:01 PM\n\n"
                                      "![Screenshot 1](p/0.jpg)\n\n"
                                      "> What is \\<this> & \\*that\\*?\n\n"
                                      "**Answer**\n\n"
                                      "It is **red**.\n\n```\nx\n```\n"
                                      "\n---\n\n"
                                      "**Question** · Mar 1, 2026, 12:02 PM\n\n"
                                      "**Answer**\n\n"
                                      "Second\n"));
        QVERIFY(!threadmarkdown::ofThread(thread, [](const auto &) {
                     return QString();
                 }).contains(QStringLiteral("Screenshot")));
    }

    void screenshotsOnly()
    {
        CaptureSession thread = CaptureSession::create(noon);
        thread.addScreenshot("a", noon, noon);
        thread.addScreenshot("b", noon, noon);
        thread.customTitle = QStringLiteral("Mine");
        QCOMPARE(threadmarkdown::ofThread(thread,
                                          [](const auto &s) { return QString::number(s.index); }),
                 QStringLiteral("# Mine\n\n![Screenshot 1](0)\n\n![Screenshot 2](1)\n"));
    }

    void titleIsOneLine()
    {
        CaptureSession thread = CaptureSession::create(noon);
        thread.customTitle = QStringLiteral("a\n# b");
        QCOMPARE(threadmarkdown::ofThread(thread, [](const auto &) { return QString(); }),
                 QStringLiteral("# a # b\n"));
    }
};

QUELLORA_TEST(QCoreApplication, TestThreadMarkdown)
#include "test_thread_markdown.moc"
