// What of a thread reaches the disk, from the user's actions to the files.

#include "app/UserDefaults.h"
#include "history/BackgroundThreadSaver.h"
#include "history/StoreFixture.h"

#include <QJsonArray>
#include <QTest>

using namespace quellora;

namespace {

/// The thread controller over a real store.
struct Desk
{
    StoreFixture f;
    JsonUserDefaults defaults;
    BackgroundThreadSaver saver{f.store};
    ThreadController threads{defaults, &saver, [] { return t0; }};

    void addScreenshot(const QByteArray &jpeg)
    {
        CaptureSession session = threads.takeOrCreate();
        session.addScreenshot(jpeg, t0, t0);
        threads.setCurrentSession(session);
    }
    /// A query with its answer, as a send makes it.
    void ask(const QString &prompt)
    {
        CaptureSession session = threads.takeOrCreate();
        threads.markForQuery(session);
        threads.setCurrentSession(session);
        threads.addTurn(session.id, prompt, "r");
    }
    const CaptureSession &current() const { return *threads.currentSession(); }
    QJsonObject stored()
    {
        saver.flush();
        return f.json(current().id);
    }
    qsizetype storedCount(const char *key) { return stored()[QLatin1String(key)].toArray().size(); }
    bool isRootUntouched()
    {
        saver.flush();
        return !QFileInfo::exists(f.support.filePath("Quellora"));
    }
};

} // namespace

