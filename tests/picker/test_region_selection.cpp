#include "picker/RegionSelection.h"
#include "support/TestProgram.h"

using namespace quellora;

class TestRegionSelection : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void drawsInEveryDirection_data()
    {
        QTest::addColumn<QPoint>("from");
        QTest::addColumn<QPoint>("to");
        QTest::newRow("down right") << QPoint(10, 20) << QPoint(29, 49);
        QTest::newRow("up left") << QPoint(29, 49) << QPoint(10, 20);
        QTest::newRow("down left") << QPoint(29, 20) << QPoint(10, 49);
        QTest::newRow("up right") << QPoint(10, 49) << QPoint(29, 20);
    }
    void drawsInEveryDirection()
    {
        QFETCH(QPoint, from);
        QFETCH(QPoint, to);
        RegionSelection selection(QSize(100, 80));
        QVERIFY(selection.isEmpty());
        selection.press(from);
        QVERIFY(selection.isDragging());
        selection.dragTo(QPoint(50, 50));
        selection.dragTo(to);
        selection.release();
        QVERIFY(!selection.isDragging());
        // Both ends belong to it.
        QCOMPARE(selection.rect(), QRect(10, 20, 20, 30));
        selection.dragTo(QPoint(0, 0));
        QCOMPARE(selection.rect(), QRect(10, 20, 20, 30));
    }

    void staysOnPicture()
    {
        RegionSelection selection(QSize(100, 80));
        selection.press(QPoint(90, 70));
        selection.dragTo(QPoint(500, 500));
        QCOMPARE(selection.rect(), QRect(90, 70, 10, 10));
        selection.dragTo(QPoint(-500, -500));
        QCOMPARE(selection.rect(), QRect(0, 0, 91, 71));
        selection.release();
        selection.clear();
        selection.press(QPoint(-5, 200));
        selection.dragTo(QPoint(4, 70));
        QCOMPARE(selection.rect(), QRect(0, 70, 5, 10));
    }

    void clickSelectsNothing()
    {
        RegionSelection selection(QSize(100, 80));
        selection.press(QPoint(10, 10));
        selection.dragTo(QPoint(10, 10));
        selection.release();
        QVERIFY(selection.isEmpty());
        // Outside of a rectangle it removes that one.
        selection.press(QPoint(10, 10));
        selection.dragTo(QPoint(20, 20));
        selection.release();
        selection.press(QPoint(50, 50));
        selection.release();
        QVERIFY(selection.isEmpty());
    }

    void dragInsideMoves()
    {
        RegionSelection selection(QSize(100, 80));
        selection.press(QPoint(10, 10));
        selection.dragTo(QPoint(29, 19));
        selection.release();
        selection.press(QPoint(12, 11));
        selection.dragTo(QPoint(32, 41));
        QCOMPARE(selection.rect(), QRect(30, 40, 20, 10));
        selection.dragTo(QPoint(1000, -1000));
        QCOMPARE(selection.rect(), QRect(80, 0, 20, 10));
        // It comes back with the pointer.
        selection.dragTo(QPoint(12, 11));
        QCOMPARE(selection.rect(), QRect(10, 10, 20, 10));
    }

    void keysMoveAndResize()
    {
        RegionSelection selection(QSize(100, 80));
        selection.press(QPoint(0, 0));
        selection.dragTo(QPoint(9, 9));
        selection.release();
        selection.moveBy(QPoint(-1, 0));
        QCOMPARE(selection.rect(), QRect(0, 0, 10, 10));
        selection.moveBy(QPoint(3, 4));
        QCOMPARE(selection.rect(), QRect(3, 4, 10, 10));
        selection.moveBy(QPoint(1000, 1000));
        QCOMPARE(selection.rect(), QRect(90, 70, 10, 10));
        selection.resizeBy(QPoint(1, 1));
        QCOMPARE(selection.rect(), QRect(90, 70, 10, 10));
        selection.resizeBy(QPoint(-4, -5));
        QCOMPARE(selection.rect(), QRect(90, 70, 6, 5));
        selection.resizeBy(QPoint(-100, -100));
        QCOMPARE(selection.rect(), QRect(90, 70, 1, 1));
    }

    void firstKeySelectsMiddle()
    {
        for (const bool resizes : {false, true}) {
            RegionSelection selection(QSize(100, 80));
            resizes ? selection.resizeBy(QPoint(1, 0)) : selection.moveBy(QPoint(1, 0));
            QCOMPARE(selection.rect(), QRect(25, 20, 50, 40));
        }
        RegionSelection tiny(QSize(1, 1));
        tiny.moveBy(QPoint(1, 0));
        QCOMPARE(tiny.rect(), QRect(0, 0, 1, 1));
    }

    void emptyPicture()
    {
        RegionSelection selection;
        selection.press(QPoint(0, 0));
        selection.dragTo(QPoint(5, 5));
        selection.moveBy(QPoint(1, 1));
        selection.resizeBy(QPoint(1, 1));
        QVERIFY(selection.isEmpty());
        QVERIFY(!selection.isDragging());
    }
};

QUELLORA_TEST(void, TestRegionSelection)
#include "test_region_selection.moc"
