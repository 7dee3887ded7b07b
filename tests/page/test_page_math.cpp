#include "page/EnginePageTest.h"
#include "page/StreamingRenderer.h"
#include "support/TestProgram.h"

#include <cmath>

using namespace quellora;

/// Formulas in answers.
class TestPageMath : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void formulasAreTypeset_data();
    void formulasAreTypeset();
    void otherTextStaysAsItIs_data();
    void otherTextStaysAsItIs();
    void typesetterIsLoadedOnlyForFormulas();
    void refusedFormulasShowTheirSource_data();
    void refusedFormulasShowTheirSource();
    void formulasHaveTheirSizesAndFonts();
    void formulaStaysInItsPlace();
    void displayFormulasAreCentred();
    void unfinishedFormulaIsText();
    void formulaReadsAsItsSource();
    void hiddenClassInAnswerMeansNothing();

private:
    bool show(const QString &markdown)
    {
        return finished(m_display->loadContent(markdown)) && m_engine->painted();
    }
    int count(const char *selector)
    {
        return m_engine
            ->value(QStringLiteral("document.querySelectorAll('%1').length")
                        .arg(QLatin1StringView(selector)))
            .toInt();
    }
    /// Waits until this many formulas are typeset.
    bool typeset(int wanted)
    {
        return runUntil([&] { return count(".formula > :is(.katex, .katex-display)") == wanted; },
                        std::chrono::seconds(20));
    }
};

void TestPageMath::formulasAreTypeset_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("sources");
    const auto row = [](const char *name, const char *text, const char *sources) {
        QTest::newRow(name) << QString::fromUtf8(text) << QString::fromUtf8(sources);
    };
    row("dollars", "Where $x^2$ is.", "$x^2$");
    row("one letter", "Let $n$ be", "$n$");
    row("number", "It is $5$.", "$5$");
    row("several", "$a$ and $b_1$, or $c$", "$a$ $b_1$ $c$");
    row("brackets", "so \\(a < b\\).", "\\(a < b\\)");
    row("two dollars in a line", "so $$a = b$$ holds", "$$a = b$$");
    row("display", "so\n\n$$\na = b\n$$\n\nend", "$$\na = b\n$$");
    row("display brackets", "so\n\n\\[\na = b\n\\]\n\nend", "\\[\na = b\n\\]");
    row("display interrupts a paragraph", "so\n$$a$$\nend", "$$a$$");
    row("lines that look like lists", "$$\na\n- b\n+ c\n= d\n$$", "$$\na\n- b\n+ c\n= d\n$$");
    row("in a list", "- $a$\n- b\n\n  $$\n  c\n  $$\n", "$a$ $$\nc\n$$");
    row("in a table", "|$a$|b|\n|-|-|\n|c|$d$|\n", "$a$ $d$");
    row("in a quote and emphasis", "> **so $a$**", "$a$");
    row("emphasis characters inside", "$a_1 * b_2$ and $c_3 * d_4$", "$a_1 * b_2$ $c_3 * d_4$");
    row("escaped dollar inside", "$\\$5 + x$", "$\\$5 + x$");
    row("environment", "$$\\begin{aligned} a &= b \\\\ c &= d \\end{aligned}$$",
        "$$\\begin{aligned} a &= b \\\\ c &= d \\end{aligned}$$");
    row("text inside", "$x \\text{ if it is}$", "$x \\text{ if it is}$");
}

void TestPageMath::formulasAreTypeset()
{
    QFETCH(QString, text);
    QFETCH(QString, sources);
    QVERIFY(show(text));
    const QString shown = QStringLiteral(
        "[...document.querySelectorAll('.formula')].map(f => f.dataset.source).join(' ')");
    QCOMPARE(m_engine->text(shown), sources);
    QVERIFY(typeset(count(".formula")));
    QVERIFY(m_engine
                ->value(QStringLiteral("[...document.querySelectorAll('.formula')].every(f => "
                                       "f.offsetWidth > 3 && f.offsetHeight > 3)"))
                .toBool());
}