class TestThreadPersistence : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void nothingIsStoredByDefault()
    {
        Desk desk;
        desk.addScreenshot("a");
        desk.ask("1");
        desk.addScreenshot("b");
        desk.ask("2");
        QVERIFY(!desk.threads.addNote(" \n\t\r\n "));
        QVERIFY(!desk.current().isMarkedForPersistence());
        QVERIFY(desk.current().notes.isEmpty());
        desk.threads.startNewThread();
        desk.threads.endCurrentThread();
        QVERIFY(desk.isRootUntouched());
    }

    void firstNoteKeepsAllScreenshotsAndNoTurns()
    {
        Desk desk;
        for (const char *jpeg : {"a", "b", "c"})
            desk.addScreenshot(jpeg);
        desk.ask("1");
        desk.ask("2");
        QVERIFY(desk.threads.addNote("note"));
        QCOMPARE(desk.storedCount("screenshots"), 3);
        QCOMPARE(desk.storedCount("notes"), 1);
        QVERIFY(desk.stored()["turns"].isArray());
        QCOMPARE(desk.storedCount("turns"), 0);
        QCOMPARE(desk.f.names(desk.current().id),
                 (QStringList{"screenshot-0.png", "screenshot-1.png", "screenshot-2.png",
                              "session.json"}));
    }

    void noteBesideKeptTurns()
    {
        Desk desk;
        desk.addScreenshot("a");
        desk.ask("unkept");
        desk.threads.setKeepAIHistoryEnabled(true);
        desk.ask("kept");
        QCOMPARE(desk.storedCount("screenshots"), 0);
        QVERIFY(desk.threads.addNote("note"));
        QCOMPARE(desk.storedCount("screenshots"), 1);
        QCOMPARE(desk.storedCount("notes"), 1);
        QCOMPARE(desk.storedCount("turns"), 1);
        QCOMPARE(desk.stored()["turns"][0]["prompt"].toString(), "kept");
    }

    void keepingFromTheThirdTurnOn()
    {
        Desk desk;
        desk.addScreenshot("a");
        desk.ask("1");
        desk.addScreenshot("b");
        desk.ask("2");
        desk.threads.setKeepAIHistoryEnabled(true);
        desk.addScreenshot("c");
        desk.ask("3");
        desk.ask("4");
        QCOMPARE(desk.storedCount("turns"), 2);
        QCOMPARE(desk.stored()["turns"][0]["prompt"].toString(), "3");
        QCOMPARE(desk.storedCount("screenshots"), 1);
        QCOMPARE(desk.stored()["screenshots"][0]["index"].toInt(), 2);
        QCOMPARE(desk.f.names(desk.current().id),
                 (QStringList{"screenshot-2.png", "session.json"}));

        // Switching it off stops nothing in this thread, switching it on again starts afresh.
        desk.threads.setKeepAIHistoryEnabled(false);
        desk.ask("5");
        QCOMPARE(desk.storedCount("turns"), 3);
        desk.threads.setKeepAIHistoryEnabled(true);
        QCOMPARE(*desk.current().turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{3, 5}));
        QCOMPARE(desk.storedCount("turns"), 0);

        // The next thread begins without.
        desk.threads.setKeepAIHistoryEnabled(false);
        desk.threads.startNewThread();
        desk.ask("elsewhere");
        QVERIFY(!desk.current().isMarkedForPersistence());
        QVERIFY(desk.stored().isEmpty());
    }

    void threadFromHistoryIsStoredWhole()
    {
        Desk desk;
        CaptureSession session = keptSample();
        session.addNote("note", t0);
        QVERIFY(desk.f.store.save(session));
        desk.threads.openFromHistory(*desk.f.store.load(session.id));
        QVERIFY(!desk.current().isMarkedForPersistence());
        desk.threads.setKeepAIHistoryEnabled(true);
        QVERIFY(desk.threads.isSessionLoadedFromHistory());
        desk.threads.startNewThread();
        QVERIFY(!desk.threads.isSessionLoadedFromHistory());

        desk.threads.openFromHistory(*desk.f.store.load(session.id));
        QVERIFY(!desk.current().notePersistenceCursor);
        // Kept notes need their own cursor; the turns are all there.
        QVERIFY(desk.threads.addNote("another"));
        desk.ask("more");
        QCOMPARE(desk.storedCount("turns"), 2);
        QCOMPARE(desk.storedCount("notes"), 2);
        QCOMPARE(desk.storedCount("screenshots"), 2);
        QVERIFY(desk.threads.isSessionLoadedFromHistory());
    }

    void queryResumesAThreadFromHistory()
    {
        // Opened while nothing was kept, asked while history is.
        Desk desk;
        const CaptureSession session = keptSample();
        QVERIFY(desk.f.store.save(session));
        desk.threads.openFromHistory(*desk.f.store.load(session.id));
        desk.defaults.setBool("keepAIHistoryEnabled", true);
        ThreadController later(desk.defaults, &desk.saver, [] { return t0; });
        later.openFromHistory(*desk.f.store.load(session.id));
        CaptureSession asked = later.takeOrCreate();
        asked.turnPersistenceCursor.reset();
        later.markForQuery(asked);
        QCOMPARE(*asked.turnPersistenceCursor, (CaptureSession::TurnPersistenceCursor{0, 0}));
        // Another thread that is not the one opened begins where it stands.
        CaptureSession other = sample();
        later.markForQuery(other);
        QCOMPARE(*other.turnPersistenceCursor, (CaptureSession::TurnPersistenceCursor{2, 1}));
    }

    void screenshotOfAReopenedThreadGetsItsOwnFile()
    {
        // Kept from its third screenshot on, the thread comes back with a single one.
        Desk desk;
        CaptureSession session = sample();
        session.beginPersistingTurns();
        session.addScreenshot("third", t0, t0);
        QVERIFY(desk.f.store.save(session));
        desk.threads.setKeepAIHistoryEnabled(true);
        desk.threads.openFromHistory(*desk.f.store.load(session.id));
        desk.addScreenshot("new");
        desk.addScreenshot("newer");
        desk.saver.flush();
        const auto loaded = desk.f.store.load(session.id);
        QVERIFY(loaded);
        QCOMPARE(loaded->screenshots.size(), 3);
        QCOMPARE(loaded->screenshots.at(0).imageData, "third");
        QCOMPARE(loaded->screenshots.at(1).imageData, "new");
        QCOMPARE(loaded->screenshots.at(2).imageData, "newer");
    }

    void removedNoteLeavesTheFile()
    {
        Desk desk;
        QVERIFY(desk.threads.addNote("1"));
        QVERIFY(desk.threads.addNote("2"));
        QVERIFY(desk.threads.removeNote(desk.current().notes.first().id));
        QVERIFY(!desk.threads.removeNote(QUuid::createUuid()));
        QCOMPARE(desk.storedCount("notes"), 1);
        QCOMPARE(desk.stored()["notes"][0]["text"].toString(), "2");
        desk.threads.endCurrentThread();
        QVERIFY(!desk.threads.removeNote(QUuid::createUuid()));
    }
};

QTEST_GUILESS_MAIN(TestThreadPersistence)
#include "test_thread_persistence.moc"
