#include "platform/macos/ClickThrough.h"
#include "support/TestProgram.h"

#include <QTest>

using namespace quellora;

class TestMacClickThrough : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void convertsDesktopCoordinates_data()
    {
        QTest::addColumn<double>("x");
        QTest::addColumn<double>("y");
        QTest::addColumn<QPointF>("position");
        QTest::newRow("lower left corner of the primary screen") << 0.0 << 0.0 << QPointF(0, 900);
        QTest::newRow("upper left corner of the primary screen") << 0.0 << 900.0 << QPointF(0, 0);
        QTest::newRow("fractional coordinates") << 10.25 << 100.5 << QPointF(10.25, 799.5);
        QTest::newRow("screen to the lower left") << -1440.0 << -10.0 << QPointF(-1440, 910);
        QTest::newRow("screen above") << 50.0 << 1000.0 << QPointF(50, -100);
    }
    void convertsDesktopCoordinates()
    {
        QFETCH(double, x);
        QFETCH(double, y);
        QTEST(fromDesktop(x, y, 900), "position");
    }

    void passesInsideRectangle_data()
    {
        QTest::addColumn<QPointF>("pointer");
        QTest::addColumn<bool>("passes");
        // The window is at (100, 200); the rectangle is at (10, 20) in the window and 30 x 40
        // points.
        QTest::newRow("middle") << QPointF(125, 240) << true;
        QTest::newRow("top left corner") << QPointF(110, 220) << true;
        QTest::newRow("just left of it") << QPointF(109.99, 220) << false;
        QTest::newRow("just above it") << QPointF(110, 219.99) << false;
        QTest::newRow("inside the last point") << QPointF(139.99, 259.99) << true;
        QTest::newRow("right edge") << QPointF(140, 240) << false;
        QTest::newRow("bottom edge") << QPointF(125, 260) << false;
        QTest::newRow("in the window, outside the rectangle") << QPointF(105, 205) << false;
        QTest::newRow("outside the window") << QPointF(0, 0) << false;
    }
    void passesInsideRectangle()
    {
        QFETCH(QPointF, pointer);
        QFETCH(bool, passes);
        QCOMPARE(letsPointerPass(pointer, false, {100, 200, 300, 400}, {10, 20, 30, 40}),
                 std::optional(passes));
    }

    void handlesNegativeScreenCoordinates()
    {
        const QRect window(-1400, -300, 400, 200);
        const QRect rect(0, 0, 100, 100);
        QCOMPARE(letsPointerPass({-1400, -300}, false, window, rect), std::optional(true));
        QCOMPARE(letsPointerPass({-1301, -201}, false, window, rect), std::optional(true));
        QCOMPARE(letsPointerPass({-1300, -250}, false, window, rect), std::optional(false));
        QCOMPARE(letsPointerPass({50, 50}, false, window, rect), std::optional(false));
    }

    void rectangleIsClippedToWindow()
    {
        QCOMPARE(letsPointerPass({160, 10}, false, {0, 0, 150, 150}, {100, 0, 100, 100}),
                 std::optional(false));
    }

    void doesNotChangeDuringDrag()
    {
        const QRect window(0, 0, 100, 100);
        const QRect rect(0, 0, 50, 50);
        QCOMPARE(letsPointerPass({10, 10}, true, window, rect), std::nullopt);
        QCOMPARE(letsPointerPass({90, 90}, true, window, rect), std::nullopt);
    }

    void emptyRectangleNeverPasses()
    {
        QCOMPARE(letsPointerPass({10, 10}, false, {0, 0, 100, 100}, {}), std::optional(false));
        QCOMPARE(letsPointerPass({10, 10}, true, {0, 0, 100, 100}, {}), std::optional(false));
        QCOMPARE(letsPointerPass({10, 10}, false, {0, 0, 100, 100}, {10, 10, 0, 40}),
                 std::optional(false));
    }
};

QUELLORA_TEST(void, TestMacClickThrough)
#include "test_click_through.moc"
