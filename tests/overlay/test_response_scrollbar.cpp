#include "PagePosition.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

// Size at the default panel size, in points. The track height is 532 - 2 * (22 + 4 + 4).
constexpr double columnWidth = 28;
constexpr double columnHeight = 532;
constexpr double trackHeight = 472;

} // namespace

class TestResponseScrollbar : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_bar = std::make_unique<ResponseScrollbarModel>();
        m_bar->setSize(columnWidth, columnHeight);
    }

    void framesUseYUpward()
    {
        QCOMPARE(m_bar->upButtonFrame(), QRectF(3, 506, 22, 22));
        QCOMPARE(m_bar->downButtonFrame(), QRectF(3, 4, 22, 22));
        QCOMPARE(m_bar->trackFrame(), QRectF(11, 30, 6, trackHeight));
    }

    void rectsUseYDownward()
    {
        QCOMPARE(m_bar->upButtonRect(), QRectF(3, 4, 22, 22));
        QCOMPARE(m_bar->downButtonRect(), QRectF(3, 506, 22, 22));
        QCOMPARE(m_bar->trackRect(), QRectF(11, 30, 6, trackHeight));
    }

    void trackIsEmptyIfTooSmall()
    {
        m_bar->setSize(28, 40);
        QCOMPARE(m_bar->trackFrame().height(), 0.0);
        reportPosition(*m_bar, 0, 1000, 100);
        QCOMPARE(m_bar->thumbFrame().height(), 0.0);
    }

    void disabledWithoutOverflow()
    {
        reportPosition(*m_bar, 0, 500, 500);
        QVERIFY(!m_bar->isEnabled());
        QCOMPARE(m_bar->thumbFrame(), QRectF(0, 0, 6, trackHeight));
        QCOMPARE(m_bar->thumbColor(), QColor(53, 57, 70));
        QCOMPARE(m_bar->arrowColor(), QColor(53, 57, 70));
        QSignalSpy pixels(m_bar.get(), &ResponseScrollbarModel::scrollByPixels);
        QSignalSpy up(m_bar.get(), &ResponseScrollbarModel::scrollUp);
        QSignalSpy down(m_bar.get(), &ResponseScrollbarModel::scrollDown);
        QSignalSpy fraction(m_bar.get(), &ResponseScrollbarModel::thumbFractionChanged);
        m_bar->scrollByLines(1);
        m_bar->scrollPrecisely(10);
        m_bar->pressUp();
        m_bar->pressDown();
        m_bar->scrollByPage(1);
        m_bar->scrollToFraction(1);
        QVERIFY(!m_bar->mouseDown({14, 100}));
        m_bar->mouseDragged({14, 200});
        QCOMPARE(pixels.size() + up.size() + down.size() + fraction.size(), 0);
    }

    void enabledOnOverflow()
    {
        QSignalSpy enabled(m_bar.get(), &ResponseScrollbarModel::enabledChanged);
        reportPosition(*m_bar, 0, 1064, 532);
        QCOMPARE(enabled.size(), 1);
        QVERIFY(m_bar->isEnabled());
        QCOMPARE(m_bar->thumbColor(), QColor(69, 74, 90));
        QCOMPARE(m_bar->arrowColor(), QColor(191, 191, 191));
        QCOMPARE(m_bar->thumbRatio(), 0.5);
        // At the top, the thumb touches the track's upper end.
        QCOMPARE(m_bar->thumbFrame(), QRectF(0, 236, 6, 236));
        QCOMPARE(m_bar->thumbRect(), QRectF(11, 30, 6, 236));
    }

    void positionIsClamped_data()
    {
        QTest::addColumn<double>("reported");
        QTest::addColumn<double>("fraction");
        QTest::newRow("top") << 0.0 << 0.0;
        QTest::newRow("middle") << 0.5 << 0.5;
        QTest::newRow("bottom") << 1.0 << 1.0;
        QTest::newRow("beyond the bottom") << 1.1 << 1.0;
        QTest::newRow("beyond the top") << -0.1 << 0.0;
    }
    void positionIsClamped()
    {
        QFETCH(double, reported);
        QFETCH(double, fraction);
        m_bar->setPosition(true, 0.25, reported);
        QCOMPARE(m_bar->fraction(), fraction);
    }

    void thumbHasMinimumHeight()
    {
        reportPosition(*m_bar, 0, 1e7, 500);
        QCOMPARE(m_bar->thumbFrame().height(), 28.0);
        reportPosition(*m_bar, 1e7 - 500, 1e7, 500);
        QCOMPARE(m_bar->thumbFrame(), QRectF(0, 0, 6, 28));
    }

    void ratioIsClamped()
    {
        m_bar->setPosition(true, -10, 0);
        QVERIFY(m_bar->isEnabled());
        QCOMPARE(m_bar->thumbRatio(), 0.0);
        m_bar->setPosition(true, 2, 0);
        QCOMPARE(m_bar->thumbRatio(), 1.0);
    }

    void dragMovesThumb()
    {
        reportPosition(*m_bar, 0, 1064, 532); // thumb 236 high, travel 236
        QSignalSpy fraction(m_bar.get(), &ResponseScrollbarModel::thumbFractionChanged);
        QVERIFY(m_bar->mouseDown({14, 40}));
        QVERIFY(m_bar->isDragging());
        m_bar->mouseDragged({14, 40 + 59});
        QCOMPARE(fraction.takeFirst().first().toDouble(), 0.25);
        QCOMPARE(m_bar->thumbRect().y(), 30 + 59.0);
        m_bar->mouseUp();
        QVERIFY(!m_bar->isDragging());
        m_bar->mouseDragged({14, 300});
        QCOMPARE(fraction.size(), 0);
    }

    void dragIsClampedAtEnds()
    {
        reportPosition(*m_bar, 266, 1064, 532);
        QVERIFY(m_bar->mouseDown(m_bar->thumbRect().center()));
        m_bar->mouseDragged({14, 5000});
        QCOMPARE(m_bar->fraction(), 1.0);
        m_bar->mouseDragged({14, -5000});
        QCOMPARE(m_bar->fraction(), 0.0);
    }

    void dragOfFullHeightThumbDoesNotDivideByZero()
    {
        reportPosition(*m_bar, 0, 500.5, 500);
        m_bar->setSize(28, 80); // track 20 high, below the minimum thumb height
        QVERIFY(m_bar->mouseDown(m_bar->thumbRect().center()));
        m_bar->mouseDragged(m_bar->thumbRect().center() + QPointF(0, 3));
        QCOMPARE(m_bar->fraction(), 1.0);
    }

    void dragIgnoresReportedPosition()
    {
        reportPosition(*m_bar, 0, 1064, 532);
        QVERIFY(m_bar->mouseDown({14, 40}));
        m_bar->mouseDragged({14, 99});
        reportPosition(*m_bar, 0, 4000, 532);
        QCOMPARE(m_bar->fraction(), 0.25);
        QCOMPARE(m_bar->thumbRatio(), 0.5);
        reportPosition(*m_bar, 0, 400, 532);
        QVERIFY(!m_bar->isEnabled()); // isEnabled is still applied
        m_bar->mouseUp();
        reportPosition(*m_bar, 0, 4000, 532);
        QCOMPARE(m_bar->fraction(), 0.0);
    }

    void growingContentDoesNotMoveDraggedThumb()
    {
        reportPosition(*m_bar, 532, 1064, 532);
        QVERIFY(m_bar->mouseDown(m_bar->thumbRect().center()));
        m_bar->mouseDragged(m_bar->thumbRect().center() - QPointF(0, 118));
        const QRectF before = m_bar->thumbRect();
        QSignalSpy fraction(m_bar.get(), &ResponseScrollbarModel::thumbFractionChanged);
        for (int height = 1200; height < 5000; height += 100)
            reportPosition(*m_bar, height - 532, height, 532);
        QCOMPARE(m_bar->thumbRect(), before);
        QCOMPARE(fraction.size(), 0);
        // After the release, reports are applied again.
        m_bar->mouseUp();
        QCOMPARE(m_bar->thumbRect(), before);
        reportPosition(*m_bar, 4468, 5000, 532);
        QCOMPARE(m_bar->fraction(), 1.0);
        QCOMPARE(m_bar->thumbRatio(), 532.0 / 5000);
    }

    void keysScroll()
    {
        reportPosition(*m_bar, 0, 2000, 500);
        QSignalSpy up(m_bar.get(), &ResponseScrollbarModel::scrollUp);
        QSignalSpy down(m_bar.get(), &ResponseScrollbarModel::scrollDown);
        QSignalSpy pixels(m_bar.get(), &ResponseScrollbarModel::scrollByPixels);
        QSignalSpy fraction(m_bar.get(), &ResponseScrollbarModel::thumbFractionChanged);
        for (const int key : {Qt::Key_Up, Qt::Key_Down, Qt::Key_PageUp, Qt::Key_PageDown,
                              Qt::Key_Home, Qt::Key_End})
            QVERIFY(m_bar->handleKey(key));
        QCOMPARE(up.size(), 1);
        QCOMPARE(down.size(), 1);
        QCOMPARE(pixels.size(), 2);
        QCOMPARE(fraction.at(0).first().toDouble(), 0.0);
        QCOMPARE(fraction.at(1).first().toDouble(), 1.0);
        QVERIFY(!m_bar->handleKey(Qt::Key_Left));
    }

    void pressOnTrackHasNoEffect()
    {
        reportPosition(*m_bar, 0, 1064, 532);
        QSignalSpy fraction(m_bar.get(), &ResponseScrollbarModel::thumbFractionChanged);
        QVERIFY(!m_bar->mouseDown({14, 450}));
        QVERIFY(!m_bar->mouseDown({2, 40}));
        m_bar->mouseDragged({14, 460});
        QCOMPARE(fraction.size(), 0);
    }

    void wheelAndTouchpad()
    {
        reportPosition(*m_bar, 0, 2000, 500);
        QSignalSpy pixels(m_bar.get(), &ResponseScrollbarModel::scrollByPixels);
        m_bar->scrollPrecisely(-10);
        QCOMPARE(pixels.takeFirst().first().toDouble(), 10.0);
        m_bar->scrollByLines(-1);
        QCOMPARE(pixels.takeFirst().first().toDouble(), 40.0);
        m_bar->scrollByLines(0.5);
        QCOMPARE(pixels.takeFirst().first().toDouble(), -20.0);
    }

    void arrowsAndPageScrolling()
    {
        reportPosition(*m_bar, 0, 2000, 500);
        QSignalSpy up(m_bar.get(), &ResponseScrollbarModel::scrollUp);
        QSignalSpy down(m_bar.get(), &ResponseScrollbarModel::scrollDown);
        QSignalSpy pixels(m_bar.get(), &ResponseScrollbarModel::scrollByPixels);
        QSignalSpy fraction(m_bar.get(), &ResponseScrollbarModel::thumbFractionChanged);
        m_bar->pressUp();
        m_bar->pressDown();
        QCOMPARE(up.size(), 1);
        QCOMPARE(down.size(), 1);
        m_bar->scrollByPage(1);
        m_bar->scrollByPage(-1);
        QCOMPARE(pixels.at(0).first().toDouble(), columnHeight - 40);
        QCOMPARE(pixels.at(1).first().toDouble(), 40 - columnHeight);
        m_bar->scrollToFraction(1);
        QCOMPARE(fraction.takeFirst().first().toDouble(), 1.0);
        // The position changes only when the page reports it.
        QCOMPARE(m_bar->fraction(), 0.0);
    }

private:
    std::unique_ptr<ResponseScrollbarModel> m_bar;
};

QUELLORA_TEST(QCoreApplication, TestResponseScrollbar)
#include "test_response_scrollbar.moc"
