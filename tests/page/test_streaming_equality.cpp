#include "page/EngineWindow.h"
#include "page/ResponsePage.h"
#include "page/WebEngineSetup.h"
#include "support/TestProgram.h"

#include <QGuiApplication>

using namespace quellora;

/// At every length of an answer, the slot that is filled piece by piece holds exactly what a render
/// of the whole holds.
class TestStreamingEquality : public QObject
{
    Q_OBJECT

private slots:
    void slotEqualsWholeRender_data();
    void slotEqualsWholeRender();
    void randomDocuments_data();
    void randomDocuments();
    void finalDomIsPlain();
    void finishedBlocksStayTheSameElements();
    void selectionInFrozenTextStays();
    void longAnswerIsNestedInGroups();
    void otherAnswerInTheSameSlot();
    void slotClearedByThePage();

private:
    bool loadShell()
    {
        return m_engine.load(responsepage::streamingShellPage(
            std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(), std::nullopt, {}, {}));
    }
    /// Fills the slot of a new shell with @p text, @p step characters more each time.
    void stream(const QString &text, int step)
    {
        QVERIFY(loadShell());
        m_engine.value(
            QStringLiteral("window.slot = document.getElementById('streaming-response');"
                           "{ const text = \"%1\"; for (let end = %2; end < text.length + %2; "
                           "end += %2) slot.innerHTML = marked.parse(text.slice(0, end)); }")
                .arg(responsepage::escapedForJson(text))
                .arg(step));
    }
    void compare(const QString &text, const QList<int> &steps);

    EngineWindow m_engine;
};

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
    row("page script",
        "a\n\n<script>window.pwned=1</script>\n\nb\n\n<img src=x onerror=pwned=1>\n\nc\n\nd\n");
}

void TestStreamingEquality::slotEqualsWholeRender()
{
    QFETCH(QString, text);
    QVERIFY(loadShell());
    compare(text, text.size() > 500 ? QList<int>{17, 64} : QList<int>{1, 7});
    QCOMPARE(m_engine.text(QStringLiteral("typeof window.pwned")), QStringLiteral("undefined"));
}

/// Fills the slot with the beginnings of @p text, longer by a step each time.
void TestStreamingEquality::compare(const QString &text, const QList<int> &steps)
{
    for (const int step : steps) {
        const QString differences = m_engine.text(
            QStringLiteral(
                "(() => { const text = \"%1\"; const found = [];"
                "const slot = document.getElementById('streaming-response');"
                "const whole = document.createElement('div'); slot.innerHTML = '';"
                "const check = end => { const part = text.slice(0, end);"
                "slot.innerHTML = marked.parse(part); whole.innerHTML = marked.parse(part);"
                "if (slot.innerHTML !== whole.innerHTML && !found.length)"
                "found.push(end, slot.innerHTML, whole.innerHTML); };"
                "for (let end = %2; end < text.length; end += %2) check(end);"
                "check(text.length);"
                "document.querySelectorAll('pre code');"
                "const same = slot.childNodes.length === whole.childNodes.length &&"
                "[...slot.childNodes].every((node, i) => node.isEqualNode(whole.childNodes[i]));"
                "if (!same) found.push('the final tree is another one');"
                "return found.join('\\n----\\n'); })()")
                .arg(responsepage::escapedForJson(text))
                .arg(step));
        QCOMPARE(differences, QString());
    }
}

void TestStreamingEquality::randomDocuments_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 1; seed <= 8; ++seed)
        QTest::addRow("%u", seed) << seed;
}

/// Pieces of Markdown in any order: what nobody thought of.
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
        QStringLiteral("<div>\n"),
        QStringLiteral("</div>\n\n"),
        QStringLiteral("\tq\n"),
    };
    // Most documents go without block HTML, after which nothing is frozen.
    const auto kinds = static_cast<quint32>(seed % 4 == 0 ? pieces.size() : pieces.size() - 3);
    quint32 state = seed * 2654435761U;
    QString text;
    for (int i = 0; i < 80; ++i) {
        state = state * 1664525U + 1013904223U;
        text += pieces[static_cast<qsizetype>((state >> 8) % kinds)];
    }
    QVERIFY(loadShell());
    compare(text, {3});
}