void TestPageMath::otherTextStaysAsItIs_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    const auto row = [](const char *text, const char *shown = nullptr) {
        QTest::newRow(text) << QString::fromUtf8(text) << QString::fromUtf8(shown ? shown : text);
    };
    row("It costs $5 and $7.");
    row("between $5 and 10$ a month");
    row("from $5-$7, or US$5/CA$7");
    row("echo $HOME and $PATH");
    row("$HOME/bin:$PATH");
    row("export A=$B; export C=$D");
    row("$ x $ and $x $ and $ x$");
    row("an unfinished $x + y");
    row("an empty $$ and $$$$");
    row("$the price is what it is$");
    row("\\$x\\$", "$x$");
    row("`$x$` and `\\(y\\)`", "$x$ and \\(y\\)");
    row("```\n$x$\n$$y$$\n```", "$x$\n$$y$$");
    row("$$\na\n\nb\n$$", "$$ a\n\nb $$");
    row("a$b$c1");
}

void TestPageMath::otherTextStaysAsItIs()
{
    QFETCH(QString, text);
    QFETCH(QString, shown);
    QVERIFY(show(text));
    QCOMPARE(m_engine->text(QStringLiteral("document.getElementById('ct').innerText.trim()")),
             shown);
    QCOMPARE(count(".formula"), 0);
}

void TestPageMath::typesetterIsLoadedOnlyForFormulas()
{
    QVERIFY(show(QStringLiteral("no formula, but $5 and $7 and `$x$`")));
    const auto fonts = [this] {
        return m_engine
            ->value(QStringLiteral(
                "[...document.fonts].filter(f => f.family.includes('KaTeX')).length"))
            .toInt();
    };
    QCOMPARE(count("script[src*=math]"), 0);
    QCOMPARE(fonts(), 0);
    QVERIFY(show(QStringLiteral("$a$ and $b$")));
    QVERIFY(typeset(2));
    QCOMPARE(count("script[src*=math]"), 1);
    QCOMPARE(fonts(), 20);
    QCOMPARE(m_engine->text(QStringLiteral("typeof katex")), QStringLiteral("undefined"));
}

void TestPageMath::refusedFormulasShowTheirSource_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("unknown command") << QStringLiteral("$\\nosuchcommand{x}$");
    QTest::newRow("unbalanced") << QStringLiteral("$\\frac{a}{$");
    QTest::newRow("link") << QStringLiteral("$\\href{javascript:pwned=1}{x}$");
    QTest::newRow("address") << QStringLiteral("$\\url{https://a.example/}$");
    QTest::newRow("picture") << QStringLiteral("$\\includegraphics{https://a.example/x.png}$");
    QTest::newRow("style") << QStringLiteral("$\\htmlStyle{position:fixed}{x}$");
    QTest::newRow("class") << QStringLiteral("$\\htmlClass{group}{x}$");
    QTest::newRow("id") << QStringLiteral("$\\htmlId{ct}{x}$");
    QTest::newRow("endless macro") << QStringLiteral("$\\def\\a{\\a\\a}\\a$");
    QTest::newRow("exploding macro") << QStringLiteral(
        "$\\def\\a{xxxxxxxx}\\def\\b{\\a\\a\\a\\a\\a\\a\\a\\a}"
        "\\def\\c{\\b\\b\\b\\b\\b\\b\\b\\b}\\def\\d{\\c\\c\\c\\c\\c\\c\\c\\c}\\d$");
}

void TestPageMath::refusedFormulasShowTheirSource()
{
    QFETCH(QString, text);
    // The second formula shows when the first has been tried.
    QVERIFY(show(text + QStringLiteral(" and $z$")));
    QVERIFY(runUntil([&] { return count(".formula .katex") >= 1; }));
    QCOMPARE(m_engine->text(QStringLiteral("document.querySelector('.formula').textContent")),
             text);
    QCOMPARE(count("#ct a, #ct img"), 0);
    QCOMPARE(m_engine->text(QStringLiteral("typeof window.pwned")), QStringLiteral("undefined"));
}

void TestPageMath::formulasHaveTheirSizesAndFonts()
{
    QVERIFY(show(QStringLiteral("$\\dfrac{a}{b}$ and $\\vec{x}$ and $\\sqrt{y}$ and $x$")));
    QVERIFY(typeset(4));
    // Style attributes that the page's policy would drop are applied.
    const auto height = [this](int index) {
        return m_engine
            ->value(
                QStringLiteral("document.querySelectorAll('.formula')[%1].offsetHeight").arg(index))
            .toInt();
    };
    m_engine->window().grabWindow().save(QStringLiteral("/tmp/math.png"));
    QVERIFY(height(0) > height(3) + 4);
    QVERIFY(m_engine
                ->value(QStringLiteral("document.querySelectorAll('.formula')[1]"
                                       ".querySelector('svg').getBoundingClientRect().width > 2"))
                .toBool());
    QVERIFY(runUntil([&] {
        return m_engine->value(QStringLiteral("document.fonts.check('12px KaTeX_Math')")).toBool();
    }));
}

