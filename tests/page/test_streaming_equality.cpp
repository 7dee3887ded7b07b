#include "page/EngineWindow.h"
#include "page/ResponsePage.h"
#include "page/StreamedSlot.h"
#include "page/WebEngineSetup.h"
#include "support/TestProgram.h"

#include <QFile>
#include <QGuiApplication>
#include <QRegularExpression>

using namespace quellora;

namespace {

/// The examples of the CommonMark specification by section.
QList<QPair<QString, QStringList>> examples()
{
    QFile file(QStringLiteral(QUELLORA_COMMONMARK));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("the CommonMark examples are missing");
    static const QRegularExpression exampleOrHeading(
        QStringLiteral("^`{32} example\\n(.*?)^\\.\\n.*?^`{32}$|^#{1,6} +([^\\n]*)$"),
        QRegularExpression::MultilineOption | QRegularExpression::DotMatchesEverythingOption);
    QList<QPair<QString, QStringList>> sections;
    auto matches = exampleOrHeading.globalMatch(QString::fromUtf8(file.readAll()));
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        if (match.hasCaptured(2))
            sections.append({match.captured(2), {}});
        else
            sections.last().second.append(
                match.captured(1).replace(QChar(0x2192), QLatin1Char('\t')));
    }
    sections.removeIf([](const auto &section) { return section.second.isEmpty(); });
    return sections;
}

} // namespace

/// At every length of an answer, the slot that is filled piece by piece shows exactly what a render
/// of the whole shows.
class TestStreamingEquality : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void slotEqualsWholeRender_data();
    void slotEqualsWholeRender();
    void commonMarkExamples_data();
    void commonMarkExamples();
    void joinedExamples_data();
    void joinedExamples();
    void randomDocuments_data();
    void randomParagraphs_data();
    void randomParagraphs();
    void randomDocuments();
    void lineEndsThatComeApart();
    void finalDomIsPlain();
    void finishedBlocksStayTheSameElements();
    void beginningOfALongParagraphIsFrozen_data();
    void beginningOfALongParagraphIsFrozen();
    void selectionInFrozenTextStays();
    void longAnswerIsNestedInGroups();
    void longBlocksAreNestedInGroups();
    void answerThatIsTooDeepIsShownAsText();
    void answerThatIsTooLongIsShownAsText();
    void chunkAfterTheEndBeginsAnotherAnswer();

private:
    bool loadShell()
    {
        PageContent page{responsepage::streamingShellPage(
            std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(), std::nullopt, {}, {})};
        const bool isLoaded = m_engine.load(page);
        m_engine.value(streamedSlotHelpers);
        return isLoaded;
    }
    QString literal(const QString &text) const
    {
        return QLatin1Char('"') + responsepage::escapedForJson(text) + QLatin1Char('"');
    }
    /// Streams @p text into a new shell, @p step characters at a time.
    void stream(const QString &text, int step)
    {
        QVERIFY(loadShell());
        m_engine.value(QStringLiteral("{ const text = %1; for (let at = 0; at < text.length; "
                                      "at += %2) answers.append(text.slice(at, at + %2)); }")
                           .arg(literal(text))
                           .arg(step));
    }
    void compare(const QString &text, const QList<int> &steps, quint32 seed = 0)
    {
        for (const int step : steps) {
            QCOMPARE(comparisonResult(m_engine, QStringLiteral("differences(%1, %2, %3)")
                                                    .arg(literal(text))
                                                    .arg(step)
                                                    .arg(seed)),
                     QString());
        }
    }

    EngineWindow m_engine;
};

void TestStreamingEquality::initTestCase()
{
    QVERIFY(loadShell());
}

