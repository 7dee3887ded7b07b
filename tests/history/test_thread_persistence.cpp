// What of a thread reaches the disk, from the user's actions to the files.

#include "base/Settings.h"
#include "history/BackgroundThreadSaver.h"
#include "history/StoreFixture.h"
#include "history/ThreadController.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QTest>

using namespace quellora;

namespace {

/// The thread controller over a real store.
struct Desk
{
    StoreFixture f;
    JsonUserDefaults defaults;
    Settings settings{defaults};
    BackgroundThreadSaver saver{f.store};
    ThreadController threads{settings, &saver, [] { return t0; }};

    void addScreenshot(const QByteArray &jpeg)
    {
        CaptureSession session = threads.takeOrCreate();
        session.addScreenshot(jpeg, t0, t0);
        threads.setCurrentSession(session);
    }
    /// A query with its answer, as a send makes it.
    void ask(const QString &prompt)
    {
        CaptureSession session = threads.threadForQuery();
        threads.setCurrentSession(session);
        threads.addTurn(session.id, prompt, "r");
    }
    const CaptureSession &current() const { return *threads.currentSession(); }
    QUuid noteId(const QString &text) const
    {
        for (const auto &note : current().notes) {
            if (note.text == text)
                return note.id;
        }
        return {};
    }
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
        desk.settings.setKeepAIHistoryEnabled(true);
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
        desk.settings.setKeepAIHistoryEnabled(true);
        desk.addScreenshot("c");
        desk.ask("3");
        desk.ask("4");
        QCOMPARE(desk.storedCount("turns"), 2);
        QCOMPARE(desk.stored()["turns"][0]["prompt"].toString(), "3");
        QCOMPARE(desk.storedCount("screenshots"), 1);
        QCOMPARE(desk.stored()["screenshots"][0]["index"].toInt(), 2);
        QCOMPARE(desk.f.names(desk.current().id),
                 (QStringList{"screenshot-2.png", "session.json"}));

        // Switching it off stops nothing in this thread, and on again takes nothing away.
        desk.settings.setKeepAIHistoryEnabled(false);
        desk.ask("5");
        QCOMPARE(desk.storedCount("turns"), 3);
        desk.settings.setKeepAIHistoryEnabled(true);
        QCOMPARE(*desk.current().turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{2, 2}));
        QCOMPARE(desk.storedCount("turns"), 3);
        QCOMPARE(desk.storedCount("screenshots"), 1);

