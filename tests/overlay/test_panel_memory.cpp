#include "base/UserDefaults.h"
#include "overlay/PanelMemory.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QtTest>

using namespace quellora;

namespace {

const QString key = QStringLiteral("panelPlaces");
const PanelMemory::Screen laptop{"eDP-1", {0, 0, 1280, 800}, 2};
const PanelMemory::Screen monitor{"DP-1", {1280, 0, 2560, 1440}, 1};
const PanelMemory::Place place{{40, 56, 624, 744}, 0.88};

struct Fixture
{
    JsonUserDefaults defaults;
    QList<PanelMemory::Screen> screens{laptop};
    PanelMemory memory{defaults, [this] { return screens; }};
};

} // namespace

class PanelMemoryTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void eachArrangementHasItsPlace()
    {
        Fixture f;
        QVERIFY(!f.memory.recall());
        f.memory.remember(place);
        QCOMPARE(f.memory.recall(), place);
        f.screens = {laptop, monitor};
        QVERIFY(!f.memory.recall());
        const PanelMemory::Place other{{-300, 1000, 320, 280}, 0.1};
        f.memory.remember(other);
        QCOMPARE(f.memory.recall(), other);
        // The order of the screens does not matter.
        f.screens = {monitor, laptop};
        QCOMPARE(f.memory.recall(), other);
        f.screens = {laptop};
        QCOMPARE(f.memory.recall(), place);
    }

    void arrangementsDiffer_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QRect>("geometry");
        QTest::addColumn<double>("scale");
        QTest::newRow("name") << "eDP-2" << laptop.geometry << laptop.scale;
        QTest::newRow("size") << laptop.name << QRect(0, 0, 1280, 801) << laptop.scale;
        QTest::newRow("position") << laptop.name << QRect(1, 0, 1280, 800) << laptop.scale;
        QTest::newRow("scale") << laptop.name << laptop.geometry << 1.5;
    }
    void arrangementsDiffer()
    {
        QFETCH(QString, name);
        QFETCH(QRect, geometry);
        QFETCH(double, scale);
        Fixture f;
        f.memory.remember(place);
        f.screens = {{name, geometry, scale}};
        QVERIFY(!f.memory.recall());
    }

    void aLaterRunRemembers()
    {
        Fixture f;
        f.memory.remember(place);
        PanelMemory later(f.defaults, [&f] { return f.screens; });
        QCOMPARE(later.recall(), place);
    }

    void theSamePlaceIsStoredOnce()
    {
        Fixture f;
        QSignalSpy stored(&f.defaults, &UserDefaults::changed);
        f.memory.remember(place);
        f.memory.remember(place);
        QCOMPARE(stored.size(), 1);
    }

    void withoutScreensNothingIsStored()
    {
        Fixture f;
        f.screens.clear();
        f.memory.remember(place);
        QVERIFY(!f.memory.recall());
        QVERIFY(!f.defaults.stringDictionary(key));
    }

    void theLeastRecentArrangementsAreForgotten()
    {
        Fixture f;
        const auto arrange = [&f](int number) {
            f.screens = {{QString::number(number), laptop.geometry, 1}};
        };
        for (int i = 0; i < 12; ++i) {
            arrange(i);
            f.memory.remember(place);
        }
        // The first one is used again.
        arrange(0);
        f.memory.remember({place.frame, 0.5});
        arrange(12);
        f.memory.remember(place);
        QCOMPARE(f.defaults.stringDictionary(key)->size(), PanelMemory::maximumArrangements);
        for (int i = 0; i <= 12; ++i) {
            arrange(i);
            QCOMPARE(f.memory.recall().has_value(), i != 1);
        }
    }

    void hostileStoredValues_data()
    {
        QTest::addColumn<QString>("stored");
        for (const char *stored :
             {"", "40 56 624 744 0.88", "40 56 624 744 0.88 1 2", "a b c d e f",
              "40 56 319 744 0.88 1", "40 56 624 279 0.88 1", "40 56 -624 -744 0.88 1",
              "100001 56 624 744 0.88 1", "40 -2147483648 624 744 0.88 1",
              "40 56 9999999999 744 0.88 1", "40 56 624 744 1.01 1", "40 56 624 744 -0.01 1",
              "40 56 624 744 nan 1", "40 56 624 744 inf 1", "40 56 624 744 0.88 -1",
              "40 56 624 744 0.88 9223372036854775807", "40.5 56 624 744 0.88 1"})
            QTest::newRow(stored) << stored;
    }
    void hostileStoredValues()
    {
        QFETCH(QString, stored);
        Fixture f;
        f.defaults.setStringDictionary(key, {{f.memory.arrangement(), stored}, {"x", stored}});
        QVERIFY(!f.memory.recall());
        f.memory.remember(place);
        QCOMPARE(f.memory.recall(), place);
        // What is no place is dropped.
        QCOMPARE(f.defaults.stringDictionary(key)->size(), 1);
    }

    void manyStoredEntriesAreReduced()
    {
        QMap<QString, QString> stored;
        for (int i = 0; i < 5000; ++i)
            stored.insert(QString::number(i), QStringLiteral("0 0 624 744 0.5 %1").arg(i));
        Fixture f;
        f.defaults.setStringDictionary(key, stored);
        f.memory.remember(place);
        QCOMPARE(f.memory.recall(), place);
        QCOMPARE(f.defaults.stringDictionary(key)->size(), PanelMemory::maximumArrangements);
    }

    void longNamesAreCut()
    {
        Fixture f;
        f.screens = {{QString(100000, 'x'), laptop.geometry, 1}};
        QVERIFY(f.memory.arrangement().size() < 100);
    }
};

QUELLORA_TEST(QCoreApplication, PanelMemoryTest)
#include "test_panel_memory.moc"