void TestStreamingEquality::slotEqualsWholeRender_data()
{
    QTest::addColumn<QString>("text");
    const auto row = [](const char *tag, const char *text) {
        QTest::newRow(tag) << QString::fromUtf8(text);
    };
    const char *filler = "\n\nfirst\n\nsecond\n\nthird\n\nfourth\n";
    QTest::newRow("paragraphs") << QString::fromUtf8(filler).repeated(4);
    row("headings", "# a\n\nb\n===\n\nc\n---\n\n## d ##\n\ne\n\nf\n\ng\n");
    row("loose list", "- a\n\n- b\n\n- c\n\n  d\n\ne\n\nf\n\ng\n\n- h\n- i\n\n\n- j\n\nk\n\nl\n");
    row("nested list",
        "1. a\n   - b\n\n     c\n\n   - d\n2. e\n\n       code\n\n3. f\n\ng\n\nh\n\ni\n");
    row("list then code", "- a\n\n      x\n\n    y\n\nz\n\n    code\n\n    more\n\nw\n\nv\n");
    row("fences",
        "a\n\n```cpp\nint x;\n\n\nint y;\n```\n\nb\n\n~~~\nq\n\n```\n~~~\n\nc\n\nd\n\n```\nopen");
    row("fence in list", "- a\n\n  ```js\n  x\n\n  y\n  ```\n\n- b\n\nc\n\nd\n\ne\n");
    row("quotes", "> a\n>\n> b\nlazy\n\n> c\n\n> - d\n>\n> e\n\nf\n\ng\n\nh\n");
    row("table",
        "a\n\n| x | y |\n|---|:-:|\n| 1 | 2 |\n| 3 | 4 |\n\nb\n\nc\n\nx | y\n--|--\n1 | 2\n\nd\n");
    row("late definition", "see [a] and [b][c]\n\nx\n\ny\n\nz\n\n[a]: https://a.example\n\n[c]: "
                           "https://c.example \"t\"\n\nw\n");
    row("early definition", "[a]: https://a.example\n\nsee [a]\n\nx\n\ny\n\nz [a]\n\nw\n");
    row("open html", "a\n\nb\n\n<div>\n\nc\n\nd\n\ne\n\n</div>\n\nf\n\ng\n\nh\n");
    row("open inline html", "a <b>bold\n\nb\n\nc\n\nd</b> e\n\nf\n\ng\n");
    row("html late", "a\n\nb\n\nc\n\nd\n\ne </p> "
                     "f\n\n<details>\n<summary>s</summary>\n\ng\n\n</details>\n\nh\n\ni\n");
    row("comment", "a\n\n<!-- b\n\nc -->\n\nd\n\ne\n\nf\n");
    row("emphasis across", "a *b\n\nc* d\n\n**e\n\nf** g\n\n`h\n\ni` j\n\nk\n\nl\n");
    row("rules and breaks", "a  \nb\\\nc\n\n---\n\n***\n\nd\n\n- - -\n\ne\n\nf\n");
    row("carriage returns", "a\r\n\r\nb\r\n\r\nc\r\rd\r\n\r\ne\n\nf\n\ng\n");
    row("blanks", "\n\n   a\n   \n\t\nb\n \n \nc\n\n\n\nd\n\n\te\n\nf\n\ng");
    row("wide characters", "ä 👩‍👩‍👧 €\n\nعربي\n\n漢字\n\nx\n\ny\n\nz\n");
    row("tasks", "- [ ] a\n- [x] b\n\n- [ ] c\n\nd\n\ne\n\nf\n");
    row("breaks and inline html", "a<br>b\n\nc <kbd>x</kbd> d\n\ne <sub>f\n\ng</sub>\n\nh\n\ni "
                                  "<b>j <i>k</b></i>\n\nl\n\nm\n");
    row("html in a table",
        "| a | b |\n|---|---|\n| x<br>y | <b>z |\n| 1 | 2</b> |\n\nc\n\nd\n\ne\n");
    row("without blank lines", "# a\nb\n## c\n- d\n- e\n### f\n```\ng\n```\nh\n# i\n> j\n# k\nl\n");
    row("definitions come and go",
        "[a] and [B c]\n\nx\n\n- [a]\n\ny\n\nz\n\n[a]: one two\n\n[a]: https://a.example\n\n"
        "> [b  C]: https://b.example 'q'\n\nv\n\n[a]: https://other.example\n\nw [a]\n\nu\n");
    row("definition in a list",
        "- a\n\n  [q]: https://q.example\n\n- [q]\n\nb [q]\n\nc\n\nd\n\ne [q]\n");
    row("half closed fences",
        "```js\n``\n`\n ```x\n```\n\na\n\n~~~~\n~~~\n\n```\n~~~~ \nb\n\nc\n\nd\n");
    QTest::newRow("giant fence") << QStringLiteral("a\n\n```cpp\n") +
                                        QStringLiteral("int x = 1;\n\n\n  `y`\n").repeated(60) +
                                        QStringLiteral("``` \nb\n\nc\n\nd\n");
    QTest::newRow("giant open fence")
        << QStringLiteral("```\n") + QStringLiteral("<a> & `b`\n").repeated(90);
    QTest::newRow("giant tight list") << QStringLiteral("a:\n") +
                                             QStringLiteral("- b *c*\n  - d\n").repeated(80) +
                                             QStringLiteral("\ne\n\nf\n\ng\n");
    QTest::newRow("giant list that turns loose")
        << QStringLiteral("3. b\n4. c `d`\n").repeated(35) +
               QStringLiteral("\n5. e\n6. [ ] f\n").repeated(35) +
               QStringLiteral("\nf\n\ng\n\nh\n");
    QTest::newRow("giant loose list")
        << QStringLiteral("* b\n\n  c\n\n").repeated(70) + QStringLiteral("d\n\ne\n\nf\n");
    QTest::newRow("giant list with late definition")
        << QStringLiteral("- see [a]\n").repeated(70) +
               QStringLiteral("\n[a]: https://a.example\n\nb\n\nc\n");
    QTest::newRow("giant list with html")
        << QStringLiteral("- b <b>c</b>\n- d<br>\n").repeated(40) +
               QStringLiteral("- <i>\n- e\n\nf\n");
    QTest::newRow("giant table") << QStringLiteral("a\n\n| x | y |\n|---|:-:|\n") +
                                        QStringLiteral("| *1* | 2 |\n|3|\n").repeated(50) +
                                        QStringLiteral("\nb\n\nc\n\nd\n");
    QTest::newRow("giant table with late definition")
        << QStringLiteral("|x|\n|-|\n") + QStringLiteral("| [a] |\n").repeated(60) +
               QStringLiteral("\n[a]: https://a.example\n\nb\n\nc\n");
    QTest::newRow("many blocks") << QStringLiteral("# a\n\nb [r]\n\n- c\n\n> d\n\n").repeated(30) +
                                        QStringLiteral("[r]: https://r.example\n\ne\n\nf\n");
    QTest::newRow("giant code in a list") << QStringLiteral("- a\n\n  ```\n") +
                                                 QStringLiteral("  x\n").repeated(120) +
                                                 QStringLiteral("  ```\n\nb\n\nc\n");
    QTest::newRow("giant code with line breaks at its end")
        << QStringLiteral("```js\n") + QStringLiteral("let x = 1;\n").repeated(400) +
               QStringLiteral("\n\n\n\n  \n\n```\nb\n");
    QTest::newRow("giant code without line breaks")
        << QStringLiteral("~~~\n") + QStringLiteral("no end ").repeated(400);
    QTest::newRow("giant list with late open html")
        << QStringLiteral("- b\n").repeated(70) + QStringLiteral("- <i>\n- e\n\nf\n\ng\n");
    const QString words = QStringLiteral("The *consumer* may be `slower` than the producer. ");
    const QString lines =
        QStringLiteral("The **consumer** may, of a_b,\nbe slower than it.  \n").repeated(30);
    const QString quote =
        QStringLiteral("> Remember that the consumer\n> may be *slower* than ~~others~~ it.\n")
            .repeated(24);
    QTest::newRow("giant paragraph") << lines + QStringLiteral("end\n\nb\n\nc\n");
    QTest::newRow("giant line") << words.repeated(60) + QStringLiteral("\n\nb\n\nc\n");
    QTest::newRow("giant paragraphs")
        << (QStringLiteral("- a\n\n") + lines + QLatin1Char('\n')).repeated(2) + words.repeated(40);
    QTest::newRow("giant quote") << quote + QStringLiteral("\na\n\nb\n\nc\n");
    QTest::newRow("giant quote with line separators")
        << QStringLiteral("> The consumer\u2028may be\u2029slower.\n").repeated(70);
    QTest::newRow("giant quote without emphasis")
        << QStringLiteral("> The consumer may be slower.\n").repeated(400) +
               QStringLiteral("> *a*\n\nb\n\nc\n");
    QTest::newRow("giant paragraph without emphasis that becomes a heading")
        << QStringLiteral("The consumer may be slower.\n").repeated(400) +
               QStringLiteral("===\n\nb\n");
    QTest::newRow("giant quote in lines that are continued")
        << quote + QStringLiteral("lazy *a\n> b* c\nlazy\n===\n> d\n>\n> e\n\nf\n\ng\n");
    QTest::newRow("giant line that begins like a list")
        << lines.trimmed() + QStringLiteral("\n2. ") + words.repeated(30).trimmed() +
               QStringLiteral("\n|-|-|\na\n\nb\n");
    const struct
    {
        const char *opening;
        const char *closing;
    } pairs[]{
        {"*", "*"},         {"**", "**"},   {"_", "_"}, {"__", "__"},
        {"`", "`"},         {"``", "``"},   {"~", "~"}, {"~~", "~~"},
        {"[", "](u)"},      {"[", "][r]"},  {"<", ">"}, {"<b title=\"", "\">a</b>"},
        {"*a **", "** b*"}, {"`*", "`* *"},
    };
    for (const auto &[opening, closing] : pairs) {
        for (const char *line : {"The consumer may be slower. ", "The consumer may be slower.\n",
                                 "The consumer may be slower.\n> "}) {
            const QString sentences = QString::fromUtf8(line);
            const bool isQuote = sentences.endsWith(QLatin1String("> "));
            QTest::addRow("giant %s between %s and %s",
                          isQuote                                ? "quote"
                          : sentences.endsWith(QLatin1Char(' ')) ? "line"
                                                                 : "text",
                          opening, closing)
                << QLatin1String(isQuote ? "> " : "") + sentences.repeated(25) +
                       QString::fromUtf8(opening) + sentences.repeated(30) +
                       QStringLiteral("closed") + QString::fromUtf8(closing) + QLatin1Char(' ') +
                       sentences.repeated(25) + QStringLiteral("end\n\n[r]: /u\n");
        }
    }
    QTest::newRow("giant texts with character references")
        << QStringLiteral("The consumer &amp; &#66; R&D may be slower &am ").repeated(40) +
               words.repeated(10) + QStringLiteral("p;&am") + words + QStringLiteral("p; &amp");
    const struct
    {
        const char *name;
        const char *end;
    } endings[]{
        {"an underline", "a\n===\n\nb\n"},
        {"a lower underline", "\n---\n\nb\n"},
        {"a list", "\n2. a\n- b\n- c\n\nd\n"},
        {"a fence", "\n```\na\n```\nb\n"},
        {"a table", "\n|-|\n|a|b|\n|-|-|\n|c|d|\n\ne\n"},
        {"a table row", " a | b\n|-|-|\n| c | d |\n"},
        {"a quote", "\n> a\nb\n\nc\n"},
        {"a heading", "\n# a\nb\n"},
        {"a code block", "\n    a\n\n    b\n\nc\n"},
        {"html", " <b>a</b> <i>b\n\nc</i>\n\nd\n"},
        {"block html", "\n<div>\n\nc</div>\n\nd\n"},
        {"a definition", " [a]\n[a]: /u\n\n[a]: /v\n\nd\n"},
        {"breaks", "  \n  a\\\nb   \n\nc\n"},
    };
    for (const auto &[name, end] : endings) {
        const QString text = QString::fromUtf8(end);
        QTest::addRow("giant line and %s", name) << words.repeated(30) + text;
        QTest::addRow("giant paragraph and %s", name) << lines.trimmed() + text;
        QTest::addRow("giant quote and %s", name) << quote.trimmed() + text;
        QTest::addRow("giant quote with %s", name)
            << quote.trimmed() + QString(text).replace(QLatin1Char('\n'), QStringLiteral("\n> "));
    }
    row("formulas", "a $x$ and $y_1 + *z*$, $5 and $7\n\n$$\na\n- b\n= c\n$$\n\nd \\(e\\) f\n\n"
                    "\\[\ng\n\\]\nh\n\n$$i\n\nj$$\n\n- $k$\n- $$\n  l\n  $$\n\nm $n\n\no$\n\np\n");
    row("footnotes", "a[^1] b[^note], [^x](y)\n\n[^1]: http://a.example\n[^note]: see *c* d\ne\n\n"
                     "f\n[^2]: g\n\n[^1]\n\nh [^unfinished\n");
    row("task list", "- [ ] a\n- [x] b\n\n  c\n- d\n\ne\n");
    row("formula or another block",
        "a\n$$\n# b\n$$\n\nc\n\n$$\nd\n---\n$$\n\n$$\n```\ne\n```\n$$\n\nf\n\ng\n");
    QTest::newRow("long paragraph with formulas")
        << QStringLiteral("The price $p$ rises to $5 while ").repeated(60) +
               QStringLiteral("$q$ and\n$$\nr\n$$\n\ns\n");
    row("folded labels", "[\u1e9e] and [\u00e9]\n\nx\n\n[SS]: /ss\n\ny\n\n[\u00c9]: /e\n\nz\n");
    row("blanks before a line", "a\n\n   b\n\n# c\n    d\n\n| x |\n|---|\n\n    e\n");
    row("nothing left by the sanitizer", "a\n\nb\n\n<!DOCTYPE html>\n\nc\n");
    row("page script",
        "a\n\n<script>window.pwned=1</script>\n\nb\n\n<img src=x onerror=pwned=1>\n\nc\n\nd\n");
}

