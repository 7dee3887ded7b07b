#include "overlay/OverlayGeometry.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
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
        QTest::newRow("panels higher than the window")
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

    void compactBelowEitherThreshold()
    {
        QVERIFY(!OverlayGeometry::isCompact({440, 420}));
        QVERIFY(OverlayGeometry::isCompact({439, 900}));
        QVERIFY(OverlayGeometry::isCompact({900, 419}));
    }

    void initialPositionIsFromBottomLeft()
    {
        // Screen 1440 x 900 with a 24-point bar at the top.
        QCOMPARE(OverlayGeometry::initialPosition({0, 24, 1440, 876}, {40, 80}, {624, 744}),
                 QPoint(40, 76));
        QCOMPARE(OverlayGeometry::initialPosition({1920, 0, 800, 600}, {0, 0}, {320, 280}),
                 QPoint(1920, 320));
    }

    void fitted_data()
    {
        QTest::addColumn<QRect>("frame");
        QTest::addColumn<bool>("keepsWholePanel");
        QTest::addColumn<QList<QRect>>("screens");
        QTest::addColumn<QRect>("result");
        const QRect hd(0, 0, 1920, 1080);
        const QRect right(1920, 0, 1920, 1080);
        const QRect small(0, 0, 1366, 768);

        const auto initialFrame = [](const QRect &screen) {
            return QRect(OverlayGeometry::initialPosition(screen, {40, 80}, {624, 744}),
                         QSize(624, 744));
        };
        QTest::newRow("initial, fits")
            << initialFrame(hd) << true << QList{hd} << QRect(40, 256, 624, 744);
        QTest::newRow("initial, 1366 x 768: moves down")
            << initialFrame(small) << true << QList{small} << QRect(40, 0, 624, 744);
        QTest::newRow("initial, 1280 x 800: moves down")
            << initialFrame({0, 0, 1280, 800}) << true << QList{QRect(0, 0, 1280, 800)}
            << QRect(40, 0, 624, 744);
        QTest::newRow("initial, 1280 x 720: moves down and shrinks")
            << initialFrame({0, 0, 1280, 720}) << true << QList{QRect(0, 0, 1280, 720)}
            << QRect(40, 0, 624, 720);
        QTest::newRow("initial, 3840 x 2160 at scale 2")
            << initialFrame(hd) << true << QList{hd} << QRect(40, 256, 624, 744);
        QTest::newRow("initial, bar at the top and dock at the left")
            << initialFrame({64, 28, 1302, 740}) << true << QList{QRect(64, 28, 1302, 740)}
            << QRect(104, 28, 624, 740);
        QTest::newRow("initial, second screen above: stays on the primary")
            << initialFrame(small) << true << QList{small, QRect(0, -1080, 1920, 1080)}
            << QRect(40, 0, 624, 744);
        QTest::newRow("minimum size overflows at the right and bottom")
            << QRect(40, 10, 624, 744) << true << QList{QRect(10, 10, 300, 200)}
            << QRect(10, 10, 320, 280);
        QTest::newRow("narrower screen") << QRect(40, 10, 624, 744) << true
                                         << QList{QRect(0, 0, 480, 800)} << QRect(0, 10, 480, 744);

        QTest::newRow("too far right")
            << QRect(1800, 100, 624, 744) << true << QList{hd} << QRect(1296, 100, 624, 744);
        QTest::newRow("too far left and up")
            << QRect(-100, -100, 624, 744) << true << QList{hd} << QRect(0, 0, 624, 744);
        QTest::newRow("too low") << QRect(100, 500, 624, 744) << true << QList{hd}
                                 << QRect(100, 336, 624, 744);
        QTest::newRow("too low, control bar only")
            << QRect(100, 500, 624, 744) << false << QList{hd} << QRect(100, 500, 624, 744);
        QTest::newRow("far too low, control bar only")
            << QRect(100, 1070, 624, 744) << false << QList{hd} << QRect(100, 1046, 624, 744);
        QTest::newRow("too high, control bar only")
            << QRect(100, -1, 624, 744) << false << QList{hd} << QRect(100, 0, 624, 744);
        QTest::newRow("control bar half off the right edge")
            << QRect(1600, 1000, 624, 744) << false << QList{hd} << QRect(1296, 1000, 624, 744);

        QTest::newRow("second screen")
            << QRect(2000, 100, 624, 744) << true << QList{hd, right} << QRect(2000, 100, 624, 744);
        QTest::newRow("second screen removed")
            << QRect(2000, 100, 624, 744) << true << QList{hd} << QRect(1296, 100, 624, 744);
        QTest::newRow("second screen shrunk")
            << QRect(3100, 300, 624, 744) << true << QList{hd, QRect(1920, 0, 1280, 720)}
            << QRect(2576, 0, 624, 720);
        QTest::newRow("across two screens, more on the second")
            << QRect(1700, 100, 624, 744) << false << QList{hd, right}
            << QRect(1920, 100, 624, 744);
        QTest::newRow("across two screens, more on the first")
            << QRect(1500, 100, 624, 744) << false << QList{hd, right}
            << QRect(1296, 100, 624, 744);
        QTest::newRow("tie: first screen") << QRect(1608, 100, 624, 744) << false
                                           << QList{right, hd} << QRect(1920, 100, 624, 744);
        QTest::newRow("in the gap beside a lower screen")
            << QRect(2000, 10, 624, 744) << true << QList{hd, QRect(1920, 200, 1920, 1080)}
            << QRect(2000, 200, 624, 744);
        QTest::newRow("wider than any screen")
            << QRect(100, 100, 2500, 744) << false << QList{hd, right} << QRect(0, 100, 1920, 744);
        QTest::newRow("no screen")
            << QRect(2000, 100, 624, 744) << true << QList<QRect>() << QRect(2000, 100, 624, 744);
    }
    void fitted()
    {
        QFETCH(QRect, frame);
        QFETCH(bool, keepsWholePanel);
        QFETCH(QList<QRect>, screens);
        QFETCH(QRect, result);
        const auto keep =
            keepsWholePanel ? OverlayGeometry::Keep::Panel : OverlayGeometry::Keep::Bar;
        const QRect fitted = OverlayGeometry::fitted(frame, keep, screens);
        QCOMPARE(fitted, result);
        // A frame that fits is not changed.
        QCOMPARE(OverlayGeometry::fitted(fitted, keep, screens), fitted);
    }

    void restoredFrameFallsBackToDefaultSize()
    {
        const QRect screen(0, 0, 1440, 900);
        QCOMPARE(OverlayGeometry::restoredFrame(QRect(5, 6, 700, 500), screen),
                 QRect(5, 6, 700, 500));
        const QRect centred = OverlayGeometry::restoredFrame(std::nullopt, screen);
        QCOMPARE(centred.size(), QSize(624, 744));
        QCOMPARE(centred.center(), screen.center());
        QCOMPARE(OverlayGeometry::restoredFrame(std::nullopt, std::nullopt), QRect(0, 0, 624, 744));
    }

    void resized_data()
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
        QTest::newRow("minimum, bottom right edges move")
            << bottomRight << QPoint(-900, -900) << QRect(100, 100, 320, 280);
        QTest::newRow("minimum, opposite corner stays")
            << topLeft << QPoint(900, 900) << QRect(404, 564, 320, 280);
        QTest::newRow("no edge") << Qt::Edges() << QPoint(9, 9) << QRect(100, 100, 624, 744);
    }
    void resized()
    {
        QFETCH(Qt::Edges, edges);
        QFETCH(QPoint, delta);
        QFETCH(QRect, frame);
        QCOMPARE(OverlayGeometry::resized({100, 100, 624, 744}, edges, delta), frame);
    }
};

QUELLORA_TEST(QCoreApplication, TestOverlayGeometry)
#include "test_overlay_geometry.moc"
