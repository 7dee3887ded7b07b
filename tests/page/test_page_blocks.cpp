#include "page/EnginePageTest.h"
#include "support/TestProgram.h"

using namespace quellora;

/// Tables, task lists and footnotes in answers.
class TestPageBlocks : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void footnotesAreShown();
    void taskItemHasItsBoxInsteadOfABullet();
    void wideTableScrollsInItself();
    void tableColumnsKeepTheirAlignment();

private:
    bool show(const QString &markdown)
    {
        return finished(m_display->loadContent(markdown)) && m_engine->painted();
    }
    QString text(const char *expression) { return m_engine->text(QLatin1StringView(expression)); }
    bool holds(const char *expression)
    {
        return m_engine->value(QLatin1StringView(expression)).toBool();
    }
};

void TestPageBlocks::footnotesAreShown()
{
    QVERIFY(show(QStringLiteral("a[^1] and b[^note]\n\n[^1]: https://a.example/\n"
                                "[^note]: *see* there\n")));
    QCOMPARE(text("[...document.querySelectorAll('#ct sup')].map(e => e.textContent).join()"),
             QStringLiteral("1,note,1,note"));
    QCOMPARE(text("[...document.querySelectorAll('#ct p')].map(e => e.textContent).join('|')"),
             QStringLiteral("a1 and bnote|1 https://a.example/|note see there"));
    QCOMPARE(text("document.querySelector('#ct em').textContent"), QStringLiteral("see"));
    // The mark is no label of a link.
    QCOMPARE(text("[...document.querySelectorAll('#ct a')].map(e => e.textContent).join()"),
             QStringLiteral("https://a.example/"));
}

void TestPageBlocks::taskItemHasItsBoxInsteadOfABullet()
{
    QVERIFY(show(QStringLiteral("- [ ] open\n- [x] done\n- plain\n")));
    QCOMPARE(text("[...document.querySelectorAll('li')].map(e => "
                  "getComputedStyle(e).listStyleType).join()"),
             QStringLiteral("none,none,disc"));
    QCOMPARE(text("[...document.querySelectorAll('li input')].map(e => e.checked).join()"),
             QStringLiteral("false,true"));
    QVERIFY(holds("[...document.querySelectorAll('li input')].every(e => e.disabled)"));
    // Texts begin at the same place with and without a box.
    QVERIFY(holds("(() => { const lefts = [...document.querySelectorAll('li')].map(e => {"
                  "const r = document.createRange(); r.selectNodeContents(e.lastChild);"
                  "const t = e.lastChild.data; r.setStart(e.lastChild, t.search(/\\S/));"
                  "return r.getBoundingClientRect().left; });"
                  "return Math.max(...lefts) - Math.min(...lefts) < 4; })()"));
}

void TestPageBlocks::wideTableScrollsInItself()
{
    const QString cells =
        QStringLiteral("|averylongwordinacell").repeated(12) + QLatin1String("|\n");
    QVERIFY(show(cells + QStringLiteral("|-").repeated(12) + QLatin1String("|\n") + cells));
    QVERIFY(holds("document.querySelector('table').scrollWidth > "
                  "document.querySelector('table').clientWidth"));
    QVERIFY(holds("document.body.scrollWidth === document.body.clientWidth"));
    QVERIFY(holds("parseFloat(getComputedStyle(document.querySelector('td')).borderTopWidth) > 0"));
}

void TestPageBlocks::tableColumnsKeepTheirAlignment()
{
    QVERIFY(show(QStringLiteral("|a|b|c|\n|:-|-:|-|\n|1|2|3|\n")));
    QCOMPARE(text("[...document.querySelectorAll('th, td')].map(e => "
                  "getComputedStyle(e).textAlign.replace('-webkit-', '')).join()"),
             QStringLiteral("left,right,left,left,right,start"));
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageBlocks>)

#include "test_page_blocks.moc"
