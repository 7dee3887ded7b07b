#include "ExportFixture.h"
#include "export/AnswerRenderer.h"
#include "export/ThreadDocument.h"
#include "export/ThreadMarkdown.h"
#include "page/EngineWindow.h"
#include "support/TestProgram.h"

#include <QRegularExpression>

using namespace quellora;

/// Answers in the page engine, without a window.
class TestAnswerRenderer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rendersAsThePageDoes();
    void formulasAreTypeset();
    void pastedFormulasAreTheirSource();
    void pastedCodeHasItsColours();
    void hostileAnswersAreDead_data();
    void hostileAnswersAreDead();
    void answersDoNotMix();
    void escapedTextShowsItself();
    void nothingToRender();
    void impatience();
    void jobEndsWithTheRenderer();

private:
    using Purpose = AnswerRenderer::Purpose;

    template <typename T>
    static T await(QFuture<T> future)
    {
        return runUntil([&] { return future.isFinished(); })
                   ? future.result()
                   : T(tl::unexpected(QStringLiteral("the test timed out")));
    }
    QString html(const QString &markdown, Purpose purpose = Purpose::Document)
    {
        const auto answers = await(m_renderer.render({markdown}, purpose));
        return answers ? answers->html.join(QLatin1Char('|')) : answers.error();
    }

    AnswerRenderer m_renderer;
};

void TestAnswerRenderer::rendersAsThePageDoes()
{
    const QString shown = html(QString::fromUtf8(
        "# Head\n\n| a | b |\n|--|--:|\n| 1 | 2 |\n\n- [x] done\n- [ ] open\n\nText[^1] and "
        "[l](https://example.com/a?b=c&d).\n\n[^1]: The note\n\n```cpp\nint x = 1; // <b>\n```\n"));
    for (const char *part :
         {"<h1>Head</h1>", "<td align=\"right\">2</td>", "<li class=\"task\">", "checked=\"\"",
          "disabled=\"\"", "<sup>1</sup> The note",
          "href=\"https://example.com/a?b=c&amp;d\" rel=\"noopener noreferrer\"",
          "class=\"language-cpp hljs\"", "<span class=\"hljs-comment\">// &lt;b&gt;</span>"})
        QVERIFY2(shown.contains(QString::fromUtf8(part)), qPrintable(shown));
    QVERIFY(!shown.contains(QStringLiteral("style=")));
}

void TestAnswerRenderer::formulasAreTypeset()
{
    const auto answers = await(m_renderer.render(
        {QStringLiteral("So $x^2$ is, \\href{http://h}{no}."), QStringLiteral("costs $5 and $7"),
         QStringLiteral("$$\n\\frac{a}{b}\n$$\n\nand $\\includegraphics{http://h/x}$")},
        Purpose::Document));
    QVERIFY(answers);
    QVERIFY(answers->hasFormulas);
    QVERIFY(answers->html[0].contains(QStringLiteral("class=\"katex\"")));
    QVERIFY(answers->html[0].contains(QStringLiteral("aria-label=\"x^2\"")));
    QCOMPARE(answers->html[1].trimmed(), QStringLiteral("<p>costs $5 and $7</p>"));
    QVERIFY(answers->html[2].contains(QStringLiteral("katex-display")));
    // A refused formula is shown as its source.
    QVERIFY(answers->html[2].contains(QStringLiteral(">$\\includegraphics{http://h/x}$</span>")));
    QVERIFY(!answers->html.join(QString()).contains(QStringLiteral("<img")));
}

void TestAnswerRenderer::pastedFormulasAreTheirSource()
{
    const QString shown =
        html(QStringLiteral("So $x^2$\n\n- [x] done\n- [ ] not"), Purpose::Pasting);
    QVERIFY2(shown.contains(QStringLiteral("So $x^2$")), qPrintable(shown));
    QVERIFY(shown.contains(QStringLiteral("☑ ")) && shown.contains(QStringLiteral("☐ ")));
    QVERIFY(!shown.contains(QStringLiteral("katex")));
}

void TestAnswerRenderer::pastedCodeHasItsColours()
{
    const QString shown =
        html(QStringLiteral("```cpp\nint x; // y\n```\n\n|a|\n|-|\n|b|"), Purpose::Pasting);
    static const QRegularExpression coloured(
        QStringLiteral("<span style=\"color: rgb\\([^\"]*\\);\">// y</span>"));
    QVERIFY2(shown.contains(coloured), qPrintable(shown));
    QVERIFY(shown.contains(QStringLiteral("<td style=\"border:")));
    QVERIFY(!shown.contains(QStringLiteral("class=")));
}

void TestAnswerRenderer::hostileAnswersAreDead_data()
{
    QTest::addColumn<QString>("answer");
    const auto row = [](const char *tag, const char *answer) {
        QTest::newRow(tag) << QString::fromUtf8(answer);
    };
    row("script", "x <script>alert(1)</script> <img src=x onerror=alert(1)>");
    row("data end", "\"},false,\"\"); alert(1); (\"</script><script>alert(1)</script>");
    row("remote pictures", "![i](http://canary.test/i.png) <img src=\"//canary.test/j.png\" "
                           "srcset=\"http://canary.test/k.png 2x\">");
    row("data picture", "![i](data:image/svg+xml,<svg onload='alert(1)'/>)");
    row("links", "[a](javascript:alert(1)) [b](file:///etc/passwd) [c](../x) "
                 "<a href=\"data:text/html,x\" ping=\"http://canary.test/\">d</a>");
    row("frames",
        "<iframe src=\"http://canary.test/\"></iframe><object data=\"http://canary.test/\">"
        "</object><embed src=\"http://canary.test/\">");
    row("media", "<video src=\"http://canary.test/v\" poster=\"http://canary.test/p\"></video>"
                 "<audio src=\"http://canary.test/a\" autoplay></audio>");
    row("style", "<style>@import 'http://canary.test/c.css';</style><p style=\"background:"
                 "url(http://canary.test/b)\">x</p><table background=\"http://canary.test/t\">");
    row("document", "<base href=\"http://canary.test/\"><meta http-equiv=refresh "
                    "content=\"0;url=http://canary.test/\"><link rel=stylesheet "
                    "href=\"http://canary.test/l\"><title>x</title>");
    row("form",
        "<form action=\"http://canary.test/\"><input type=image src=\"http://canary.test/x\">"
        "<button>b</button></form>");
    row("svg", "<svg><image href=\"http://canary.test/i\"/><script>alert(1)</script></svg>"
               "<math><mtext><img src=x onerror=alert(1)></mtext></math>");
    row("clobbering", "<a id=exported name=exported></a><form id=answers></form>");
    row("formula",
        "$\\href{javascript:alert(1)}{x}$ $\\htmlStyle{background:url(//canary.test/)}{y}$");
}