void TestStreamingEquality::slotEqualsWholeRender()
{
    QFETCH(QString, text);
    compare(text, text.size() > 10000 ? QList<int>{64, 5000}
                  : text.size() > 500 ? QList<int>{17, 64, 5000}
                                      : QList<int>{1, 7});
    QCOMPARE(m_engine.text(QStringLiteral("typeof window.pwned")), QStringLiteral("undefined"));
}

void TestStreamingEquality::commonMarkExamples_data()
{
    QTest::addColumn<QStringList>("texts");
    qsizetype count = 0;
    for (const auto &[section, texts] : examples()) {
        QTest::newRow(qPrintable(section)) << texts;
        count += texts.size();
    }
    QCOMPARE(count, 652);
}

void TestStreamingEquality::commonMarkExamples()
{
    QFETCH(QStringList, texts);
    for (const QString &text : texts)
        compare(text, {1});
}

void TestStreamingEquality::joinedExamples_data()
{
    QTest::addColumn<QStringList>("texts");
    QTest::addColumn<QString>("separator");
    QTest::addColumn<int>("step");
    for (const auto &[section, texts] : examples()) {
        QTest::addRow("%s, lines", qPrintable(section)) << texts << QStringLiteral("\n") << 23;
        QTest::addRow("%s, blocks", qPrintable(section)) << texts << QStringLiteral("\n\n") << 17;
        QTest::addRow("%s, between paragraphs", qPrintable(section))
            << texts << QStringLiteral("\n\nA paragraph [foo] in between.\n\n") << 29;
    }
}

