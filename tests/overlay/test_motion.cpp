#include "OverlayDriver.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <cmath>
#include <utility>

using namespace quellora;

/// What moves when the system asks for less movement: nothing.
class TestMotion : public OverlayDriver
{
    Q_OBJECT
private Q_SLOTS:
    void everyBusyStateIsStill_data()
    {
        QTest::addColumn<int>("activity");
        QTest::newRow("capturing") << int(OverlayModel::Activity::Capturing);
        QTest::newRow("waiting") << int(OverlayModel::Activity::Waiting);
        QTest::newRow("streaming") << int(OverlayModel::Activity::Streaming);
    }
    void everyBusyStateIsStill()
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

    void thePageIsTold()
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

    void sheetsFadeInPlace()
    {
        FakeAppearance system;
        system.setReducesMotion(true);
        followMotion(f().engine, system);
        f().addThreads();
        show();
        const QQuickItem *panel = f().find("historySearch")->parentItem()->parentItem();
        QList<qreal> places;
        QList<qreal> fades;
        connect(panel, &QQuickItem::opacityChanged, this, [&] { fades << panel->opacity(); });
        connect(panel, &QQuickItem::xChanged, this, [&] { places << panel->x(); });
        f().history.historyButtonClicked();
        QTRY_COMPARE(panel->opacity(), 1.0);
        QVERIFY(fades.size() > 1);
        QCOMPARE(places, QList<qreal>{});
    }

    /// The software renderer would take a value next to 1 for 1 and go on blending.
    void fadesGoInStepsOfAPixel_data()
    {
        QTest::addColumn<bool>("isSheet");
        QTest::newRow("sheet") << true;
        QTest::newRow("list of models") << false;
    }
    void fadesGoInStepsOfAPixel()
    {
        QFETCH(bool, isSheet);
        f().addThreads();
        show();
        const QQuickItem *item =
            isSheet ? f().find("historySearch")->parentItem()->parentItem() : f().find("modelCard");
        QList<qreal> fades;
        connect(item, &QQuickItem::opacityChanged, this, [&] { fades << item->opacity() * 255; });
        if (isSheet)
            f().history.historyButtonClicked();
        else
            click("modelPicker");
        QTRY_COMPARE(item->opacity(), 1.0);
        QVERIFY(fades.size() > 1);
        for (const qreal fade : std::as_const(fades))
            QVERIFY2(std::abs(fade - std::round(fade)) < 1e-9, qPrintable(QString::number(fade)));
    }
};

QUELLORA_TEST(QGuiApplication, TestMotion)
#include "test_motion.moc"