void TestPageMath::formulaStaysInItsPlace()
{
    QVERIFY(show(QStringLiteral("above\n\n$\\raisebox{15em}{over}\\kern-20em x$ and "
                                "$$\\rule{1000em}{1000em}$$\n\nbelow")));
    QVERIFY(typeset(2));
    // Its ink is clipped to its own box, which is as wide as the page at most.
    const QString above = QStringLiteral(
        "(() => { const r = document.querySelector('p').getBoundingClientRect();"
        "return document.elementFromPoint(r.x + 8, r.y + r.height / 2).closest('.formula'); })() "
        "=== null");
    m_engine->value(QStringLiteral("document.body.scrollTop = 0"));
    QVERIFY(m_engine->value(above).toBool());
    QVERIFY(m_engine
                ->value(QStringLiteral("[...document.querySelectorAll('.formula')].every(f => "
                                       "f.offsetWidth <= document.body.clientWidth)"))
                .toBool());
}

void TestPageMath::displayFormulasAreCentred()
{
    const QString wide = QStringLiteral("aaaaaaaaa+").repeated(20) + QStringLiteral("a");
    QVERIFY(show(QStringLiteral("so\n\n$$\na = b\n$$\n\n$$\n%1\n$$\n\nand $c$").arg(wide)));
    QVERIFY(typeset(3));
    // Distance of what is drawn from a side of the formula's line.
    const auto distance = [&](int at, const char *value) {
        return m_engine
            ->value(
                QStringLiteral("(() => { const line = document.querySelectorAll('.formula')[%1];"
                               "const boxes = [...line.querySelectorAll('.katex-base')]"
                               ".map(base => base.getBoundingClientRect());"
                               "const first = boxes[0], last = boxes[boxes.length - 1];"
                               "const frame = line.getBoundingClientRect(); return %2; })()")
                    .arg(at)
                    .arg(QLatin1StringView(value)))
            .toDouble();
    };
    constexpr auto left = "first.left - frame.left";
    constexpr auto right = "frame.right - last.right";
    QVERIFY(distance(0, left) > 50);
    QVERIFY(std::abs(distance(0, left) - distance(0, right)) < 2);
    // A wide one begins at the left and is scrolled.
    QVERIFY(distance(1, left) >= 0 && distance(1, left) < 10);
    QVERIFY(distance(1, right) < 0);
}

void TestPageMath::unfinishedFormulaIsText()
{
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                               std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    renderer.handleStreamChunk(QStringLiteral("Then $$a = "));
    const QString slot = QStringLiteral("document.getElementById('streaming-response').innerText");
    QVERIFY(runUntil([&] { return m_engine->text(slot).contains(QStringLiteral("$$a =")); }));
    QCOMPARE(count(".formula"), 0);
    renderer.handleStreamChunk(QStringLiteral("b$$ and "));
    QVERIFY(typeset(1));
    // Typeset ones are kept as they are while the paragraph grows.
    m_engine->value(QStringLiteral("window.kept = document.querySelector('.formula .katex')"));
    renderer.handleStreamChunk(QStringLiteral("more $c$ text"));
    QVERIFY(typeset(2));
    QVERIFY(
        m_engine->value(QStringLiteral("window.kept === document.querySelector('.formula .katex')"))
            .toBool());
    renderer.handleStreamEnd();
    QVERIFY(runUntil(
        [&] { return m_engine->text(slot).contains(QStringLiteral("text")) && typeset(2); }));
}

void TestPageMath::formulaReadsAsItsSource()
{
    QVERIFY(show(QStringLiteral("so \\( a < b \\)")));
    QVERIFY(typeset(1));
    const QString formula = QStringLiteral("document.querySelector('.formula')");
    QCOMPARE(m_engine->text(formula + QStringLiteral(".getAttribute('aria-label')")),
             QStringLiteral("a < b"));
    QCOMPARE(m_engine->text(formula + QStringLiteral(".getAttribute('role')")),
             QStringLiteral("math"));
}

void TestPageMath::hiddenClassInAnswerMeansNothing()
{
    QVERIFY(show(QStringLiteral("<span class=\"formula\" data-source=\"$x$\">a</span> "
                                "<div class=\"formula\">b</div>")));
    QCOMPARE(count(".formula"), 0);
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageMath>)

#include "test_page_math.moc"