/// Examples behind each other: what one of them leaves open reaches into the next.
void TestStreamingEquality::joinedExamples()
{
    QFETCH(QStringList, texts);
    QFETCH(QString, separator);
    QFETCH(int, step);
    for (qsizetype i = 0; i < texts.size(); i += 12)
        compare(texts.mid(i, 12).join(separator), {step});
}

void TestStreamingEquality::randomDocuments_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 1; seed <= 8; ++seed)
        QTest::addRow("%u", seed) << seed;
}

/// Pieces of Markdown in any order.
void TestStreamingEquality::randomDocuments()
{
    QFETCH(quint32, seed);
    static const QStringList pieces{
        QStringLiteral("\n"),
        QStringLiteral("\n\n"),
        QStringLiteral("a b"),
        QStringLiteral("- "),
        QStringLiteral("1. "),
        QStringLiteral("  "),
        QStringLiteral("    "),
        QStringLiteral("```"),
        QStringLiteral("~~~\n"),
        QStringLiteral("# h\n"),
        QStringLiteral("> "),
        QStringLiteral("|x|y|\n|-|-|\n"),
        QStringLiteral("|1|2|\n"),
        QStringLiteral("---\n"),
        QStringLiteral("===\n"),
        QStringLiteral("**"),
        QStringLiteral("`"),
        QStringLiteral("[r]"),
        QStringLiteral("\n[r]: /u\n"),
        QStringLiteral("<b>"),
        QStringLiteral("</b>"),
        QStringLiteral("<br>"),
        QStringLiteral("\n\nword\n\n"),
        QStringLiteral("- i\n- j\n"),
        QStringLiteral("text\n"),
        QStringLiteral("\n\n"),
        QStringLiteral("* k\n"),
        QStringLiteral("$"),
        QStringLiteral("$$"),
        QStringLiteral("\n\\[\n"),
        QStringLiteral("\\]\n"),
        QStringLiteral("<div>\n"),
        QStringLiteral("</div>\n\n"),
        QStringLiteral("\tq\n"),
    };
    // Most documents have no block HTML, because nothing is frozen after it.
    const auto kinds = static_cast<quint32>(seed % 4 == 0 ? pieces.size() : pieces.size() - 3);
    quint32 state = seed * 2654435761U;
    QString text;
    for (int i = 0; i < 80; ++i) {
        state = state * 1664525U + 1013904223U;
        text += pieces[static_cast<qsizetype>((state >> 8) % kinds)];
    }
    compare(text, {3});
}

