#include "overlay/EngineWindow.h"
#include "overlay/page/ResponsePage.h"
#include "overlay/page/WebEngineSetup.h"

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
    void finishedBlocksStayTheSameElements();
    void otherAnswerInTheSameSlot();
    void slotClearedByThePage();

private:
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
    row("page script",
        "a\n\n<script>window.pwned=1</script>\n\nb\n\n<img src=x onerror=pwned=1>\n\nc\n\nd\n");
}

void TestStreamingEquality::slotEqualsWholeRender()
{
    QFETCH(QString, text);
    QVERIFY(m_engine.load(responsepage::streamingShellPage(
        std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(), std::nullopt, {}, {})));
    for (const int step : {1, 7}) {
        const QString differences = m_engine.text(
            QStringLiteral(
                "(() => { const text = `%1`; const found = [];"
                "const slot = document.getElementById('streaming-response');"
                "const whole = document.createElement('div'); slot.innerHTML = '';"
                "const check = end => { const part = text.slice(0, end);"
                "slot.innerHTML = marked.parse(part); whole.innerHTML = marked.parse(part);"
                "if (slot.innerHTML !== whole.innerHTML && !found.length)"
                "found.push(end, slot.innerHTML, whole.innerHTML); };"
                "for (let end = %2; end < text.length; end += %2) check(end);"
                "check(text.length);"
                "return found.join('\\n----\\n'); })()")
                .arg(responsepage::escapedForTemplateLiteral(text).replace(
                    QLatin1Char('\r'), QStringLiteral("${'\\r'}")))
                .arg(step));
        QCOMPARE(differences, QString());
    }
    QCOMPARE(m_engine.text(QStringLiteral("typeof window.pwned")), QStringLiteral("undefined"));
}

void TestStreamingEquality::finishedBlocksStayTheSameElements()
{
    QVERIFY(m_engine.load(responsepage::streamingShellPage(
        std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(), std::nullopt, {}, {})));
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

int main(int argc, char **argv)
{
    prepareWebEngine();
    QGuiApplication app(argc, argv);
    TestStreamingEquality test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_streaming_equality.moc"
