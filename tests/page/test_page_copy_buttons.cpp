#include "page/EnginePageTest.h"
#include "page/StreamingRenderer.h"
#include "page/WebEngineSetup.h"
#include "support/TestProgram.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QImage>

#include <algorithm>

using namespace quellora;

/// The Copy buttons of code blocks, as far as a page and its user can tell: their layer is closed,
/// so they are found by what is under a point and by what has the focus.
class TestPageCopyButtons : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void pageItselfStaysAsItIs();
    void everyFinishedBlockHasOne();
    void buttonsFollowScrollingAndResizing();
    void tabReachesThemInOrder();
    void buttonSaysCopiedForAWhile();
    void buttonHasItsGlyphAndColors_data();
    void buttonHasItsGlyphAndColors();
    void buttonsAppearWhenTheStreamEnds();

private:
    bool show(const QString &markdown)
    {
        return finished(m_display->loadContent(markdown)) && painted();
    }
    /// Two frames, in which the buttons have been put into their places.
    bool painted() { return m_engine->painted(); }
    /// How many pixels of the first block's button are drawn upon, in the glyph and in the text, in
    /// the usual colour and in green.
    struct Ink
    {
        int glyph[2] = {0, 0};
        int text[2] = {0, 0};
        QColor purest{Qt::black};
    };
    Ink inkInButton(int width);
    /// Whether a button covers the corner of the block with this number.
    bool hasButton(int block)
    {
        return m_engine
            ->value(QStringLiteral("(() => { const r = document.querySelectorAll('pre')[%1]"
                                   ".getBoundingClientRect();"
                                   "const e = document.elementFromPoint(r.right - 20, r.top + 18);"
                                   "return !!e && e !== document.body && "
                                   "e.parentElement === document.documentElement; })()")
                        .arg(block))
            .toBool();
    }
};

namespace {

const QString twoBlocks = QStringLiteral("a\n\n```cpp\nint a;\n```\n\nb\n\n```\nplain\n```\n");
const QString farBlock = QStringLiteral("```\nfirst\n```\n\n") +
                         QStringLiteral("text\n\n").repeated(60) +
                         QStringLiteral("```\nlast\n```\n");

} // namespace

void TestPageCopyButtons::pageItselfStaysAsItIs()
{
    QVERIFY(show(twoBlocks));
    QVERIFY(hasButton(0));
    // One layer behind the body; nothing in the body, nothing that scripts could reach.
    QCOMPARE(m_engine->text(QStringLiteral("[...document.documentElement.children]"
                                           ".map(e => e.localName).join()")),
             QStringLiteral("head,body,div"));
    QCOMPARE(m_engine->value(QStringLiteral("document.querySelectorAll('button').length")).toInt(),
             0);
    QVERIFY(m_engine
                ->value(QStringLiteral("document.documentElement.lastChild.shadowRoot === null && "
                                       "document.documentElement.lastChild.innerHTML === ''"))
                .toBool());
    QCOMPARE(m_engine->text(QStringLiteral("[...document.querySelectorAll('pre')]"
                                           ".map(e => e.innerText.trim()).join()")),
             QStringLiteral("int a;,plain"));
}

void TestPageCopyButtons::everyFinishedBlockHasOne()
{
    QVERIFY(show(twoBlocks));
    QVERIFY(hasButton(0));
    QVERIFY(hasButton(1));
    // A block that is removed loses its button.
    m_engine->value(QStringLiteral("window.r = document.querySelectorAll('pre')[1]"
                                   ".getBoundingClientRect();"
                                   "document.querySelectorAll('pre')[1].remove();"));
    QVERIFY(painted());
    QVERIFY(m_engine
                ->value(QStringLiteral("document.elementFromPoint(r.right - 20, r.top + 18)"
                                       ".closest('body') !== null"))
                .toBool());
}