void TestStreamingEquality::randomParagraphs_data()
{
    QTest::addColumn<quint32>("seed");
    QTest::addColumn<bool>("isQuote");
    for (quint32 seed = 1; seed <= 8; ++seed) {
        QTest::addRow("paragraph %u", seed) << seed << false;
        QTest::addRow("quote %u", seed) << seed << true;
    }
}

/// Long paragraphs of words with delimiters anywhere, in chunks of any length.
void TestStreamingEquality::randomParagraphs()
{
    QFETCH(quint32, seed);
    QFETCH(bool, isQuote);
    static const QStringList words{
        QStringLiteral("word"),       QStringLiteral("The consumer"), QStringLiteral("end."),
        QStringLiteral("snake_case"), QStringLiteral("*a b*"),        QStringLiteral("`c`"),
        QStringLiteral("**d** e"),    QStringLiteral("R&D"),          QStringLiteral("2. f"),
    };
    // All of them leave something open, or close it.
    static const QStringList delimiters{
        QStringLiteral("*"),     QStringLiteral("**"),    QStringLiteral("_"),
        QStringLiteral("__"),    QStringLiteral("`"),     QStringLiteral("``"),
        QStringLiteral("~"),     QStringLiteral("~~"),    QStringLiteral("["),
        QStringLiteral("](u)"),  QStringLiteral("[r]"),   QStringLiteral("\\"),
        QStringLiteral("&am"),   QStringLiteral("p;"),    QStringLiteral("www.a.example"),
        QStringLiteral("<i>"),   QStringLiteral("</i>"),  QStringLiteral("<"),
        QStringLiteral("*g "),   QStringLiteral(" h*"),   QStringLiteral("**i "),
        QStringLiteral(" __j "), QStringLiteral("a*b*c"), QStringLiteral("`k* "),
        QStringLiteral(" |"),    QStringLiteral("  \n"),  QStringLiteral("***l* m** "),
        QStringLiteral("$"),     QStringLiteral("$$"),    QStringLiteral("\\("),
        QStringLiteral("\\)"),
    };
    static const QStringList lineStarts{
        QStringLiteral("---\n"),   QStringLiteral("===\n"), QStringLiteral("- "),
        QStringLiteral("|-|-|\n"), QStringLiteral("```"),   QStringLiteral("    "),
        QStringLiteral("> "),      QStringLiteral("\n"),    QStringLiteral("[r]: /u\n"),
        QStringLiteral("|-|\n"),
    };
    quint32 state = seed * 2654435761U;
    const auto random = [&state](qsizetype count) {
        state = state * 1664525U + 1013904223U;
        return static_cast<qsizetype>(state >> 8) % count;
    };
    QString text;
    while (text.size() < 4500) {
        // Much of the text has no delimiters, so that it can be frozen before some come.
        const bool isPlain = text.size() % 2000 < 1300;
        if (isQuote && (isPlain || random(10) > 0))
            text += QStringLiteral("> ");
        if (!isPlain && random(15) == 0)
            text += lineStarts[random(lineStarts.size())];
        for (qsizetype left = 3 + random(9); left > 0; --left) {
            text += !isPlain && random(4) == 0 ? delimiters[random(delimiters.size())]
                                               : words[random(words.size())];
            text += QLatin1String(random(12) == 0 ? "" : " ");
        }
        text += QLatin1String(isQuote || random(3) > 0 ? "\n" : "");
    }
    compare(text, {30}, seed);
}