void TestAnswerRenderer::hostileAnswersAreDead()
{
    QFETCH(QString, answer);
    for (const auto purpose : {Purpose::Document, Purpose::Pasting}) {
        const QString shown = html(QStringLiteral("before\n\n") + answer, purpose);
        QVERIFY2(shown.contains(QStringLiteral("before")), qPrintable(shown));
        static const QRegularExpression tag(QStringLiteral("<[a-z][^>]*>"));
        static const QRegularExpression alive(QStringLiteral(
            "^<(script|style|iframe|object|embed|video|audio|img|form|button|meta|base|"
            "link|title|svg|math|source|picture)\\b|\\s(on\\w+|src|srcset|poster|"
            "background|ping|id|name|action)=|\\shref=\"(?!https?:|mailto:)|"
            "\\sstyle=\"[^\"]*url\\("));
        for (auto i = tag.globalMatch(shown); i.hasNext();) {
            const QString found = i.next().captured();
            QVERIFY2(!found.contains(alive), qPrintable(found));
        }
    }
}

void TestAnswerRenderer::answersDoNotMix()
{
    const auto answers =
        await(m_renderer.render({QStringLiteral("```\nopen"), QStringLiteral("[a]"),
                                 QStringLiteral("x\n\n[a]: http://h"), QStringLiteral("<div>")},
                                Purpose::Document));
    QVERIFY(answers);
    QCOMPARE(answers->html.size(), 4);
    QCOMPARE(answers->html[1].trimmed(), QStringLiteral("<p>[a]</p>"));
}

/// The renderer shows escaped text as it was.
void TestAnswerRenderer::escapedTextShowsItself()
{
    const QStringList texts{
        QStringLiteral("*a* _b_ `c` [d](e) ![f](g) ~~h~~ <b>i</b> &amp; $j$ \\(k\\) \\"),
        QStringLiteral("# a\n> b\n- c\n+ d\n1. e\n2) f\n---\n***\n===\n```\ng\n~~~"),
        QStringLiteral("a | b\n--- | ---\nc | d"),
        QStringLiteral("    int main() {\n\treturn 0;  // x\n    }"),
        QStringLiteral("[^1]: x\n[a]: b\n<!-- c\nhttps://example.com/a_b_c?d=e&f=g"),
    };
    QStringList markdown;
    for (const QString &text : texts)
        markdown.append(threadmarkdown::escaped(text));
    const auto answers = await(m_renderer.render(markdown, Purpose::Document));
    QVERIFY(answers);
    for (qsizetype i = 0; i < texts.size(); ++i) {
        QString shown = answers->html[i];
        static const QRegularExpression lineBreak(QStringLiteral("<br>"));
        static const QRegularExpression paragraph(QStringLiteral("^<p>|</p>\\n$"));
        static const QRegularExpression link(QStringLiteral("</?a\\b[^>]*>"));
        shown.remove(paragraph).replace(lineBreak, QStringLiteral("\n")).remove(link);
        QVERIFY2(!shown.contains(QRegularExpression(QStringLiteral("<[a-z/]"))), qPrintable(shown));
        shown.replace(QStringLiteral("&nbsp;"), QStringLiteral(" "))
            .replace(QStringLiteral("&lt;"), QStringLiteral("<"))
            .replace(QStringLiteral("&gt;"), QStringLiteral(">"))
            .replace(QStringLiteral("&amp;"), QStringLiteral("&"));
        QCOMPARE(shown, QString(texts[i]).replace(QLatin1Char('\t'), QStringLiteral("    ")));
    }
}

void TestAnswerRenderer::nothingToRender()
{
    const auto answers = await(m_renderer.render({}, Purpose::Document));
    QVERIFY(answers);
    QVERIFY(answers->html.isEmpty());
}

void TestAnswerRenderer::impatience()
{
    AnswerRenderer renderer{std::chrono::milliseconds(0)};
    const auto answers = await(renderer.render({QStringLiteral("x")}, Purpose::Document));
    QVERIFY(!answers);
    QCOMPARE(answers.error(), QStringLiteral("the page engine takes too long"));
    const auto pdf = await(renderer.print("<p>x", QPageLayout()));
    QVERIFY(!pdf);
}

void TestAnswerRenderer::jobEndsWithTheRenderer()
{
    auto renderer = std::make_unique<AnswerRenderer>();
    const auto answers = renderer->render({QStringLiteral("x")}, Purpose::Document);
    renderer.reset();
    QVERIFY(answers.isFinished());
    QVERIFY(answers.isCanceled());
}

QUELLORA_TEST_MAIN(runEngineTest<TestAnswerRenderer>)
#include "test_answer_renderer.moc"
