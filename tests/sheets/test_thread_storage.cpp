#include "fakes/FakeThreadLibrary.h"
#include "fakes/LogCapture.h"
#include "history/ThreadController.h"
#include "sheets/settings/ThreadStorage.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

const QDateTime noon(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);

struct Fixture
{
    QUuid add(int daysAgo) { return library.add("thread", noon.addDays(-daysAgo)).id; }
    void open()
    {
        storage.setOpen(true);
        QCoreApplication::processEvents();
    }
    void commitDays(const QString &text)
    {
        storage.commitDays(text);
        QCoreApplication::processEvents();
    }
    void setLimited(bool isLimited)
    {
        storage.setLimited(isLimited);
        QCoreApplication::processEvents();
    }
    void deleteAll()
    {
        storage.deleteAll();
        QCoreApplication::processEvents();
    }

    LogCapture log;
    JsonUserDefaults defaults;
    Settings settings{defaults};
    FakeThreadLibrary library;
    ThreadController threads{settings, nullptr};
    PendingRemovals removals;
    HistoryController history{library, threads, removals};
    ThreadStorage storage{settings,         library,
                          history,          Vocabulary::linuxDesktop(),
                          QLocale("en_US"), [] { return noon; }};
};

} // namespace

class TestThreadStorage : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void spaceIsMeasuredWhileOpen()
    {
        Fixture f;
        QCOMPARE(f.storage.space(), QString());
        QVERIFY(!f.storage.hasThreads());
        f.open();
        QCOMPARE(f.storage.space(), QString("No saved threads"));
        f.library.bytesPerThread = 400'000'000;
        const QUuid one = f.add(1);
        f.open();
        QCOMPARE(f.storage.space(), QString("1 thread, 400.0 MB"));
        f.add(1);
        f.library.skipped.append({QUuid::createUuid(), "damaged"});
        f.open();
        QCOMPARE(f.storage.space(), QString("3 threads, 1.2 GB"));
        QVERIFY(f.storage.hasThreads());
        // Closed, it asks no more.
        f.storage.setOpen(false);
        f.library.calls.clear();
        f.history.deleteThreads({one});
        QCoreApplication::processEvents();
        QVERIFY(f.library.calls.isEmpty());
        QCOMPARE(f.storage.space(), QString("2 threads, 800.0 MB"));
    }

    void unreadableFolderIsReported()
    {
        Fixture f;
        f.add(1);
        f.library.listError = StoreError{StoreError::Kind::File, {}, 0, "not permitted"};
        f.open();
        QCOMPARE(f.storage.problem(), QString("The saved threads can't be read."));
        QVERIFY(f.log.contains("[ThreadStorage] ERROR: Failed to measure sessions: not permitted"));
        QCOMPARE(f.storage.space(), QString());
        // Nothing is switched on whose effect is unknown.
        f.setLimited(true);
        QVERIFY(!f.storage.isLimited() && !f.storage.isAsking());
        f.library.listError.reset();
        f.open();
        QCOMPARE(f.storage.problem(), QString());
    }

    void limitIsOffByDefault()
    {
        Fixture f;
        QVERIFY(!f.storage.isLimited());
        QCOMPARE(f.storage.days(), 30);
        f.settings.setKeepThreadsDays("7");
        QVERIFY(f.storage.isLimited());
        QCOMPARE(f.storage.days(), 7);
    }

    void limitThatDeletesNothingNeedsNoQuestion()
    {
        Fixture f;
        f.add(29);
        f.open();
        f.setLimited(true);
        QVERIFY(!f.storage.isAsking());
        QCOMPARE(f.settings.keepThreadsDays(), QString("30"));
        f.setLimited(false);
        QCOMPARE(f.settings.keepThreadsDays(), QString());
        QCOMPARE(f.storage.days(), 30);
    }

    void limitAsksFirstWithTheNumber()
    {
        Fixture f;
        f.library.bytesPerThread = 1500;
        f.add(31);
        f.add(400);
        f.add(29);
        // Those in use stay, and what cannot be read does.
        f.threads.openFromHistory(f.library.sessions.value(f.add(500)));
        f.library.skipped.append({QUuid::createUuid(), "damaged"});
        f.open();
        f.setLimited(true);
        QVERIFY(f.storage.isAsking());
        QVERIFY(!f.storage.isLimited());
        QCOMPARE(f.storage.questionTitle(), QString("Delete older threads?"));
        QCOMPARE(f.storage.questionText(),
                 QString("2 threads, 3.0 kB, unchanged for more than 30 days, will be permanently "
                         "removed from this computer. This can't be undone."));
        f.storage.cancel();
        QVERIFY(!f.storage.isAsking() && !f.storage.isLimited());
        f.setLimited(true);
        f.storage.confirm();
        QVERIFY(!f.storage.isAsking());
        QCOMPARE(f.settings.keepThreadsDays(), QString("30"));
        f.storage.confirm();
        f.storage.cancel();
        QVERIFY(f.storage.isLimited());
    }

    void onlyAShorterTimeAsks()
    {
        Fixture f;
        f.settings.setKeepThreadsDays("30");
        f.add(20);
        f.open();
        f.commitDays("40");
        QCOMPARE(f.settings.keepThreadsDays(), QString("40"));
        f.commitDays("10");
        QVERIFY(f.storage.isAsking());
        QCOMPARE(f.settings.keepThreadsDays(), QString("40"));
        QSignalSpy shown(&f.storage, &ThreadStorage::limitChanged);
        f.storage.cancel();
        // The field shows the days in force again.
        QCOMPARE(shown.size(), 1);
        QCOMPARE(f.storage.days(), 40);
        f.commitDays("1");
        QVERIFY(f.storage.questionText().contains("unchanged for more than 1 day,"));
        f.storage.confirm();
        QCOMPARE(f.storage.days(), 1);
    }

    void daysAreRememberedWhileOff()
    {
        Fixture f;
        f.add(20);
        f.open();
        f.commitDays("7");
        QVERIFY(!f.storage.isAsking());
        QCOMPARE(f.storage.days(), 7);
        QCOMPARE(f.settings.keepThreadsDays(), QString());
        f.setLimited(true);
        QVERIFY(f.storage.isAsking());
        f.storage.confirm();
        QCOMPARE(f.settings.keepThreadsDays(), QString("7"));
    }

    void otherTextsAreRefused()
    {
        Fixture f;
        f.open();
        for (const char *text : {"", "0", "many", "3651"}) {
            f.commitDays(text);
            QCOMPARE(f.storage.daysError(), QString("Enter a number of days from 1 to 3,650"));
        }
        QCOMPARE(f.storage.days(), 30);
        f.commitDays(" 30 ");
        QCOMPARE(f.storage.daysError(), QString());
    }

    void allThreadsAreDeletedAfterAQuestion()
    {
        Fixture f;
        f.library.bytesPerThread = 600;
        f.add(1);
        const QUuid damaged = QUuid::createUuid();
        f.library.skipped.append({damaged, "damaged"});
        f.open();
        // One more since the sheet was opened.
        f.add(1);
        f.deleteAll();
        QCOMPARE(f.storage.questionTitle(), QString("Delete all threads?"));
        QCOMPARE(f.storage.questionText(),
                 QString("3 threads, 1.8 kB, will be permanently removed from this computer."));
        f.storage.cancel();
        QVERIFY(f.removals.isEmpty());
        f.deleteAll();
        f.storage.confirm();
        QCOMPARE(f.removals.text(), QString("Deleted 3 threads"));
        QCOMPARE(f.storage.space(), QString("No saved threads"));
        QVERIFY(!f.storage.hasThreads());
        QVERIFY(f.history.isHidden(damaged));
        f.removals.undo();
        QCOMPARE(f.storage.space(), QString("3 threads, 1.8 kB"));
        f.deleteAll();
        f.storage.confirm();
        f.removals.commitAll();
        QTRY_VERIFY(f.library.sessions.isEmpty());
        // Nothing to ask about.
        f.library.skipped.clear();
        f.deleteAll();
        QVERIFY(!f.storage.isAsking());
    }

    void whatCannotBeDeletedIsReported()
    {
        Fixture f;
        f.add(1);
        f.add(1);
        f.open();
        f.library.failure = StoreError{StoreError::Kind::File, {}, 0, "not permitted"};
        f.deleteAll();
        f.storage.confirm();
        f.removals.commitAll();
        QTRY_COMPARE(f.storage.problem(), QString("2 threads can't be deleted."));
        QCOMPARE(f.storage.space(), QString("2 threads, 2.0 kB"));
    }

    void closingDropsTheQuestion()
    {
        Fixture f;
        f.add(1);
        f.open();
        f.deleteAll();
        QVERIFY(f.storage.isAsking());
        f.storage.setOpen(false);
        QVERIFY(!f.storage.isAsking());
        // So does closing before the threads are measured.
        f.open();
        f.storage.deleteAll();
        f.storage.setOpen(false);
        QCoreApplication::processEvents();
        QVERIFY(!f.storage.isAsking());
    }
};

QUELLORA_TEST(QGuiApplication, TestThreadStorage)
#include "test_thread_storage.moc"