void TestStreamingEquality::lineEndsThatComeApart()
{
    const QString text = QStringLiteral("a\r\n\r\nb\r\r\nc\r\n- d\r\n");
    compare(text, {1, 2, 3});
    m_engine.value(QStringLiteral("answers.append('a\\r'); answers.append('');"
                                  "answers.append('\\nb'); answers.finish();"));
    QCOMPARE(m_engine.text(QStringLiteral("slot.innerHTML")), QStringLiteral("<p>a\nb</p>\n"));
}

void TestStreamingEquality::finalDomIsPlain()
{
    stream(QStringLiteral("a\n\n").repeated(700), 200);
    const QString children = QStringLiteral("slot.childNodes.length");
    QVERIFY(m_engine.value(children).toInt() < 100);
    m_engine.value(QStringLiteral("answers.finish()"));
    QCOMPARE(m_engine.value(children).toInt(), 1400);
    QCOMPARE(m_engine.value(QStringLiteral("slot.querySelectorAll('div').length")).toInt(), 0);
}

void TestStreamingEquality::longAnswerIsNestedInGroups()
{
    // No element has more children than a group may have blocks, each with its line break.
    stream(QStringLiteral("a\n\n").repeated(600), 40);
    QVERIFY(m_engine
                .value(QStringLiteral("Math.max(...[slot, ...slot.querySelectorAll('div')]"
                                      ".map(e => e.childNodes.length))"))
                .toInt() <= 60);
    QCOMPARE(m_engine.value(QStringLiteral("slot.querySelectorAll('p').length")).toInt(), 600);
}

