#include "OverlayDriver.h"

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
};

QTEST_MAIN(TestMotion)
#include "test_ui_motion.moc"
