#include "platform/macos/CaptureExclusion.h"
#include "platform/macos/LastAnswer.h"
#include "platform/macos/RecorderKeys.h"
#include "platform/macos/Subscription.h"
#include "support/TestProgram.h"

#include <QTest>

using namespace quellora;

namespace {

// The system's flags.
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
    void modifiers_data()
    {
        QTest::addColumn<quint64>("native");
        QTest::addColumn<quint32>("modifiers");
        QTest::newRow("none") << quint64(0) << 0U;
        QTest::newRow("shift") << shift << quint32(GlobalHotkeys::Shift);
        QTest::newRow("control") << control << quint32(GlobalHotkeys::Control);
        QTest::newRow("option") << option << quint32(GlobalHotkeys::Option);
        QTest::newRow("command") << command << quint32(GlobalHotkeys::Command);
        QTest::newRow("all") << (shift | control | option | command)
                             << (GlobalHotkeys::Shift | GlobalHotkeys::Control |
                                 GlobalHotkeys::Option | GlobalHotkeys::Command);
        QTest::newRow("others do not count")
            << (capsLock | keypad | leftCommandKey | command) << quint32(GlobalHotkeys::Command);
    }
    void modifiers()
    {
        QFETCH(quint64, native);
        QTEST(recorderKeyDown(native, QStringLiteral("c"), 8).modifiers, "modifiers");
    }

    void characters_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("character");
        QTest::newRow("letter") << "c"
                                << "c";
        QTest::newRow("with caps lock") << "C"
                                        << "c";
        QTest::newRow("digit") << "3"
                               << "3";
        for (const char *sign : {"[", "]", "-", "=", ";", "'", ",", ".", "/", "\\", "`"})
            QTest::newRow(sign) << QString::fromLatin1(sign) << QString::fromLatin1(sign);
        QTest::newRow("letter of another alphabet") << QStringLiteral("Ф") << QStringLiteral("ф");
        QTest::newRow("other sign") << "#"
                                    << "";
        QTest::newRow("space") << " "
                               << "";
        QTest::newRow("return") << "\r"
                                << "";
        QTest::newRow("function key") << QString(QChar(0xf704)) << "";
        QTest::newRow("nothing") << ""
                                 << "";
        QTest::newRow("dead key that writes two") << "ab"
                                                  << "";
    }
    void characters()
    {
        QFETCH(QString, typed);
        QTEST(recorderKeyDown(0, typed, 8).character, "character");
    }

    void escapeIsAKeyNotACharacter()
    {
        const KeyDown escape = recorderKeyDown(0, QStringLiteral("\x1b"), 53);
        QVERIFY(escape.isEscape);
        QCOMPARE(escape.character, QString());
        QVERIFY(!recorderKeyDown(0, QStringLiteral("c"), 8).isEscape);
    }

    void captureExclusionSaysWhatItIsWorth()
    {
        QVERIFY(captureExclusion(true, 13).isApplied());
        QVERIFY(captureExclusion(true, 14).isApplied());
        const Capability newer = captureExclusion(true, 15);
        QCOMPARE(newer.state(), Capability::State::BestEffort);
        QVERIFY(!newer.reason().isEmpty());
        QCOMPARE(captureExclusion(true, 26).state(), Capability::State::BestEffort);
        QCOMPARE(captureExclusion(false, 13).state(), Capability::State::Unsupported);
    }

    void onlyAnotherAnswerIsAChange()
    {
        LastAnswer<int> answer(1);
        QVERIFY(!answer.update(1));
        QVERIFY(answer.update(2));
        QVERIFY(!answer.update(2));
        QCOMPARE(answer.value(), 2);
        QVERIFY(answer.update(1));
    }

    void subscriptionsEndOnce()
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

    void whatEndsMayLookAtTheSubscription()
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
