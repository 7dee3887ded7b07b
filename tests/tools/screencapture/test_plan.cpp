#include "screencapture/CapturePlan.h"
#include "support/TestProgram.h"

#include <QTest>

#include <vector>

using namespace quellora::screencapture;

namespace {

const Rect screen{0, 0, 1000, 800};

TopLevel window(const Rect &rect, bool excluded = false)
{
    TopLevel result;
    result.rect = rect;
    result.shape = {rect};
    result.excluded = excluded;
    return result;
}

long pixels(const Region &region)
{
    long sum = 0;
    for (const Rect &rect : region.rects())
        sum += static_cast<long>(rect.width) * rect.height;
    return sum;
}

} // namespace

class PlanTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void planIsEmptyWithoutExcludedWindows()
    {
        const std::vector<TopLevel> windows{window({0, 0, 500, 500})};
        for (const bool compositing : {false, true}) {
            const CapturePlan plan = planCapture(windows, screen, compositing);
            QVERIFY(plan.patch.isEmpty());
            QVERIFY(plan.layers.empty());
            QVERIFY(plan.background.isEmpty());
        }
    }

    void desktopIsDrawnBelowExcludedWindow()
    {
        const std::vector<TopLevel> windows{window({100, 100, 200, 150}, true)};
        const CapturePlan plan = planCapture(windows, screen, false);
        QCOMPARE(plan.patch.bounds(), (Rect{100, 100, 200, 150}));
        QVERIFY(plan.layers.empty());
        QCOMPARE(plan.background.bounds(), plan.patch.bounds());
    }

    void onlyVisibleWindowsAreDrawn()
    {
        const std::vector<TopLevel> windows{
            window({0, 0, 1000, 800}),           // covered by the next one within ours
            window({50, 50, 400, 400}),          // below ours
            window({600, 600, 100, 100}),        // outside ours
            window({100, 100, 200, 150}, true)}; // ours
        const CapturePlan plan = planCapture(windows, screen, false);
        QCOMPARE(plan.layers.size(), std::size_t(1));
        QCOMPARE(plan.layers[0].index, std::size_t(1));
        QCOMPARE(pixels(plan.layers[0].visible), 200L * 150);
        QCOMPARE(pixels(plan.layers[0].obscured), 200L * 150);
        QVERIFY(!plan.layers[0].blended);
        QVERIFY(plan.background.isEmpty());
    }

    void layersAreOrderedBottomToTop()
    {
        const std::vector<TopLevel> windows{window({0, 0, 180, 800}), window({150, 0, 100, 800}),
                                            window({100, 100, 200, 100}, true)};
        const CapturePlan plan = planCapture(windows, screen, false);
        QCOMPARE(plan.layers.size(), std::size_t(2));
        QCOMPARE(plan.layers[0].index, std::size_t(0));
        QCOMPARE(plan.layers[0].visible.bounds(), (Rect{100, 100, 50, 100}));
        QCOMPARE(plan.layers[1].index, std::size_t(1));
        QCOMPARE(plan.layers[1].visible.bounds(), (Rect{150, 100, 100, 100}));
        QCOMPARE(plan.background.bounds(), (Rect{250, 100, 50, 100}));
    }

    void windowsAboveExcludedAreNotRedrawn()
    {
        const std::vector<TopLevel> windows{window({0, 0, 1000, 800}),
                                            window({100, 100, 200, 100}, true),
                                            window({200, 50, 300, 300})};
        const CapturePlan plan = planCapture(windows, screen, false);
        QCOMPARE(plan.patch.bounds(), (Rect{100, 100, 100, 100}));
        QCOMPARE(plan.layers.size(), std::size_t(1));
        QCOMPARE(plan.layers[0].index, std::size_t(0));
    }

    void coveredExcludedWindowNeedsNoPatch()
    {
        const std::vector<TopLevel> windows{window({100, 100, 200, 100}, true),
                                            window({0, 0, 1000, 800})};
        QVERIFY(planCapture(windows, screen, false).patch.isEmpty());
        const std::vector<TopLevel> outside{window({-500, -500, 100, 100}, true)};
        QVERIFY(planCapture(outside, screen, false).patch.isEmpty());
        QVERIFY(planCapture(outside, screen, true).patch.isEmpty());
    }

    void patchIsClippedToScreen()
    {
        const std::vector<TopLevel> windows{window({-50, 700, 200, 300}, true)};
        QCOMPARE(planCapture(windows, screen, false).patch.bounds(), (Rect{0, 700, 150, 100}));
        QCOMPARE(planCapture(windows, screen, true).patch.bounds(),
                 (Rect{0, 700 - compositorMargin, 150 + compositorMargin, 100 + compositorMargin}));
    }

    void respectsWindowShapes()
    {
        TopLevel ours = window({100, 100, 200, 100}, true);
        ours.shape = {{100, 100, 50, 100}, {250, 100, 50, 100}};
        TopLevel below = window({0, 0, 400, 400});
        below.shape = {{0, 0, 400, 150}};
        const CapturePlan plan = planCapture(std::vector{below, ours}, screen, false);
        QCOMPARE(pixels(plan.patch), 2L * 50 * 100);
        QCOMPARE(pixels(plan.layers.at(0).visible), 2L * 50 * 50);
        QCOMPARE(pixels(plan.background), 2L * 50 * 50);
    }

    void alphaAndOpacityApplyOnlyWithCompositor()
    {
        TopLevel translucent = window({0, 0, 1000, 800});
        translucent.opacity = 128;
        TopLevel argb = window({0, 0, 1000, 800});
        argb.depth = 32;
        const std::vector<TopLevel> windows{window({0, 0, 1000, 800}), translucent, argb,
                                            window({300, 300, 100, 100}, true)};
        const CapturePlan plain = planCapture(windows, screen, false);
        QCOMPARE(plain.layers.size(), std::size_t(1));
        QCOMPARE(plain.layers[0].index, std::size_t(2));
        QVERIFY(!plain.layers[0].blended);

        const CapturePlan composited = planCapture(windows, screen, true);
        QCOMPARE(composited.layers.size(), std::size_t(3));
        QVERIFY(!composited.layers[0].blended);
        QVERIFY(composited.layers[1].blended);
        QVERIFY(composited.layers[2].blended);
        QVERIFY(composited.background.isEmpty());
    }

    void compositorMarginIsNotObscured()
    {
        const std::vector<TopLevel> windows{window({0, 0, 1000, 800}),
                                            window({300, 300, 100, 100}, true)};
        const CapturePlan plan = planCapture(windows, screen, true);
        QCOMPARE(plan.patch.bounds(), (Rect{300, 300, 100, 100}.inflated(compositorMargin)));
        QCOMPARE(plan.layers.at(0).visible.bounds(), plan.patch.bounds());
        QCOMPARE(plan.layers.at(0).obscured.bounds(), (Rect{300, 300, 100, 100}));
    }

    void translucentWindowAboveExcludedIsRedrawn()
    {
        TopLevel menu = window({350, 350, 200, 200});
        menu.depth = 32;
        const std::vector<TopLevel> windows{window({0, 0, 1000, 800}),
                                            window({300, 300, 100, 100}, true), menu};
        const CapturePlan plan = planCapture(windows, screen, true);
        QCOMPARE(plan.layers.size(), std::size_t(2));
        QCOMPARE(plan.layers[1].index, std::size_t(2));
        QVERIFY(plan.layers[1].obscured.isEmpty());
    }

    void detectsServerOwnedWindows()
    {
        QVERIFY(isServerId(0x50d, 0x1fffff));
        QVERIFY(!isServerId(0x200000, 0x1fffff));
        QVERIFY(!isServerId(0x40050d, 0x1fffff));
    }

    void complexShapesAreSimplified()
    {
        TopLevel ours = window({0, 0, 1000, 800}, true);
        ours.shape.clear();
        for (int y = 0; y < 800; y += 4) {
            for (int x = 0; x < 1000; x += 40)
                ours.shape.push_back({x, y, 20, 2});
        }
        TopLevel complexWindow = window({0, 0, 1000, 800});
        complexWindow.shape = ours.shape;
        const CapturePlan plan = planCapture(std::vector{complexWindow, ours}, screen, false);
        QCOMPARE(plan.patch.rects().size(), std::size_t(1));
        QCOMPARE(pixels(plan.layers.at(0).visible), 200L * 25 * 40);
        QCOMPARE(plan.background.bounds(), plan.patch.bounds());
    }
};

QUELLORA_TEST(void, PlanTest)
#include "test_plan.moc"
