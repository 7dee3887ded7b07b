#include "page/EnginePageTest.h"
#include "page/StreamingRenderer.h"
#include "support/TestProgram.h"

#include <QSignalSpy>

using namespace quellora;

/// A growing answer follows its end until the reader scrolls away from it.
class TestPageFollowing : public EnginePageTest
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        m_renderer.reset();
        EnginePageTest::cleanup();
    }

    void followsTheEnd();
    void staysWhereTheReaderScrolled_data();
    void staysWhereTheReaderScrolled();
    void followsAgainFromTheEnd();
    void endOfTheStreamMovesNothing();
    void visibilityOfTheEndIsReported();
    void nextAnswerIsFollowed();

private:
    void start()
    {
        m_lines = 0;
        m_renderer = std::make_unique<StreamingRenderer>(*m_display);
        m_renderer->handleStreamStart(std::nullopt, QStringLiteral("q"),
                                      QDateTime::currentDateTime(), std::nullopt);
        QVERIFY(finished(m_display->latestPage()));
        add(60);
        QVERIFY(isAtEnd());
    }
    /// Streams lines and waits until they are shown.
    void add(int lines)
    {
        m_lines += lines;
        for (int i = 0; i < lines; ++i)
            m_renderer->handleStreamChunk(QStringLiteral("line\n\n"));
        QVERIFY(runUntil([this] {
            return m_engine->value(QStringLiteral("document.querySelectorAll('#ct p').length"))
                       .toInt() == m_lines;
        }));
        QVERIFY(m_engine->painted());
    }
    double position()
    {
        return m_engine->value(QStringLiteral("document.body.scrollTop")).toDouble();
    }
    bool isAtEnd()
    {
        return m_engine
            ->value(QStringLiteral("document.body.scrollHeight - document.body.clientHeight - "
                                   "document.body.scrollTop <= 4"))
            .toBool();
    }
    /// Scrolls as the scrollbar does and waits for it.
    void scrollUp()
    {
        const double before = position();
        m_display->scrollByPixels(-200);
        QVERIFY(runUntil([&] { return position() < before - 150; }));
        QVERIFY(m_engine->painted());
    }

    std::unique_ptr<StreamingRenderer> m_renderer;
    int m_lines = 0;
};

void TestPageFollowing::followsTheEnd()
{
    start();
    for (int i = 0; i < 5; ++i) {
        add(3);
        QVERIFY(isAtEnd());
    }
}

void TestPageFollowing::staysWhereTheReaderScrolled_data()
{
    QTest::addColumn<QString>("way");
    for (const char *way : {"wheel", "arrow", "page up", "home", "scrollbar"})
        QTest::newRow(way) << QString::fromLatin1(way);
}

void TestPageFollowing::staysWhereTheReaderScrolled()
{
    QFETCH(QString, way);
    start();
    const double end = position();
    QQuickView &window = m_engine->window();
    QVERIFY(m_engine->focus(QStringLiteral("document.body")));
    if (way == QLatin1StringView("wheel")) {
        QWheelEvent wheel(QPointF(200, 200), QPointF(200, 200), {}, QPoint(0, 120), Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&window, &wheel);
    } else if (way == QLatin1StringView("arrow")) {
        QTest::keyClick(&window, Qt::Key_Up);
    } else if (way == QLatin1StringView("page up")) {
        QTest::keyClick(&window, Qt::Key_PageUp);
    } else if (way == QLatin1StringView("home")) {
        QTest::keyClick(&window, Qt::Key_Home);
    } else {
        m_display->scrollToFraction(0.5);
    }
    QVERIFY(runUntil([&] { return position() < end - 10; }));
    // Smooth scrolling goes on for some frames.
    double last = -1;
    QVERIFY(runUntil([&] {
        m_engine->painted();
        return std::exchange(last, position()) == position();
    }));
    add(5);
    QCOMPARE(position(), last);
}

void TestPageFollowing::followsAgainFromTheEnd()
{
    start();
    scrollUp();
    add(5);
    QVERIFY(!isAtEnd());
    m_display->scrollToFraction(1);
    QVERIFY(runUntil([this] { return isAtEnd(); }));
    QVERIFY(m_engine->painted());
    add(5);
    QVERIFY(isAtEnd());
}

void TestPageFollowing::endOfTheStreamMovesNothing()
{
    start();
    scrollUp();
    const double there = position();
    m_renderer->handleStreamChunk(QStringLiteral("```cpp\nint a;\n```\n"));
    m_renderer->handleStreamEnd();
    QVERIFY(runUntil([this] {
        return m_engine->value(QStringLiteral("!!document.querySelector('code.hljs')")).toBool();
    }));
    QVERIFY(m_engine->painted());
    QCOMPARE(position(), there);
}

void TestPageFollowing::visibilityOfTheEndIsReported()
{
    start();
    QSignalSpy reports(m_display.get(), &ResponseDisplay::endVisibilityChanged);
    const auto isLast = [&](bool isVisible) {
        return runUntil(
            [&] { return !reports.isEmpty() && reports.last().first().toBool() == isVisible; });
    };
    scrollUp();
    QVERIFY(isLast(false));
    m_display->scrollToFraction(1);
    QVERIFY(isLast(true));
    // Also when text is added that scrolls nothing.
    scrollUp();
    QVERIFY(isLast(false));
    reports.clear();
    add(1);
    QVERIFY(isLast(false));
}

void TestPageFollowing::nextAnswerIsFollowed()
{
    start();
    scrollUp();
    start();
}

QUELLORA_TEST_MAIN(runEngineTest<TestPageFollowing>)

#include "test_page_following.moc"
