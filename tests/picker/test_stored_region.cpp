#include "picker/StoredRegion.h"
#include "support/TestProgram.h"

using namespace quellora;

class TestStoredRegion : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void survivesText_data()
    {
        QTest::addColumn<QString>("screen");
        QTest::newRow("usual") << "HDMI-1";
        QTest::newRow("none") << "";
        QTest::newRow("odd") << "Screen on %1 — \n3";
    }
    void survivesText()
    {
        QFETCH(QString, screen);
        const StoredRegion region{screen, QSize(1920, 1080), QRect(0, 1070, 1920, 10)};
        QCOMPARE(StoredRegion::fromText(region.toText()), region);
    }

    void formIsStable()
    {
        QCOMPARE((StoredRegion{"DP-1", QSize(800, 600), QRect(1, 2, 3, 4)}.toText()),
                 "1,2 3x4 of 800x600 on DP-1");
    }

    void damagedText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << "";
        QTest::newRow("words") << "nonsense";
        QTest::newRow("no screen") << "1,2 3x4 of 800x600";
        QTest::newRow("negative") << "-1,2 3x4 of 800x600 on a";
        QTest::newRow("empty part") << "1,2 0x4 of 800x600 on a";
        QTest::newRow("beyond the picture") << "790,2 11x4 of 800x600 on a";
        QTest::newRow("no picture") << "0,0 1x1 of 0x0 on a";
        QTest::newRow("too large") << "1,2 333333x4 of 800000x600 on a";
    }
    void damagedText()
    {
        QFETCH(QString, text);
        QVERIFY(!StoredRegion::fromText(text));
    }
};

QUELLORA_TEST(void, TestStoredRegion)
#include "test_stored_region.moc"