void TestStreamingEquality::longBlocksAreNestedInGroups()
{
    stream(QStringLiteral("- a\n").repeated(600), 40);
    QVERIFY(m_engine.value(QStringLiteral("slot.querySelectorAll('ul > .group').length")).toInt() >
            15);
    QVERIFY(m_engine.value(QStringLiteral("slot.firstChild.childNodes.length")).toInt() < 150);
    stream(QStringLiteral("```cpp\n") + QStringLiteral("int x = 1;\n").repeated(2000), 40);
    QVERIFY(m_engine.value(QStringLiteral("slot.querySelectorAll('pre > .group').length")).toInt() >
            10);
    QVERIFY(m_engine.value(QStringLiteral("slot.querySelector('pre').lastChild.textContent.length"))
                .toInt() < 3000);
    // The block closes without another layout of its lines.
    m_engine.value(QStringLiteral("window.first = slot.querySelector('pre > .group');"
                                  "answers.append('```\\n'); answers.append('a')"));
    QVERIFY(
        m_engine.value(QStringLiteral("slot.querySelector('pre > .group') === first")).toBool());
}

void TestStreamingEquality::selectionInFrozenTextStays()
{
    const QString select =
        QStringLiteral("window.first = slot.querySelectorAll('p')[30].firstChild;"
                       "window.last = slot.querySelectorAll('p')[31].firstChild;"
                       "getSelection().setBaseAndExtent(first, 1, last, 2);");
    const QString selected =
        QStringLiteral("[getSelection().anchorNode === first, getSelection().anchorOffset,"
                       "getSelection().focusNode === last, getSelection().focusOffset].join()");
    stream(QStringLiteral("abc\n\n").repeated(33), 50);
    m_engine.value(select);
    for (const char *more : {"`d`", "\n\ne\n\nf", "\n\ng\n\n"}) {
        m_engine.value(
            QStringLiteral("answers.append(%1)").arg(literal(QString::fromLatin1(more))));
        QCOMPARE(m_engine.text(selected), QStringLiteral("true,1,true,2"));
    }
    m_engine.value(QStringLiteral("answers.finish()"));
    QCOMPARE(m_engine.text(selected), QStringLiteral("true,1,true,2"));
}

void TestStreamingEquality::finishedBlocksStayTheSameElements()
{
    stream(QStringLiteral("a\n\nb\n\nc\n\nd"), 3);
    m_engine.value(QStringLiteral("window.first = slot.firstElementChild;"
                                  "answers.append('\\n\\ne\\n\\nf'); answers.finish()"));
    QCOMPARE(m_engine.text(QStringLiteral("(slot.firstElementChild === first) + ' ' + "
                                          "slot.innerText.replace(/\\s/g, '')")),
             QStringLiteral("true abcdef"));
}

