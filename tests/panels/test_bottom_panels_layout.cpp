#include "panels/BottomPanelsLayout.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QTest>

using quellora::BottomPanelsLayout;

namespace {

/// Height available for the panels and the answer in a window of this height.
double availableIn(int windowHeight)
{
    return windowHeight - 34 - 38;
}

} // namespace

class TestBottomPanelsLayout : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_layout = std::make_unique<BottomPanelsLayout>();
        set("availableHeight", availableIn(744));
        set("promptTextHeight", 20.0);
    }

    void defaultHeight() { QCOMPARE(m_layout->totalHeight(), 140.0); }

    void compactDefaultLeaves132ForAnswer()
    {
        compact();
        QCOMPARE(m_layout->totalHeight(), 76.0);
        QCOMPARE(availableIn(280) - m_layout->totalHeight(), 132.0);
    }

    void promptGrowsToFiveLines_data()
    {
        QTest::addColumn<double>("textHeight");
        QTest::addColumn<double>("promptHeight");
        QTest::newRow("empty") << 0.0 << 88.0;
        QTest::newRow("2 lines") << 40.0 << 88.0;
        QTest::newRow("3 lines") << 60.0 << 108.0;
        QTest::newRow("5 lines") << 100.0 << 148.0;
        QTest::newRow("40 lines") << 800.0 << 148.0;
    }
    void promptGrowsToFiveLines()
    {
        QFETCH(double, textHeight);
        QFETCH(double, promptHeight);
        set("promptTextHeight", textHeight);
        QCOMPARE(m_layout->promptHeight(), promptHeight);
        compact();
        QCOMPARE(m_layout->promptHeight(), 64.0);
    }

    void attachmentAddsRow()
    {
        set("hasAttachment", true);
        QCOMPARE(m_layout->totalHeight(), 140.0 + 56 + 8);
        compact();
        QCOMPARE(m_layout->totalHeight(), 76.0 + 36 + 6);
    }

    void firstLaunchCardAddsRow()
    {
        set("hasFirstLaunchCard", true);
        set("firstLaunchCardHeight", 185.0);
        QCOMPARE(m_layout->totalHeight(), 140.0 + 185 + 8);
    }

    void cardCollapsesToHeader()
    {
        set("hasCard", true);
        set("cardBodyHeight", 100.0);
        QCOMPARE(m_layout->cardHeight(), 136.0);
        set("isCardCollapsed", true);
        QCOMPARE(m_layout->cardHeight(), 36.0);
        QCOMPARE(m_layout->totalHeight(), 140.0 + 36 + 8);
    }

    void cardTakesAtMost40Percent()
    {
        set("hasCard", true);
        set("cardBodyHeight", 5000.0);
        QCOMPARE(m_layout->cardHeight(), 268.0); // 40% of 672
    }

    void compactCardShowsTwoLines()
    {
        compact();
        set("hasCard", true);
        set("cardBodyHeight", 500.0);
        QCOMPARE(m_layout->cardHeight(), 32.0 + 46);
        QCOMPARE(m_layout->totalHeight(), 76.0 + 78 + 6);
        QVERIFY(availableIn(280) - m_layout->totalHeight() >= 48);
    }

    void modelListShowsAtMostFiveRows()
    {
        set("isModelListOpen", true);
        set("modelCount", 3);
        QCOMPARE(m_layout->modelListHeight(), 3 * 36.0 + 8);
        set("modelCount", 9);
        QCOMPARE(m_layout->modelListHeight(), 5 * 36.0 + 8);
    }

    void answerKeepsMinimumHeight_data()
    {
        QTest::addColumn<bool>("isCompact");
        QTest::addColumn<int>("windowHeight");
        for (const int height : {280, 300, 419})
            QTest::addRow("compact %d", height) << true << height;
        for (const int height : {420, 500, 744})
            QTest::addRow("regular %d", height) << false << height;
    }
    void answerKeepsMinimumHeight()
    {
        QFETCH(bool, isCompact);
        QFETCH(int, windowHeight);
        set("compact", isCompact);
        set("availableHeight", availableIn(windowHeight));
        set("modelCount", 8);
        set("firstLaunchCardHeight", 185.0);
        set("cardBodyHeight", 400.0);
        set("promptTextHeight", 200.0);
        for (int bits = 0; bits < 32; ++bits) {
            set("hasCard", (bits & 1) != 0);
            set("hasFirstLaunchCard", (bits & 2) != 0);
            set("hasAttachment", (bits & 4) != 0);
            set("isModelListOpen", (bits & 8) != 0);
            set("isEditing", (bits & 16) != 0);
            QVERIFY2(availableIn(windowHeight) - m_layout->totalHeight() >= 48,
                     qPrintable(QString::number(bits)));
            if (bits & 8)
                QVERIFY(m_layout->modelListHeight() >= 36);
        }
    }

    void openModelListHidesCardsOnlyIfNeeded()
    {
        set("hasCard", true);
        set("cardBodyHeight", 60.0);
        set("isModelListOpen", true);
        set("modelCount", 3);
        QVERIFY(m_layout->areCardsShown());
        compact();
        QVERIFY(!m_layout->areCardsShown());
        set("isModelListOpen", false);
        QVERIFY(m_layout->areCardsShown());
    }

private:
    void set(const char *name, const QVariant &value)
    {
        QVERIFY2(m_layout->setProperty(name, value), name);
    }
    void compact()
    {
        set("compact", true);
        set("availableHeight", availableIn(280));
    }

    std::unique_ptr<BottomPanelsLayout> m_layout;
};

QUELLORA_TEST(QGuiApplication, TestBottomPanelsLayout)
#include "test_bottom_panels_layout.moc"
