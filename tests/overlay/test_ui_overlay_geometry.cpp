#include "overlay/ui/OverlayGeometry.h"

#include <QTest>

using quellora::OverlayGeometry;

class TestOverlayGeometry : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void responseRect_data()
    {
        QTest::addColumn<QSizeF>("window");
        QTest::addColumn<double>("panels");
        QTest::addColumn<QRectF>("rect");
        QTest::newRow("default") << QSizeF(624, 744) << 140.0 << QRectF(0, 72, 596, 532);
        QTest::newRow("smallest") << QSizeF(320, 280) << 76.0 << QRectF(0, 72, 292, 132);
        QTest::newRow("panels over everything")
            << QSizeF(320, 280) << 400.0 << QRectF(0, -120, 292, 0);
        QTest::newRow("narrower than the scrollbar")
            << QSizeF(20, 300) << 100.0 << QRectF(0, 72, 0, 128);
    }
    void responseRect()
    {
        QFETCH(QSizeF, window);
        QFETCH(double, panels);
        QFETCH(QRectF, rect);
        QCOMPARE(OverlayGeometry::responseRect(window, panels), rect);
    }

    void compactBelowEitherLimit()
    {
        QVERIFY(!OverlayGeometry::isCompact({440, 420}));
        QVERIFY(OverlayGeometry::isCompact({439, 900}));
        QVERIFY(OverlayGeometry::isCompact({900, 419}));
    }

    void startsFromTheLowerLeftCorner()
    {
        // Screen 1440 x 900 with a 24-point bar at the top.
        QCOMPARE(OverlayGeometry::initialPosition({0, 24, 1440, 876}, {40, 80}, {624, 744}),
                 QPoint(40, 76));
        QCOMPARE(OverlayGeometry::initialPosition({1920, 0, 800, 600}, {0, 0}, {320, 280}),
                 QPoint(1920, 320));
    }

    void unzoomRestoresOrCentresTheBuiltInSize()
    {
        const QRect screen(0, 0, 1440, 900);
        QCOMPARE(OverlayGeometry::restoredFrame(QRect(5, 6, 700, 500), screen),
                 QRect(5, 6, 700, 500));
        const QRect centred = OverlayGeometry::restoredFrame(std::nullopt, screen);
        QCOMPARE(centred.size(), QSize(624, 744));
        QCOMPARE(centred.center(), screen.center());
        QCOMPARE(OverlayGeometry::restoredFrame(std::nullopt, std::nullopt), QRect(0, 0, 624, 744));
    }

    void resizing_data()
    {
        QTest::addColumn<Qt::Edges>("edges");
        QTest::addColumn<QPoint>("delta");
        QTest::addColumn<QRect>("frame");
        const Qt::Edges topLeft = Qt::TopEdge | Qt::LeftEdge;
        const Qt::Edges bottomRight = Qt::BottomEdge | Qt::RightEdge;
        QTest::newRow("right") << Qt::Edges(Qt::RightEdge) << QPoint(30, 50)
                               << QRect(100, 100, 654, 744);
        QTest::newRow("left") << Qt::Edges(Qt::LeftEdge) << QPoint(-30, 50)
                              << QRect(70, 100, 654, 744);
        QTest::newRow("corner") << bottomRight << QPoint(10, -20) << QRect(100, 100, 634, 724);
        QTest::newRow("least, right edge moves")
            << bottomRight << QPoint(-900, -900) << QRect(100, 100, 320, 280);
        QTest::newRow("least, opposite corner stays")
            << topLeft << QPoint(900, 900) << QRect(404, 564, 320, 280);
        QTest::newRow("no edge") << Qt::Edges() << QPoint(9, 9) << QRect(100, 100, 624, 744);
    }
    void resizing()
    {
        QFETCH(Qt::Edges, edges);
        QFETCH(QPoint, delta);
        QFETCH(QRect, frame);
        QCOMPARE(OverlayGeometry::resized({100, 100, 624, 744}, edges, delta), frame);
    }
};

QTEST_GUILESS_MAIN(TestOverlayGeometry)
#include "test_ui_overlay_geometry.moc"