void TestPageCopyButtons::buttonsFollowScrollingAndResizing()
{
    QVERIFY(show(farBlock));
    QVERIFY(hasButton(0));
    m_engine->value(QStringLiteral("document.body.scrollTop = 20"));
    QVERIFY(painted());
    QVERIFY(hasButton(0));
    m_engine->value(QStringLiteral("document.body.scrollTop = document.body.scrollHeight"));
    QVERIFY(painted());
    QVERIFY(hasButton(1));
    QVERIFY(!m_engine
                 ->value(QStringLiteral("[...Array(60).keys()].some(i => { const e = "
                                        "document.elementFromPoint(innerWidth - 40, 40 + i * 4);"
                                        "return e && e.parentElement === document.documentElement "
                                        "&& e !== document.body; })"))
                 .toBool());
    m_engine->value(QStringLiteral("document.body.scrollTop = 0"));
    QVERIFY(painted());
    QVERIFY(hasButton(0));

    m_engine->view.item()->setWidth(420);
    QVERIFY(runUntil([&] { return m_engine->value(QStringLiteral("innerWidth")).toInt() == 420; }));
    QVERIFY(painted());
    QVERIFY(hasButton(0));
}

void TestPageCopyButtons::tabReachesThemInOrder()
{
    QVERIFY(show(farBlock));
    QGuiApplication::clipboard()->setText(QStringLiteral("before"));
    m_engine->window().requestActivate();
    m_engine->view.item()->forceActiveFocus();
    const QString focused =
        QStringLiteral("document.activeElement.parentElement === document.documentElement && "
                       "document.activeElement !== document.body");
    QTest::keyClick(&m_engine->window(), Qt::Key_Tab);
    QVERIFY(runUntil([&] { return m_engine->value(focused).toBool(); }));
    QTest::keyClick(&m_engine->window(), Qt::Key_Return);
    ENGINE_TRY_COMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("first\n"));
    // The other block is far below; it comes into sight with its button.
    QCOMPARE(m_engine->value(QStringLiteral("document.body.scrollTop")).toInt(), 0);
    QTest::keyClick(&m_engine->window(), Qt::Key_Tab);
    QVERIFY(runUntil(
        [&] { return m_engine->value(QStringLiteral("document.body.scrollTop")).toInt() > 0; }));
    QVERIFY(painted());
    QVERIFY(hasButton(1));
    QTest::keyClick(&m_engine->window(), Qt::Key_Return);
    ENGINE_TRY_COMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("last\n"));
}

void TestPageCopyButtons::buttonSaysCopiedForAWhile()
{
    QVERIFY(show(twoBlocks));
    const QVariantList corner =
        m_engine
            ->value(QStringLiteral("(() => { const r = document.querySelector('pre')"
                                   ".getBoundingClientRect(); return [r.right, r.top]; })()"))
            .toList();
    QCOMPARE(corner.size(), 2);
    // "Copied" with its mark is wider than "Copy"; the page sees how far the button reaches.
    m_engine->value(
        QStringLiteral("window.width = () => { let x = %1 - 20; while (document.elementFromPoint(x,"
                       " %2).parentElement === document.documentElement) --x; return %1 - x; };"
                       "window.narrow = width(); window.changes = [];"
                       "(function watch() { const wide = width() > narrow + 5;"
                       "if (wide !== (changes.length %% 2 === 1)) changes.push(performance.now());"
                       "requestAnimationFrame(watch); })()")
            .replace(QStringLiteral("%%"), QStringLiteral("%"))
            .arg(corner[0].toInt())
            .arg(corner[1].toInt() + 18));
    QTest::mouseClick(&m_engine->window(), Qt::LeftButton, {},
                      QPoint(corner[0].toInt() - 20, corner[1].toInt() + 18));
    QVERIFY(
        runUntil([&] { return m_engine->value(QStringLiteral("changes.length")).toInt() == 2; }));
    const double shown = m_engine->value(QStringLiteral("changes[1] - changes[0]")).toDouble();
    QVERIFY2(shown > 1400, qPrintable(QString::number(shown)));
}

