#include "OverlayDriver.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <cmath>
#include <utility>

using namespace quellora;

/// Animations and the system's reduced-motion setting.
class TestMotion : public OverlayDriver
{
    Q_OBJECT
private Q_SLOTS:
    void reducedMotionStopsActivityAnimations_data()
    {
        QTest::addColumn<int>("activity");
        QTest::newRow("capturing") << int(OverlayModel::Activity::Capturing);
        QTest::newRow("waiting") << int(OverlayModel::Activity::Waiting);
        QTest::newRow("streaming") << int(OverlayModel::Activity::Streaming);
    }
    void reducedMotionStopsActivityAnimations()
    {
        QFETCH(int, activity);
        FakeAppearance system;
        followMotion(f().engine, system);
        f().overlay.setActivity(OverlayModel::Activity(activity));
        f().overlay.setUsage(130);
        f().menu.setUsage(1300000, 1000000, true);
        f().overlay.setMenuOpen(true);
        show();
        QSignalSpy frames(&f().panel, &QQuickWindow::frameSwapped);
        QTRY_VERIFY(frames.size() >= 10);
        system.setReducesMotion(true);
        QVERIFY(isStill());
    }

    void pageReceivesReducedMotion()
    {
        FakeAppearance system;
        followMotion(f().engine, system);
        f().responseView = OverlayFixture::emptyResponse();
        show();
        QTRY_VERIFY(f().find("response"));
        const QQuickItem *page = f().find("response");
        QVERIFY(!page->property("reducedMotion").toBool());
        system.setReducesMotion(true);
        QVERIFY(page->property("reducedMotion").toBool());
    }

    void reducedMotionFadesSheetsInPlace()
    {
        FakeAppearance system;
        system.setReducesMotion(true);
        followMotion(f().engine, system);
        f().addThreads();
        show();
        const QQuickItem *panel = f().find("historySearch")->parentItem()->parentItem();
        QList<qreal> positions;
        QList<qreal> opacities;
        connect(panel, &QQuickItem::opacityChanged, this, [&] { opacities << panel->opacity(); });
        connect(panel, &QQuickItem::xChanged, this, [&] { positions << panel->x(); });
        f().history.historyButtonClicked();
        QTRY_COMPARE(panel->opacity(), 1.0);
        QVERIFY(opacities.size() > 1);
        QCOMPARE(positions, QList<qreal>{});
    }

    /// The opacity must be a multiple of 1/255: the software renderer treats a value just below 1
    /// as 1 but keeps blending.
    void fadesUseWholeOpacitySteps_data()
    {
        QTest::addColumn<bool>("isSheet");
        QTest::newRow("sheet") << true;
        QTest::newRow("model list") << false;
    }
    void fadesUseWholeOpacitySteps()
    {
        QFETCH(bool, isSheet);
        f().addThreads();
        show();
        const QQuickItem *item =
            isSheet ? f().find("historySearch")->parentItem()->parentItem() : f().find("modelCard");
        QList<qreal> opacities;
        connect(item, &QQuickItem::opacityChanged, this,
                [&] { opacities << item->opacity() * 255; });
        if (isSheet)
            f().history.historyButtonClicked();
        else
            click("modelPicker");
        QTRY_COMPARE(item->opacity(), 1.0);
        QVERIFY(opacities.size() > 1);
        for (const qreal opacity : std::as_const(opacities))
            QVERIFY2(std::abs(opacity - std::round(opacity)) < 1e-9,
                     qPrintable(QString::number(opacity)));
    }
};

QUELLORA_TEST(QGuiApplication, TestMotion)
#include "test_motion.moc"
