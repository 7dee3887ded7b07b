#include "overlay/EnginePageTest.h"
#include "overlay/page/StreamingRenderer.h"
#include "overlay/page/WebEngineSetup.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QImage>

#include <utility>

using namespace quellora;

/// The Copy buttons of code blocks, as far as a page and its user can tell: their layer is closed,
/// so they are found by what is under a point and by what has the focus.
class TestPageCopyButtons : public EnginePageTest
{
    Q_OBJECT

private slots:
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
    /// How many pixels of the first block's button have about this colour: in its left part, where
    /// the glyph is, and in the rest.
    std::pair<int, int> inkInButton(QColor ink, int buttonWidth);
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
    // One that goes away takes its button along.
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
                       "(function watch() { const wide = width() > narrow + 10;"
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

std::pair<int, int> TestPageCopyButtons::inkInButton(QColor ink, int buttonWidth)
{
    const QVariantList corner =
        m_engine
            ->value(QStringLiteral("(() => { const r = document.querySelector('pre')"
                                   ".getBoundingClientRect(); return [r.right, r.top]; })()"))
            .toList();
    const QImage picture = m_engine->window().grabWindow();
    const QRect button(qRound(corner.value(0).toDouble()) - 6 - buttonWidth,
                       qRound(corner.value(1).toDouble()) + 6, buttonWidth, 24);
    std::pair<int, int> found{0, 0};
    for (int y = button.top() + 4; y < button.bottom() - 4; ++y) {
        for (int x = button.left() + 4; x < button.right() - 4; ++x) {
            const QColor color = picture.pixelColor(x, y);
            const int distance = qAbs(color.red() - ink.red()) + qAbs(color.green() - ink.green()) +
                                 qAbs(color.blue() - ink.blue());
            if (distance < 60)
                ++(x < button.left() + 21 ? found.first : found.second);
        }
    }
    return found;
}

void TestPageCopyButtons::buttonHasItsGlyphAndColors_data()
{
    QTest::addColumn<AppTheme>("theme");
    QTest::addColumn<QColor>("ink");
    QTest::addColumn<QColor>("success");
    QTest::newRow("dark") << AppTheme::Dark << QColor(0xe8e8ea) << QColor(0x4cc38a);
    QTest::newRow("light") << AppTheme::Light << QColor(0x1c1e24) << QColor(0x1a7f4b);
}

void TestPageCopyButtons::buttonHasItsGlyphAndColors()
{
    QFETCH(AppTheme, theme);
    QFETCH(QColor, ink);
    QFETCH(QColor, success);
    m_display->setAppliedTheme(theme);
    QVERIFY(show(twoBlocks));
    // The widths of the faces of "Copy" and "Copied", with glyph, gap and padding.
    constexpr int copy = 63;
    constexpr int copied = 75;
    QVERIFY(runUntil([&] {
        const auto [glyph, text] = inkInButton(ink, copy);
        return glyph > 15 && text > 15;
    }));
    QCOMPARE(inkInButton(success, copy), (std::pair{0, 0}));
    const QVariantList corner =
        m_engine
            ->value(QStringLiteral("(() => { const r = document.querySelector('pre')"
                                   ".getBoundingClientRect(); return [r.right, r.top]; })()"))
            .toList();
    QTest::mouseClick(&m_engine->window(), Qt::LeftButton, {},
                      QPoint(corner[0].toInt() - 20, corner[1].toInt() + 18));
    QVERIFY(runUntil([&] {
        const auto [glyph, text] = inkInButton(success, copied);
        return glyph > 8 && text > 15 && inkInButton(ink, copied).first == 0;
    }));
    QVERIFY(runUntil([&] { return inkInButton(success, copied) == std::pair{0, 0}; }));
}

void TestPageCopyButtons::buttonsAppearWhenTheStreamEnds()
{
    StreamingRenderer renderer(*m_display);
    renderer.handleStreamStart(std::nullopt, QStringLiteral("q"), QDateTime::currentDateTime(),
                               std::nullopt);
    QVERIFY(runUntil([&] { return renderer.isStreamingShellReady(); }));
    renderer.handleStreamChunk(twoBlocks);
    const QString blocks = QStringLiteral("document.getElementsByTagName('pre').length");
    QVERIFY(runUntil([&] { return m_engine->value(blocks).toInt() == 2; }));
    QVERIFY(painted());
    QVERIFY(!hasButton(0));
    renderer.handleStreamEnd();
    QVERIFY(runUntil([&] { return hasButton(0) && hasButton(1); }));
}

int main(int argc, char **argv)
{
    prepareWebEngine();
    QGuiApplication app(argc, argv);
    TestPageCopyButtons test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_page_copy_buttons.moc"
