#include "platform/macos/CaptureExclusion.h"
#include "platform/macos/CarbonKeys.h"
#include "platform/macos/LastValue.h"
#include "platform/macos/RecorderKeys.h"
#include "platform/macos/Subscription.h"
#include "support/TestProgram.h"

#include <QTest>

using namespace quellora;

namespace {

// NSEventModifierFlags.
constexpr quint64 capsLock = 1U << 16;
constexpr quint64 shift = 1U << 17;
constexpr quint64 control = 1U << 18;
constexpr quint64 option = 1U << 19;
constexpr quint64 command = 1U << 20;
constexpr quint64 keypad = 1U << 21;
constexpr quint64 leftCommandKey = 0x8;

} // namespace

class TestMacLogic : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void convertsNativeModifiers_data()
    {
        QTest::addColumn<quint64>("native");
        QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
        QTest::newRow("none") << quint64(0) << Qt::KeyboardModifiers();
        QTest::newRow("shift") << shift << Qt::KeyboardModifiers(Qt::ShiftModifier);
        QTest::newRow("control") << control << Qt::KeyboardModifiers(Qt::ControlModifier);
        QTest::newRow("option") << option << Qt::KeyboardModifiers(Qt::AltModifier);
        QTest::newRow("command") << command << Qt::KeyboardModifiers(Qt::MetaModifier);
        QTest::newRow("all") << (shift | control | option | command)
                             << (Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier |
                                 Qt::MetaModifier);
        QTest::newRow("ignores other flags") << (capsLock | keypad | leftCommandKey | command)
                                             << Qt::KeyboardModifiers(Qt::MetaModifier);
    }
    void convertsNativeModifiers()
    {
        QFETCH(quint64, native);
        QTEST(recorderKeyDown(native, QStringLiteral("c"), 8).modifiers, "modifiers");
    }

    void keyCodesMatchAnsiLayout()
    {
        // Written independently of the program's table, as one string.
        const QStringList rows =
            QStringLiteral("a 0|s 1|d 2|f 3|h 4|g 5|z 6|x 7|c 8|v 9|b 11|q 12|w 13|e 14|r 15|y 16|"
                           "t 17|1 18|2 19|3 20|4 21|6 22|5 23|= 24|9 25|7 26|- 27|8 28|0 29|] 30|"
                           "o 31|u 32|[ 33|i 34|p 35|l 37|j 38|' 39|k 40|; 41|\\ 42|, 43|/ 44|"
                           "n 45|m 46|. 47|` 50")
                .split(u'|');
        QCOMPARE(rows.size(), 47);
        for (const QString &row : rows)
            QCOMPARE(CarbonKeys::keyCode(Qt::Key(row.front().toUpper().unicode())),
                     row.mid(2).toUInt());
        int found = 0;
        for (int key = 0; key < 0x500; ++key)
            found += CarbonKeys::keyCode(Qt::Key(key)).has_value();
        QCOMPARE(found, 47);
        QVERIFY(!CarbonKeys::keyCode(Qt::Key_F5));
    }

    void convertsModifiersToCarbonFlags()
    {
        QCOMPARE(CarbonKeys::modifierFlags({}), 0U);
        QCOMPARE(CarbonKeys::modifierFlags(Qt::MetaModifier), 0x0100U);
        QCOMPARE(CarbonKeys::modifierFlags(Qt::ShiftModifier), 0x0200U);
        QCOMPARE(CarbonKeys::modifierFlags(Qt::AltModifier), 0x0800U);
        QCOMPARE(CarbonKeys::modifierFlags(Qt::ControlModifier), 0x1000U);
        QCOMPARE(CarbonKeys::modifierFlags(Qt::ControlModifier | Qt::ShiftModifier), 0x1200U);
    }

    void convertsTypedCharacter_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("character");
        QTest::newRow("letter") << "c"
                                << "c";
        QTest::newRow("with caps lock") << "C"
                                        << "c";
        QTest::newRow("digit") << "3"
                               << "3";
        for (const char *symbol : {"[", "]", "-", "=", ";", "'", ",", ".", "/", "\\", "`"})
            QTest::newRow(symbol) << QString::fromLatin1(symbol) << QString::fromLatin1(symbol);
        QTest::newRow("non-Latin letter") << QStringLiteral("Ф") << QStringLiteral("ф");
        QTest::newRow("unbindable symbol") << "#"
                                           << "";
        QTest::newRow("space") << " "
                               << "";
        QTest::newRow("return") << "\r"
                                << "";
        QTest::newRow("function key") << QString(QChar(0xf704)) << "";
        QTest::newRow("empty") << ""
                               << "";
        QTest::newRow("dead key with two characters") << "ab"
                                                      << "";
    }
    void convertsTypedCharacter()
    {
        QFETCH(QString, typed);
        QTEST(recorderKeyDown(0, typed, 8).character, "character");
    }

    void escapeHasNoCharacter()
    {
        const KeyDown escape = recorderKeyDown(0, QStringLiteral("\x1b"), 53);
        QVERIFY(escape.isEscape);
        QCOMPARE(escape.character, QString());
        QVERIFY(!recorderKeyDown(0, QStringLiteral("c"), 8).isEscape);
    }

    void captureExclusionDependsOnOsVersion()
    {
        QVERIFY(captureExclusion(true, 13).isApplied());
        QVERIFY(captureExclusion(true, 14).isApplied());
        const Capability newer = captureExclusion(true, 15);
        QCOMPARE(newer.state(), Capability::State::BestEffort);
        QVERIFY(!newer.reason().isEmpty());
        QCOMPARE(captureExclusion(true, 26).state(), Capability::State::BestEffort);
        QCOMPARE(captureExclusion(false, 13).state(), Capability::State::Unsupported);
    }

    void updateReturnsTrueOnChangeOnly()
    {
        LastValue<int> answer(1);
        QVERIFY(!answer.update(1));
        QVERIFY(answer.update(2));
        QVERIFY(!answer.update(2));
        QCOMPARE(answer.value(), 2);
        QVERIFY(answer.update(1));
    }

    void subscriptionEndsOnce()
    {
        int ends = 0;
        {
            Subscription first([&ends] { ++ends; });
            Subscription second(std::move(first));
            QVERIFY(!first.isActive()); // NOLINT(bugprone-use-after-move)
            QVERIFY(second.isActive());
            QCOMPARE(ends, 0);
            second = Subscription([&ends] { ends += 10; });
            QCOMPARE(ends, 1);
            second.reset();
            second.reset();
            QCOMPARE(ends, 11);
        }
        QCOMPARE(ends, 11);
        {
            const Subscription third([&ends] { ++ends; });
        }
        QCOMPARE(ends, 12);
    }

    void subscriptionIsInactiveWhileEnding()
    {
        Subscription subscription;
        bool wasActive = true;
        subscription = Subscription([&] { wasActive = subscription.isActive(); });
        subscription.reset();
        QVERIFY(!wasActive);
    }
};

QUELLORA_TEST(void, TestMacLogic)
#include "test_mac_logic.moc"
