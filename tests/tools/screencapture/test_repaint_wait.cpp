#include "screencapture/RepaintWait.h"
#include "support/TestProgram.h"

#include <QTest>

using namespace quellora::screencapture;
using namespace std::chrono_literals;

namespace {

const RepaintWait::Time start = RepaintWait::Time() + 1h;
const Rect area{100, 100, 50, 50};

} // namespace

class RepaintWaitTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void doesNotWaitWithoutAreas()
    {
        QVERIFY(!RepaintWait({}, start).nextCheck(start));
        QVERIFY(!RepaintWait({Region(), Region()}, start).nextCheck(start));
    }

    void givesUpWithoutDrawing()
    {
        const RepaintWait wait({Region(area)}, start);
        QCOMPARE(*wait.nextCheck(start), start + RepaintWait::firstDrawLimit);
        QVERIFY(!wait.nextCheck(start + RepaintWait::firstDrawLimit));
    }

    void completeDrawingWaitsShortPause()
    {
        RepaintWait wait({Region(area)}, start);
        wait.drawn(0, {0, 0, 500, 500}, start + 5ms);
        QCOMPARE(*wait.nextCheck(start + 5ms), start + 5ms + RepaintWait::shortPause);
        QVERIFY(!wait.nextCheck(start + 5ms + RepaintWait::shortPause));
    }

    void laterDrawingRestartsShortPause()
    {
        RepaintWait wait({Region(area)}, start);
        wait.drawn(0, area, start + 5ms);
        wait.drawn(0, {110, 110, 5, 5}, start + 7ms);
        QCOMPARE(*wait.nextCheck(start + 7ms), start + 7ms + RepaintWait::shortPause);
    }

    void partialDrawingWaitsLongPause()
    {
        RepaintWait wait({Region(area)}, start);
        wait.drawn(0, {100, 100, 50, 25}, start + 5ms);
        QCOMPARE(*wait.nextCheck(start + 6ms), start + 5ms + RepaintWait::longPause);
        wait.drawn(0, {100, 125, 50, 25}, start + 9ms);
        QCOMPARE(*wait.nextCheck(start + 9ms), start + 9ms + RepaintWait::shortPause);
    }

    void ignoresDrawingOutsideArea()
    {
        RepaintWait wait({Region(area)}, start);
        wait.drawn(0, {0, 0, 50, 50}, start + 5ms);
        QCOMPARE(*wait.nextCheck(start + 5ms), start + RepaintWait::firstDrawLimit);
    }

    void waitsForEveryWindow()
    {
        RepaintWait wait({Region(area), Region(), Region(area)}, start);
        wait.drawn(0, area, start + 1ms);
        QCOMPARE(*wait.nextCheck(start + 50ms), start + RepaintWait::firstDrawLimit);
        wait.drawn(2, area, start + 50ms);
        QCOMPARE(*wait.nextCheck(start + 50ms), start + 50ms + RepaintWait::shortPause);
    }

    void endlessDrawingHitsTotalLimit()
    {
        RepaintWait wait({Region(area)}, start);
        for (auto now = start; now < start + 1s; now += 2ms)
            wait.drawn(0, {100, 100, 5, 5}, now);
        QCOMPARE(*wait.nextCheck(start + 1ms), start + RepaintWait::totalLimit);
        QVERIFY(!wait.nextCheck(start + RepaintWait::totalLimit));
    }

    void handlesManySmallDrawings()
    {
        RepaintWait wait({Region({0, 0, 1000, 1000})}, start);
        for (int i = 0; i < 2000; ++i)
            wait.drawn(0, {i * 7 % 1000, i * 13 % 1000, 1, 1}, start + 1ms);
        QCOMPARE(*wait.nextCheck(start + 1ms), start + 1ms + RepaintWait::longPause);
        wait.drawn(0, {0, 0, 1000, 1000}, start + 2ms);
        QCOMPARE(*wait.nextCheck(start + 2ms), start + 2ms + RepaintWait::shortPause);
    }
};

QUELLORA_TEST(void, RepaintWaitTest)
#include "test_repaint_wait.moc"