void TestStreamingEquality::beginningOfALongParagraphIsFrozen_data()
{
    QTest::addColumn<QString>("line");
    QTest::newRow("lines") << QStringLiteral("The *consumer* may be slower.\n");
    QTest::newRow("one line") << QStringLiteral("The *consumer* may be slower. ");
    QTest::newRow("quote") << QStringLiteral("> The *consumer* may be slower.\n");
}

/// What is rendered again is as it was; what is not keeps a change made by hand.
void TestStreamingEquality::beginningOfALongParagraphIsFrozen()
{
    QFETCH(QString, line);
    stream(line.repeated(200), 40);
    m_engine.value(QStringLiteral("window.marks = slot.querySelectorAll('em');"
                                  "for (const mark of marks) mark.textContent = 'changed';"));
    m_engine.value(QStringLiteral("answers.append(%1)").arg(literal(line)));
    QCOMPARE(m_engine.value(QStringLiteral("slot.querySelectorAll('p').length")).toInt(), 1);
    QVERIFY(m_engine
                .value(QStringLiteral(
                    "[...marks].filter(mark => mark.textContent === 'changed').length"))
                .toInt() > 150);
    QCOMPARE(m_engine.text(QStringLiteral("slot.querySelector('em:last-of-type').textContent")),
             QStringLiteral("consumer"));
}

void TestStreamingEquality::answerThatIsTooDeepIsShownAsText()
{
    const QString quotes = QStringLiteral("> ").repeated(20000);
    stream(quotes, 4000);
    m_engine.value(QStringLiteral("answers.append('*end*'); answers.finish();"));
    QVERIFY(m_engine.text(QStringLiteral("slot.textContent")) == quotes + QStringLiteral("*end*"));
    QCOMPARE(m_engine.value(QStringLiteral("slot.querySelectorAll(':not(div)').length")).toInt(),
             0);
}

void TestStreamingEquality::answerThatIsTooLongIsShownAsText()
{
    const QString state = QStringLiteral("[slot, whole].map(e => e.classList.contains('as-text') + "
                                         "' ' + e.textContent.length).join()");
    const QString showWhole = QStringLiteral("answers.show(whole, %1);");
    const QString longest =
        QStringLiteral("words and words ").repeated(48 * 1024).chopped(1) + QLatin1Char('.');
    QCOMPARE(longest.size(), 768 * 1024);
    const QString rendered = QStringLiteral("false %1").arg(longest.size() + 1);
    const QString asText = QStringLiteral("true %1").arg(longest.size() + 1);
    stream(longest, 1 << 17);
    m_engine.value(showWhole.arg(literal(longest)));
    QCOMPARE(m_engine.text(state), rendered + QLatin1Char(',') + rendered);
    m_engine.value(QStringLiteral("answers.append('!')"));
    m_engine.value(showWhole.arg(literal(longest + QLatin1Char('!'))));
    QCOMPARE(m_engine.text(state), asText + QLatin1Char(',') + asText);
    m_engine.value(QStringLiteral("answers.append('?'); answers.finish();"));
    QVERIFY(m_engine.text(QStringLiteral("slot.textContent")) == longest + QStringLiteral("!?"));
    // The same element shows the next answer as before.
    m_engine.value(showWhole.arg(QStringLiteral("'*a*'")) +
                   QStringLiteral("answers.append('*a*'); answers.finish();"));
    QCOMPARE(m_engine.text(state), QStringLiteral("false 2,false 2"));
}

void TestStreamingEquality::chunkAfterTheEndBeginsAnotherAnswer()
{
    stream(QStringLiteral("a\n\nb\n\nc"), 3);
    m_engine.value(QStringLiteral("answers.finish(); answers.append('x')"));
    QCOMPARE(m_engine.text(QStringLiteral("slot.innerHTML")), QStringLiteral("<p>x</p>\n"));
    m_engine.value(QStringLiteral("answers.append('*y*')"));
    QCOMPARE(m_engine.text(QStringLiteral("slot.innerHTML")),
             QStringLiteral("<p>x<em>y</em></p>\n"));
}

QUELLORA_TEST_MAIN(runEngineTest<TestStreamingEquality>)

#include "test_streaming_equality.moc"