void TestStreamingEquality::finalDomIsPlain()
{
    stream(QStringLiteral("a\n\n").repeated(700), 200);
    const QString children = QStringLiteral("slot.childNodes.length");
    QVERIFY(m_engine.value(children).toInt() < 100);
    // As the page does at the end.
    m_engine.value(QStringLiteral("document.querySelectorAll('pre code').length"));
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

void TestStreamingEquality::selectionInFrozenTextStays()
{
    const QString select =
        QStringLiteral("window.first = slot.querySelectorAll('p')[30].firstChild;"
                       "window.last = slot.querySelectorAll('p')[31].firstChild;"
                       "getSelection().setBaseAndExtent(first, 1, last, 2);");
    const QString selected =
        QStringLiteral("[getSelection().anchorNode === first, getSelection().anchorOffset,"
                       "getSelection().focusNode === last, getSelection().focusOffset].join()");
    const QString paragraphs = QStringLiteral("abc\n\n").repeated(33);
    stream(paragraphs, 50);
    m_engine.value(select);
    for (const char *more : {"`d`", "\n\ne\n\nf", "\n\ng\n\n"}) {
        m_engine.value(
            QStringLiteral("slot.innerHTML = marked.parse(\"%1\")")
                .arg(responsepage::escapedForJson(paragraphs + QString::fromLatin1(more))));
        QCOMPARE(m_engine.text(selected), QStringLiteral("true,1,true,2"));
    }
    m_engine.value(QStringLiteral("document.querySelectorAll('pre code').length"));
    QCOMPARE(m_engine.text(selected), QStringLiteral("true,1,true,2"));
}

void TestStreamingEquality::finishedBlocksStayTheSameElements()
{
    QVERIFY(loadShell());
    QCOMPARE(
        m_engine.text(QStringLiteral(
            "(() => { const slot = document.getElementById('streaming-response');"
            "slot.innerHTML = marked.parse('a\\n\\nb\\n\\nc\\n\\nd');"
            "const first = slot.firstElementChild;"
            "slot.innerHTML = marked.parse('a\\n\\nb\\n\\nc\\n\\nd\\n\\ne\\n\\nf');"
            "return (slot.firstElementChild === first) + ' ' + slot.innerText.replace(/\\s/g, '')"
            "; })()")),
        QStringLiteral("true abcdef"));
}

void TestStreamingEquality::otherAnswerInTheSameSlot()
{
    QCOMPARE(m_engine.text(QStringLiteral(
                 "(() => { const slot = document.getElementById('streaming-response');"
                 "slot.innerHTML = marked.parse('a\\n\\nb\\n\\nc\\n\\nd\\n\\ne');"
                 "slot.innerHTML = marked.parse('x');"
                 "return slot.innerHTML; })()")),
             QStringLiteral("<p>x</p>\n"));
}

void TestStreamingEquality::slotClearedByThePage()
{
    QCOMPARE(m_engine.text(QStringLiteral(
                 "(() => { const slot = document.getElementById('streaming-response');"
                 "slot.innerHTML = marked.parse('a\\n\\nb\\n\\nc\\n\\nd\\n\\ne');"
                 "slot.textContent = '';"
                 "slot.innerHTML = marked.parse('a\\n\\nb\\n\\nc\\n\\nd\\n\\ne\\n\\nf');"
                 "return slot.innerText.replace(/\\s/g, ''); })()")),
             QStringLiteral("abcdef"));
}

QUELLORA_TEST_MAIN(runEngineTest<TestStreamingEquality>)

#include "test_streaming_equality.moc"
