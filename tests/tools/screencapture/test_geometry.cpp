#include "screencapture/Geometry.h"
#include "support/TestProgram.h"

#include <QTest>

#include <set>
#include <utility>
#include <vector>

using namespace quellora::screencapture;

namespace {

using Pixels = std::set<std::pair<int, int>>;

/// The pixels of @p region; fails the test if its rectangles overlap.
Pixels pixelsOf(const Region &region)
{
    Pixels pixels;
    for (const Rect &rect : region.rects()) {
        for (int y = rect.y; y < rect.bottom(); ++y) {
            for (int x = rect.x; x < rect.right(); ++x) {
                if (!pixels.emplace(x, y).second)
                    QTest::qFail("rectangles overlap", __FILE__, __LINE__);
            }
        }
    }
    return pixels;
}

Pixels pixelsOf(const Rect &rect)
{
    return pixelsOf(Region(rect));
}

/// Generates small pseudo-random rectangles from a fixed seed; some are empty.
class RectSource
{
public:
    Rect next() { return {draw(12) - 2, draw(12) - 2, draw(8), draw(8)}; }

private:
    int draw(unsigned int limit)
    {
        m_state = m_state * 1664525U + 1013904223U;
        return static_cast<int>((m_state >> 16) % limit);
    }

    unsigned int m_state = 7;
};

} // namespace

class GeometryTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void intersectsRects()
    {
        QCOMPARE(intersected({0, 0, 10, 10}, {5, 6, 10, 10}), (Rect{5, 6, 5, 4}));
        QCOMPARE(intersected({0, 0, 10, 10}, {10, 0, 5, 5}), Rect{});
        QCOMPARE(intersected({-5, -5, 10, 10}, {0, 0, 100, 100}), (Rect{0, 0, 5, 5}));
        QVERIFY(intersected({0, 0, 10, 10}, {2, 2, 0, 5}).isEmpty());
    }

    void inflatesAndDeflates()
    {
        QCOMPARE((Rect{10, 20, 30, 40}.inflated(5)), (Rect{5, 15, 40, 50}));
        QCOMPARE((Rect{5, 15, 40, 50}.inflated(-5)), (Rect{10, 20, 30, 40}));
    }

    void regionsMatchSetOperations()
    {
        RectSource source;
        for (int round = 0; round < 200; ++round) {
            Region region;
            Pixels expected;
            for (int step = 0; step < 8; ++step) {
                const Rect rect = source.next();
                const Pixels pixels = pixelsOf(rect);
                if (step % 3 == 2) {
                    region.subtract(rect);
                    for (const auto &pixel : pixels)
                        expected.erase(pixel);
                } else {
                    region.unite(rect);
                    expected.insert(pixels.begin(), pixels.end());
                }
                QCOMPARE(pixelsOf(region), expected);
                QCOMPARE(region.isEmpty(), expected.empty());
            }
            Region other(source.next());
            other.unite(source.next());
            const Pixels otherPixels = pixelsOf(other);
            Pixels common;
            for (const auto &pixel : expected) {
                if (otherPixels.contains(pixel))
                    common.insert(pixel);
            }
            QCOMPARE(pixelsOf(region.intersected(other.rects())), common);
        }
    }

    void boundsEncloseAllRects()
    {
        Region region;
        QCOMPARE(region.bounds(), Rect{});
        region.unite(Rect{10, 10, 5, 5});
        region.unite(Rect{-3, 40, 2, 2});
        QCOMPARE(region.bounds(), (Rect{-3, 10, 18, 32}));
    }

    void boundedLimitsRectCount()
    {
        Region region;
        for (int i = 0; i < 10; ++i)
            region.unite(Rect{i * 3, i * 3, 2, 2});
        QCOMPARE(region.bounded(10).rects().size(), std::size_t(10));
        const Region coarse = region.bounded(9);
        QCOMPARE(coarse.rects().size(), std::size_t(1));
        QCOMPARE(coarse.bounds(), region.bounds());
    }

    void captureAreaIsBoundsOfMonitorsWithinRoot()
    {
        QCOMPARE(captureArea(1920, 1080, {}), (Rect{0, 0, 1920, 1080}));
        const std::vector<Rect> sideBySide{{0, 0, 1920, 1080}, {1920, 100, 1280, 1024}};
        QCOMPARE(captureArea(3200, 1124, sideBySide), (Rect{0, 0, 3200, 1124}));
        // One monitor is switched off: the rest of the root window is on no monitor.
        const std::vector<Rect> right{{1920, 0, 1280, 1024}};
        QCOMPARE(captureArea(3200, 1080, right), (Rect{1920, 0, 1280, 1024}));
        const std::vector<Rect> tooLarge{{0, 0, 4000, 4000}};
        QCOMPARE(captureArea(1920, 1080, tooLarge), (Rect{0, 0, 1920, 1080}));
        const std::vector<Rect> outsideRoot{{5000, 5000, 10, 10}};
        QCOMPARE(captureArea(1920, 1080, outsideRoot), (Rect{0, 0, 1920, 1080}));
        const std::vector<Rect> mirrored{{0, 0, 1920, 1080}, {0, 0, 1280, 1024}};
        QCOMPARE(captureArea(1920, 1080, mirrored), (Rect{0, 0, 1920, 1080}));
    }

    void pointedMonitorContainsPointer()
    {
        const auto at = [](int x, int y) { return Rect{x, y, 1, 1}; };
        const std::vector<Rect> sideBySide{{0, 0, 1920, 1080}, {1920, 100, 1280, 1024}};
        QCOMPARE(pointedMonitor(3200, 1124, sideBySide, at(0, 0)), sideBySide[0]);
        QCOMPARE(pointedMonitor(3200, 1124, sideBySide, at(1919, 1079)), sideBySide[0]);
        QCOMPARE(pointedMonitor(3200, 1124, sideBySide, at(1920, 100)), sideBySide[1]);
        QCOMPARE(pointedMonitor(3200, 1124, sideBySide, at(3199, 1123)), sideBySide[1]);
        // The pointer is on no monitor: the nearest one.
        QCOMPARE(pointedMonitor(3200, 1124, sideBySide, at(3000, 5)), sideBySide[1]);
        QCOMPARE(pointedMonitor(3200, 1124, sideBySide, at(1930, 2)), sideBySide[0]);
        QCOMPARE(pointedMonitor(3200, 1124, sideBySide, at(10, 1110)), sideBySide[0]);
        // Mirrored monitors: the larger one, which covers both.
        const std::vector<Rect> mirrored{{0, 0, 1280, 1024}, {0, 0, 1920, 1080}};
        QCOMPARE(pointedMonitor(1920, 1080, mirrored, at(5, 5)), mirrored[1]);
        QCOMPARE(pointedMonitor(1920, 1080, mirrored, at(1900, 5)), mirrored[1]);
    }

    void pointedMonitorFallsBackWithoutPointerOrMonitors()
    {
        const std::vector<Rect> sideBySide{{1920, 0, 1280, 1024}, {0, 0, 1920, 1080}};
        QCOMPARE(pointedMonitor(3200, 1080, sideBySide, {}), sideBySide[0]);
        QCOMPARE(pointedMonitor(1920, 1080, {}, {5, 5, 1, 1}), (Rect{0, 0, 1920, 1080}));
        const std::vector<Rect> outsideRoot{{5000, 5000, 10, 10}};
        QCOMPARE(pointedMonitor(1920, 1080, outsideRoot, {5, 5, 1, 1}), (Rect{0, 0, 1920, 1080}));
        const std::vector<Rect> tooLarge{{0, 0, 4000, 4000}};
        QCOMPARE(pointedMonitor(1920, 1080, tooLarge, {5, 5, 1, 1}), (Rect{0, 0, 1920, 1080}));
        const std::vector<Rect> huge{{0, 0, 32767, 16000}, {0, 16000, 32767, 16767}};
        QCOMPARE(pointedMonitor(32767, 32767, huge, {32766, 32766, 1, 1}), huge[1]);
    }

    void unseenRegionCoversGapsOfUnevenMonitors()
    {
        const Rect area{0, 0, 3200, 1124};
        const std::vector<Rect> monitors{{0, 0, 1920, 1080}, {1920, 100, 1280, 1024}};
        const Region unseen = unseenRegion(area, monitors);
        const Region below = unseen.intersected(Rect{0, 1080, 1920, 44});
        const Region above = unseen.intersected(Rect{1920, 0, 1280, 100});
        QCOMPARE(below.bounds(), (Rect{0, 1080, 1920, 44}));
        QCOMPARE(above.bounds(), (Rect{1920, 0, 1280, 100}));
        long pixels = 0;
        for (const Rect &rect : unseen.rects())
            pixels += static_cast<long>(rect.width) * rect.height;
        QCOMPARE(pixels, 1920L * 44 + 1280L * 100);
    }

    void unseenRegionIsEmptyWithoutGaps()
    {
        const Rect area{0, 0, 1920, 1080};
        QVERIFY(unseenRegion(area, {}).isEmpty());
        const std::vector<Rect> whole{{0, 0, 1920, 1080}};
        QVERIFY(unseenRegion(area, whole).isEmpty());
        const std::vector<Rect> outsideRoot{{5000, 5000, 10, 10}};
        QVERIFY(unseenRegion(area, outsideRoot).isEmpty());
    }
};

QUELLORA_TEST(void, GeometryTest)
#include "test_geometry.moc"
