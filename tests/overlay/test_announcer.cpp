#include "overlay/Announcer.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;
using namespace std::chrono_literals;

/// The queue of texts for screen readers.
class TestAnnouncer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void announcesTogetherWhatWaits()
    {
        Announcer announcer(20ms);
        QSignalSpy said(&announcer, &Announcer::announced);
        announcer.say({"One.", "Two."});
        announcer.say({QString(), "Three."});
        QCOMPARE(said.size(), 0);
        QTRY_COMPARE(said.size(), 1);
        QCOMPARE(said[0][0].toString(), "One. Two. Three.");
    }

    void keepsItsDistance()
    {
        Announcer announcer(60ms);
        QList<qint64> times;
        QStringList texts;
        QElapsedTimer clock;
        clock.start();
        connect(&announcer, &Announcer::announced, this, [&](const QString &text) {
            times << clock.elapsed();
            texts << text;
        });
        announcer.say({"One."});
        QTRY_COMPARE(times.size(), 1);
        announcer.say({"Two."});
        announcer.say({"Three."});
        QTRY_COMPARE(times.size(), 2);
        QCOMPARE(texts.last(), "Two. Three.");
        // After a pause longer than the interval, the next one comes at once.
        QTest::qWait(70);
        announcer.say({"Four."});
        QTRY_COMPARE(times.size(), 3);
        for (qsizetype i = 1; i < times.size(); ++i)
            QVERIFY2(times[i] - times[i - 1] >= 58, qPrintable(QString::number(times[i])));
    }

    void longTextsComeOneAfterAnother()
    {
        Announcer announcer(1ms);
        QSignalSpy said(&announcer, &Announcer::announced);
        const QString half(Announcer::maximumLength / 2, QLatin1Char('a'));
        const QString whole(2 * Announcer::maximumLength, QLatin1Char('b'));
        announcer.say({half, half, "c", whole, "d"});
        QTRY_COMPARE(said.size(), 4);
        QCOMPARE(said[0][0].toString(), half);
        QCOMPARE(said[1][0].toString(), half + ". c");
        QCOMPARE(said[2][0].toString(), whole);
        QCOMPARE(said[3][0].toString(), "d");
    }

    void aStateReplacesTheOneThatWaits()
    {
        Announcer announcer(20ms);
        QSignalSpy said(&announcer, &Announcer::announced);
        announcer.sayState("Waiting");
        announcer.say({"One."});
        announcer.sayState("Answering");
        QTRY_COMPARE(said.size(), 1);
        QCOMPARE(said[0][0].toString(), "One. Answering");
        announcer.sayState("Stopped");
        announcer.sayState(QString());
        announcer.say({"Two."});
        QTRY_COMPARE(said.size(), 2);
        QCOMPARE(said[1][0].toString(), "Two.");
    }

    void clearForgetsWhatWaits()
    {
        Announcer announcer(1ms);
        QSignalSpy said(&announcer, &Announcer::announced);
        announcer.say({"One."});
        announcer.clear();
        QTest::qWait(10);
        QCOMPARE(said.size(), 0);
        announcer.say({"Two."});
        QTRY_COMPARE(said.size(), 1);
        QCOMPARE(said[0][0].toString(), "Two.");
    }
};

QUELLORA_TEST(QCoreApplication, TestAnnouncer)
#include "test_announcer.moc"
