#include "panels/HamburgerMenuModel.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

using quellora::HamburgerMenuModel;
using Tier = HamburgerMenuModel::Tier;

class TestHamburgerMenuModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void noPercentageWithoutCap()
    {
        HamburgerMenuModel menu;
        menu.setUsage(5000, 0, false);
        QCOMPARE(menu.fillFraction(), 0.0);
        QCOMPARE(menu.usageText(), QStringLiteral("No limit set"));
        QVERIFY(menu.caption().isEmpty());
        QCOMPARE(menu.tier(), Tier::Normal);
    }

    void exceededWithoutCapStillShowsNoLimit()
    {
        HamburgerMenuModel menu;
        menu.setUsage(5000, 0, true);
        QCOMPARE(menu.usageText(), QStringLiteral("No limit set"));
        QCOMPARE(menu.fillFraction(), 0.0);
        QVERIFY(menu.caption().isEmpty());
    }

    void creditsAreRounded()
    {
        HamburgerMenuModel menu;
        menu.setUsage(250000, 1000000, false);
        QCOMPARE(menu.usageText(), QStringLiteral("2K of 10K credits"));
        QCOMPARE(menu.fillFraction(), 0.25);
    }

    void tiersAndCaptions_data()
    {
        QTest::addColumn<qint64>("used");
        QTest::addColumn<bool>("exceeded");
        QTest::addColumn<Tier>("tier");
        QTest::addColumn<double>("fill");
        QTest::addColumn<QString>("caption");
        QTest::newRow("0") << qint64(0) << false << Tier::Normal << 0.0
                           << QStringLiteral("0% used");
        QTest::newRow("79.9") << qint64(799) << false << Tier::Normal << 0.799
                              << QStringLiteral("79% used");
        QTest::newRow("80") << qint64(800) << false << Tier::Amber << 0.8
                            << QStringLiteral("80% used");
        QTest::newRow("94.9") << qint64(949) << false << Tier::Amber << 0.949
                              << QStringLiteral("94% used");
        QTest::newRow("95") << qint64(950) << false << Tier::Danger << 0.95
                            << QStringLiteral("95% used. Almost out of credits.");
        QTest::newRow("110, not exceeded") << qint64(1100) << false << Tier::Danger << 1.0
                                           << QStringLiteral("110% used. Almost out of credits.");
        QTest::newRow("exceeded") << qint64(1250) << true << Tier::Exceeded << 1.0
                                  << QStringLiteral("Limit exceeded. Sending is blocked.");
        QTest::newRow("negative") << qint64(-10) << false << Tier::Normal << 0.0
                                  << QStringLiteral("-1% used");
    }
    void tiersAndCaptions()
    {
        QFETCH(qint64, used);
        QFETCH(bool, exceeded);
        QFETCH(Tier, tier);
        QFETCH(double, fill);
        QFETCH(QString, caption);
        HamburgerMenuModel menu;
        menu.setUsage(used, 1000, exceeded);
        QCOMPARE(menu.tier(), tier);
        QCOMPARE(menu.fillFraction(), fill);
        QCOMPARE(menu.caption(), caption);
    }

    void rowsAreHiddenUntilAvailable()
    {
        HamburgerMenuModel menu;
        QVERIFY(!menu.historyAvailable());
        QVERIFY(!menu.settingsAvailable());
        QSignalSpy changed(&menu, &HamburgerMenuModel::rowsChanged);
        menu.setHistoryAvailable(true);
        menu.setSettingsAvailable(true);
        menu.setSettingsAvailable(true);
        QVERIFY(!menu.capturesAvailable());
        menu.setCapturesAvailable(true);
        menu.setCapturesAvailable(true);
        QVERIFY(menu.capturesAvailable());
        QCOMPARE(changed.size(), 3);
        QVERIFY(menu.historyAvailable());
        QVERIFY(menu.settingsAvailable());
        QVERIFY(!menu.connectAvailable());
        menu.setConnectAvailable(true);
        menu.setConnectAvailable(true);
        QCOMPARE(changed.size(), 4);
        QVERIFY(menu.connectAvailable());
    }

    void secondPageIsForOneThread()
    {
        HamburgerMenuModel menu;
        QVERIFY(!menu.exportAvailable());
        menu.setExportAvailable(true);
        QVERIFY(menu.exportAvailable());
        QVERIFY(!menu.isExportShown());
        QSignalSpy changed(&menu, &HamburgerMenuModel::pageChanged);
        menu.showMain();
        QCOMPARE(changed.size(), 0);
        menu.showExport(QStringLiteral("A thread"), true);
        QVERIFY(menu.isExportShown());
        QVERIFY(menu.answerAvailable());
        QCOMPARE(menu.exportTitle(), QStringLiteral("A thread"));
        menu.showExport(QStringLiteral("Another"), false);
        QVERIFY(!menu.answerAvailable());
        QCOMPARE(changed.size(), 2);
        menu.showMain();
        QVERIFY(!menu.isExportShown());
        QCOMPARE(changed.size(), 3);
    }

    void unchangedUsageIsNotSignalled()
    {
        HamburgerMenuModel menu;
        QSignalSpy changed(&menu, &HamburgerMenuModel::usageChanged);
        menu.setUsage(1, 2, false);
        menu.setUsage(1, 2, false);
        QCOMPARE(changed.size(), 1);
    }
};

QUELLORA_TEST(QGuiApplication, TestHamburgerMenuModel)
#include "test_hamburger_menu_model.moc"