        // The next thread begins without.
        desk.settings.setKeepAIHistoryEnabled(false);
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
        desk.settings.setKeepAIHistoryEnabled(true);
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
        ThreadController later(desk.settings, &desk.saver, [] { return t0; });
        later.openFromHistory(*desk.f.store.load(session.id));
        CaptureSession opened = later.takeOrCreate();
        opened.turnPersistenceCursor.reset();
        later.setCurrentSession(opened);
        QCOMPARE(*later.threadForQuery().turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{0, 0}));
        // Another thread that is not the one opened begins where it stands.
        later.setCurrentSession(sample());
        QCOMPARE(*later.threadForQuery().turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{2, 1}));
    }

    void screenshotOfAReopenedThreadGetsItsOwnFile()
    {
        // Kept from its third screenshot on, the thread comes back with a single one.
        Desk desk;
        CaptureSession session = sample();
        session.beginPersistingTurns();
        session.addScreenshot("third", t0, t0);
        QVERIFY(desk.f.store.save(session));
        desk.settings.setKeepAIHistoryEnabled(true);
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

    void threadFromHistoryIsNeverStoredWithLess_data()
    {
        QTest::addColumn<bool>("keepsAtOpening");
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QStringList>("questions");
        QTest::addColumn<QStringList>("notes");
        QTest::addColumn<QStringList>("screenshots");
        const QStringList p{"p"};
        const QStringList notes{"1", "2", "3"};
        const QStringList jpegs{"jpeg-0", "jpeg-1"};
        QTest::newRow("asked with saving on")
            << true << QStringList{"ask a"} << p + QStringList{"a"} << notes << jpegs;
        QTest::newRow("note with saving off")
            << false << QStringList{"note 4"} << p << notes + QStringList{"4"} << jpegs;
        QTest::newRow("asked, then a note, with saving off")
            << false << QStringList{"ask unkept", "note 4"} << p << notes + QStringList{"4"}
            << jpegs;
        QTest::newRow("note deleted with saving on")
            << true << QStringList{"delete 2"} << p << QStringList{"1", "3"} << jpegs;
        QTest::newRow("note deleted with saving off")
            << false << QStringList{"delete 2"} << p << QStringList{"1", "3"} << jpegs;
        QTest::newRow("all notes deleted with saving off")
            << false << QStringList{"delete 1", "delete 2", "delete 3"} << p << QStringList()
            << jpegs;
        QTest::newRow("asked and captured, then a note deleted, with saving off")
            << false << QStringList{"ask unkept", "capture unkept", "delete 1"} << p
            << QStringList{"2", "3"} << jpegs;
        QTest::newRow("saving switched on") << false << QStringList{"on"} << p << notes << jpegs;
        QTest::newRow("asked, then saving switched on")
            << false << QStringList{"ask a", "on"} << p + QStringList{"a"} << notes << jpegs;
        QTest::newRow("saving switched off, then asked")
            << true << QStringList{"off", "ask a"} << p + QStringList{"a"} << notes << jpegs;
        QTest::newRow("saving switched off and on, a note deleted between")
            << true << QStringList{"ask a", "off", "delete 3", "on", "ask b"}
            << p + QStringList{"a", "b"} << QStringList{"1", "2"} << jpegs;
        QTest::newRow("captured and noted with saving off")
            << false << QStringList{"capture new", "note 4"} << p << notes + QStringList{"4"}
            << jpegs + QStringList{"new"};
        QTest::newRow("left alone with saving off")
            << false << QStringList{"ask unkept", "capture unkept"} << p << notes << jpegs;
    }
    void threadFromHistoryIsNeverStoredWithLess()
    {
        QFETCH(bool, keepsAtOpening);
        QFETCH(QStringList, steps);
        QFETCH(QStringList, questions);
        QFETCH(QStringList, notes);
        QFETCH(QStringList, screenshots);
        Desk desk;
        CaptureSession session = keptSample();
        for (const char *text : {"1", "2", "3"})
            session.addNote(text, t0);
        QVERIFY(desk.f.store.save(session));
        desk.settings.setKeepAIHistoryEnabled(keepsAtOpening);
        desk.threads.openFromHistory(*desk.f.store.load(session.id));
        const auto take = [&](const QString &step) {
            const QString action = step.section(' ', 0, 0);
            const QString text = step.section(' ', 1);
            if (action == "ask")
                desk.ask(text);
            else if (action == "capture")
                desk.addScreenshot(text.toUtf8());
            else if (action == "note")
                desk.threads.addNote(text);
            else if (action == "delete")
                desk.threads.removeNote(desk.noteId(text));
            else
                desk.settings.setKeepAIHistoryEnabled(action == "on");
        };
        for (const QString &step : std::as_const(steps))
            take(step);
        const auto verify = [&] {
            desk.saver.flush();
            const auto stored = desk.f.store.load(session.id);
            QVERIFY(stored);
            QStringList found;
            for (const auto &turn : stored->turns)
                found << turn.prompt;
            QCOMPARE(found, questions);
            found.clear();
            for (const auto &note : stored->notes)
                found << note.text;
            QCOMPARE(found, notes);
            found.clear();
            for (const auto &screenshot : stored->screenshots)
                found << screenshot.imageData;
            QCOMPARE(found, screenshots);
        };
        verify();
        // Ending the thread takes nothing away either.
        desk.threads.startNewThread();
        verify();
    }

    void screenshotThatWaitsIsStoredWithItsQuestion_data()
    {
        QTest::addColumn<QString>("switchedOn");
        for (const char *when :
             {"before the capture", "between capture and question", "while the answer comes"})
            QTest::newRow(when) << when;
    }
    void screenshotThatWaitsIsStoredWithItsQuestion()
    {
        QFETCH(QString, switchedOn);
        Desk desk;
        const auto reached = [&](const char *moment) {
            if (switchedOn == QLatin1String(moment))
                desk.settings.setKeepAIHistoryEnabled(true);
        };
        desk.addScreenshot("earlier");
        desk.ask("earlier");
        reached("before the capture");
        desk.threads.stageScreenshot("staged");
        reached("between capture and question");
        const CaptureSession session = desk.threads.threadForQuery();
        desk.threads.setCurrentSession(session);
        const auto staged = desk.threads.stagedScreenshot();
        desk.threads.clearStagedScreenshot();
        // Already while its question waits for the answer.
        QCOMPARE(desk.storedCount("screenshots"),
                 switchedOn == QLatin1String("while the answer comes") ? 0 : 1);
        reached("while the answer comes");
        desk.threads.addTurn(session.id, "asked", "r", staged);
        desk.saver.flush();
        const auto stored = desk.f.store.load(session.id);
        QVERIFY(stored);
        // What was there before saving was switched on: nothing, or all that came while it was on.
        QCOMPARE(stored->turns.size(), 1);
        QCOMPARE(stored->turns.first().prompt, "asked");
        QCOMPARE(stored->turns.first().screenshot->index, 1);
        QCOMPARE(stored->screenshots.size(), 1);
        QCOMPARE(stored->screenshots.first().index, 1);
        QCOMPARE(stored->screenshots.first().imageData, "staged");
    }

    void emptyThreadMakesNoEntry()
    {
        Desk desk;
        desk.settings.setKeepAIHistoryEnabled(true);
        desk.threads.startNewThread();
        desk.settings.setKeepAIHistoryEnabled(false);
        desk.settings.setKeepAIHistoryEnabled(true);
        // A question that is never answered leaves nothing behind.
        desk.threads.setCurrentSession(desk.threads.threadForQuery());
        QVERIFY(desk.isRootUntouched());
        desk.threads.startNewThread();
        QVERIFY(desk.isRootUntouched());
        // Neither does the thread whose only note is deleted.
        desk.threads.addNote("note");
        desk.saver.flush();
        QCOMPARE(desk.f.store.list()->size(), 1);
        desk.threads.removeNote(desk.current().notes.first().id);
        desk.saver.flush();
        QVERIFY(desk.f.store.list()->isEmpty());
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

QUELLORA_TEST(QCoreApplication, TestThreadPersistence)
#include "test_thread_persistence.moc"