TestPageCopyButtons::Ink TestPageCopyButtons::inkInButton(int width)
{
    const QVariantList corner =
        m_engine
            ->value(QStringLiteral("(() => { const r = document.querySelector('pre')"
                                   ".getBoundingClientRect(); return [r.right, r.top]; })()"))
            .toList();
    const QImage picture = m_engine->window().grabWindow();
    const QRect button(qRound(corner.value(0).toDouble()) - 6 - width,
                       qRound(corner.value(1).toDouble()) + 6, width, 24);
    const QColor ground = picture.pixelColor(button.topLeft() + QPoint(4, 4));
    Ink found;
    for (int y = button.top() + 4; y < button.bottom() - 4; ++y) {
        for (int x = button.left() + 4; x < button.right() - 4; ++x) {
            const QColor color = picture.pixelColor(x, y);
            if (qAbs(color.green() - ground.green()) < 60)
                continue;
            const bool isGreen = color.green() - color.red() > 40;
            ++(x < button.left() + 23 ? found.glyph[isGreen] : found.text[isGreen]);
            if (isGreen)
                found.purest = std::max(found.purest, color, [](const QColor &a, const QColor &b) {
                    return a.hsvSaturation() < b.hsvSaturation();
                });
        }
    }
    return found;
}

void TestPageCopyButtons::buttonHasItsGlyphAndColors_data()
{
    QTest::addColumn<AppTheme>("theme");
    QTest::addColumn<QColor>("success");
    QTest::newRow("dark") << AppTheme::Dark << QColor(0x4cc38a);
    QTest::newRow("light") << AppTheme::Light << QColor(0x1a7f4b);
}

void TestPageCopyButtons::buttonHasItsGlyphAndColors()
{
    QFETCH(AppTheme, theme);
    QFETCH(QColor, success);
    m_display->setAppliedTheme(theme);
    QVERIFY(show(twoBlocks));
    // The widths of the button with its two texts.
    constexpr int copy = 63;
    constexpr int copied = 74;
    QVERIFY(runUntil([&] {
        const Ink ink = inkInButton(copy);
        return ink.glyph[false] > 20 && ink.text[false] > 20 &&
               ink.glyph[true] + ink.text[true] == 0;
    }));
    const QVariantList corner =
        m_engine
            ->value(QStringLiteral("(() => { const r = document.querySelector('pre')"
                                   ".getBoundingClientRect(); return [r.right, r.top]; })()"))
            .toList();
    QTest::mouseClick(&m_engine->window(), Qt::LeftButton, {},
                      QPoint(corner[0].toInt() - 20, corner[1].toInt() + 18));
    QVERIFY(runUntil([&] {
        const Ink ink = inkInButton(copied);
        return ink.glyph[true] > 4 && ink.text[true] > 20 &&
               ink.glyph[false] + ink.text[false] == 0;
    }));
    const QColor green = inkInButton(copied).purest;
    QVERIFY2(qAbs(green.hue() - success.hue()) < 12, qPrintable(green.name()));
    QVERIFY(runUntil([&] { return inkInButton(copy).text[true] == 0; }));
}

void TestPageCopyButtons::buttonsAppearWhenTheStreamEnds()
{
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                               std::nullopt);
    QVERIFY(finished(m_display->latestPage()));
    renderer.handleStreamChunk(twoBlocks);
    const QString blocks = QStringLiteral("document.getElementsByTagName('pre').length");
    QVERIFY(runUntil([&] { return m_engine->value(blocks).toInt() == 2; }));
    QVERIFY(painted());
    QVERIFY(!hasButton(0));
    renderer.handleStreamEnd();
    QVERIFY(runUntil([&] { return hasButton(0) && hasButton(1); }));
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageCopyButtons>)

#include "test_page_copy_buttons.moc"
