// Which parts of a thread are stored, from the user's actions to the files.

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

/// A ThreadController with a real store.
struct ControllerFixture
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
    /// Sends a question and adds its answer.
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
        ControllerFixture fixture;
        fixture.addScreenshot("a");
        fixture.ask("1");
        fixture.addScreenshot("b");
        fixture.ask("2");
        QVERIFY(!fixture.threads.addNote(" \n\t\r\n "));
        QVERIFY(!fixture.current().isMarkedForPersistence());
        QVERIFY(fixture.current().notes.isEmpty());
        fixture.threads.startNewThread();
        fixture.threads.endCurrentThread();
        QVERIFY(fixture.isRootUntouched());
    }

    void firstNoteKeepsScreenshotsButNoTurns()
    {
        ControllerFixture fixture;
        for (const char *jpeg : {"a", "b", "c"})
            fixture.addScreenshot(jpeg);
        fixture.ask("1");
        fixture.ask("2");
        QVERIFY(fixture.threads.addNote("note"));
        QCOMPARE(fixture.storedCount("screenshots"), 3);
        QCOMPARE(fixture.storedCount("notes"), 1);
        QVERIFY(fixture.stored()["turns"].isArray());
        QCOMPARE(fixture.storedCount("turns"), 0);
        QCOMPARE(fixture.f.names(fixture.current().id),
                 (QStringList{"screenshot-0.png", "screenshot-1.png", "screenshot-2.png",
                              "session.json"}));
    }

    void noteAndTurnsAreKeptTogether()
    {
        ControllerFixture fixture;
        fixture.addScreenshot("a");
        fixture.ask("unkept");
        fixture.settings.setKeepAIHistoryEnabled(true);
        fixture.ask("kept");
        QCOMPARE(fixture.storedCount("screenshots"), 0);
        QVERIFY(fixture.threads.addNote("note"));
        QCOMPARE(fixture.storedCount("screenshots"), 1);
        QCOMPARE(fixture.storedCount("notes"), 1);
        QCOMPARE(fixture.storedCount("turns"), 1);
        QCOMPARE(fixture.stored()["turns"][0]["prompt"].toString(), "kept");
    }

    void keepsTurnsFromThirdOn()
    {
        ControllerFixture fixture;
        fixture.addScreenshot("a");
        fixture.ask("1");
        fixture.addScreenshot("b");
        fixture.ask("2");
        fixture.settings.setKeepAIHistoryEnabled(true);
        fixture.addScreenshot("c");
        fixture.ask("3");
        fixture.ask("4");
        QCOMPARE(fixture.storedCount("turns"), 2);
        QCOMPARE(fixture.stored()["turns"][0]["prompt"].toString(), "3");
        QCOMPARE(fixture.storedCount("screenshots"), 1);
        QCOMPARE(fixture.stored()["screenshots"][0]["index"].toInt(), 2);
        QCOMPARE(fixture.f.names(fixture.current().id),
                 (QStringList{"screenshot-2.png", "session.json"}));

        // Turning the setting off does not stop keeping this thread; turning it on again removes
        // nothing.
        fixture.settings.setKeepAIHistoryEnabled(false);
        fixture.ask("5");
        QCOMPARE(fixture.storedCount("turns"), 3);
        fixture.settings.setKeepAIHistoryEnabled(true);
        QCOMPARE(*fixture.current().turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{2, 2}));
        QCOMPARE(fixture.storedCount("turns"), 3);
        QCOMPARE(fixture.storedCount("screenshots"), 1);

        // The next thread is not kept.
        fixture.settings.setKeepAIHistoryEnabled(false);
        fixture.threads.startNewThread();
        fixture.ask("elsewhere");
        QVERIFY(!fixture.current().isMarkedForPersistence());
        QVERIFY(fixture.stored().isEmpty());
    }

    void reopenedThreadIsStoredEntirely()
    {
        ControllerFixture fixture;
        CaptureSession session = keptSample();
        session.addNote("note", t0);
        QVERIFY(fixture.f.store.save(session));
        fixture.threads.openFromHistory(*fixture.f.store.load(session.id));
        QVERIFY(!fixture.current().isMarkedForPersistence());
        fixture.settings.setKeepAIHistoryEnabled(true);
        QVERIFY(fixture.threads.isSessionLoadedFromHistory());
        fixture.threads.startNewThread();
        QVERIFY(!fixture.threads.isSessionLoadedFromHistory());

        fixture.threads.openFromHistory(*fixture.f.store.load(session.id));
        QVERIFY(!fixture.current().notePersistenceCursor);
        // Notes need their own cursor; all turns are kept.
        QVERIFY(fixture.threads.addNote("another"));
        fixture.ask("more");
        QCOMPARE(fixture.storedCount("turns"), 2);
        QCOMPARE(fixture.storedCount("notes"), 2);
        QCOMPARE(fixture.storedCount("screenshots"), 2);
        QVERIFY(fixture.threads.isSessionLoadedFromHistory());
    }

    void queryResumesReopenedThread()
    {
        // The thread is opened with history keeping off and queried with it on.
        ControllerFixture fixture;
        const CaptureSession session = keptSample();
        QVERIFY(fixture.f.store.save(session));
        fixture.threads.openFromHistory(*fixture.f.store.load(session.id));
        fixture.defaults.setBool("keepAIHistoryEnabled", true);
        ThreadController later(fixture.settings, &fixture.saver, [] { return t0; });
        later.openFromHistory(*fixture.f.store.load(session.id));
        CaptureSession opened = later.takeOrCreate();
        opened.turnPersistenceCursor.reset();
        later.setCurrentSession(opened);
        QCOMPARE(*later.threadForQuery().turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{0, 0}));
        // In another thread, persistence starts at its current end.
        later.setCurrentSession(sample());
        QCOMPARE(*later.threadForQuery().turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{2, 1}));
    }

    void newScreenshotOfReopenedThreadGetsNewFile()
    {
        // The thread is kept from its third screenshot on, so only that one is loaded.
        ControllerFixture fixture;
        CaptureSession session = sample();
        session.beginPersistingTurns();
        session.addScreenshot("third", t0, t0);
        QVERIFY(fixture.f.store.save(session));
        fixture.settings.setKeepAIHistoryEnabled(true);
        fixture.threads.openFromHistory(*fixture.f.store.load(session.id));
        fixture.addScreenshot("new");
        fixture.addScreenshot("newer");
        fixture.saver.flush();
        const auto loaded = fixture.f.store.load(session.id);
        QVERIFY(loaded);
        QCOMPARE(loaded->screenshots.size(), 3);
        QCOMPARE(loaded->screenshots.at(0).imageData, "third");
        QCOMPARE(loaded->screenshots.at(1).imageData, "new");
        QCOMPARE(loaded->screenshots.at(2).imageData, "newer");
    }

    void reopenedThreadLosesNothing_data()
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
        QTest::newRow("saving turned on") << false << QStringList{"on"} << p << notes << jpegs;
        QTest::newRow("asked, then saving turned on")
            << false << QStringList{"ask a", "on"} << p + QStringList{"a"} << notes << jpegs;
        QTest::newRow("saving turned off, then asked")
            << true << QStringList{"off", "ask a"} << p + QStringList{"a"} << notes << jpegs;
        QTest::newRow("saving turned off, note deleted, saving turned on")
            << true << QStringList{"ask a", "off", "delete 3", "on", "ask b"}
            << p + QStringList{"a", "b"} << QStringList{"1", "2"} << jpegs;
        QTest::newRow("captured and noted with saving off")
            << false << QStringList{"capture new", "note 4"} << p << notes + QStringList{"4"}
            << jpegs + QStringList{"new"};
        QTest::newRow("nothing kept with saving off")
            << false << QStringList{"ask unkept", "capture unkept"} << p << notes << jpegs;
    }
    void reopenedThreadLosesNothing()
    {
        QFETCH(bool, keepsAtOpening);
        QFETCH(QStringList, steps);
        QFETCH(QStringList, questions);
        QFETCH(QStringList, notes);
        QFETCH(QStringList, screenshots);
        ControllerFixture fixture;
        CaptureSession session = keptSample();
        for (const char *text : {"1", "2", "3"})
            session.addNote(text, t0);
        QVERIFY(fixture.f.store.save(session));
        fixture.settings.setKeepAIHistoryEnabled(keepsAtOpening);
        fixture.threads.openFromHistory(*fixture.f.store.load(session.id));
        const auto perform = [&](const QString &step) {
            const QString action = step.section(' ', 0, 0);
            const QString text = step.section(' ', 1);
            if (action == "ask")
                fixture.ask(text);
            else if (action == "capture")
                fixture.addScreenshot(text.toUtf8());
            else if (action == "note")
                fixture.threads.addNote(text);
            else if (action == "delete")
                fixture.threads.removeNote(fixture.noteId(text));
            else
                fixture.settings.setKeepAIHistoryEnabled(action == "on");
        };
        for (const QString &step : std::as_const(steps))
            perform(step);
        const auto verify = [&] {
            fixture.saver.flush();
            const auto stored = fixture.f.store.load(session.id);
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
        // Ending the thread removes nothing either.
        fixture.threads.startNewThread();
        verify();
    }

    void stagedScreenshotIsStoredWithQuestion_data()
    {
        QTest::addColumn<QString>("turnedOn");
        for (const char *when : {"before the capture", "between capture and question",
                                 "while the answer is streaming"})
            QTest::newRow(when) << when;
    }
    void stagedScreenshotIsStoredWithQuestion()
    {
        QFETCH(QString, turnedOn);
        ControllerFixture fixture;
        const auto reached = [&](const char *moment) {
            if (turnedOn == QLatin1String(moment))
                fixture.settings.setKeepAIHistoryEnabled(true);
        };
        fixture.addScreenshot("earlier");
        fixture.ask("earlier");
        reached("before the capture");
        fixture.threads.stageScreenshot("staged");
        reached("between capture and question");
        const CaptureSession session = fixture.threads.threadForQuery();
        fixture.threads.setCurrentSession(session);
        const auto staged = fixture.threads.stagedScreenshot();
        fixture.threads.clearStagedScreenshot();
        // Stored before the answer arrives.
        QCOMPARE(fixture.storedCount("screenshots"),
                 turnedOn == QLatin1String("while the answer is streaming") ? 0 : 1);
        reached("while the answer is streaming");
        fixture.threads.addTurn(session.id, "asked", "r", staged);
        fixture.saver.flush();
        const auto stored = fixture.f.store.load(session.id);
        QVERIFY(stored);
        // Nothing from before the setting was turned on is stored, except the staged screenshot.
        QCOMPARE(stored->turns.size(), 1);
        QCOMPARE(stored->turns.first().prompt, "asked");
        QCOMPARE(stored->turns.first().screenshot->index, 1);
        QCOMPARE(stored->screenshots.size(), 1);
        QCOMPARE(stored->screenshots.first().index, 1);
        QCOMPARE(stored->screenshots.first().imageData, "staged");
    }

    void emptyThreadIsNotStored()
    {
        ControllerFixture fixture;
        fixture.settings.setKeepAIHistoryEnabled(true);
        fixture.threads.startNewThread();
        fixture.settings.setKeepAIHistoryEnabled(false);
        fixture.settings.setKeepAIHistoryEnabled(true);
        // A question without an answer is not stored.
        fixture.threads.setCurrentSession(fixture.threads.threadForQuery());
        QVERIFY(fixture.isRootUntouched());
        fixture.threads.startNewThread();
        QVERIFY(fixture.isRootUntouched());
        // A thread is removed with its only note.
        fixture.threads.addNote("note");
        fixture.saver.flush();
        QCOMPARE(fixture.f.store.list()->size(), 1);
        fixture.threads.removeNote(fixture.current().notes.first().id);
        fixture.saver.flush();
        QVERIFY(fixture.f.store.list()->isEmpty());
    }

    void removedNoteIsDeletedFromFile()
    {
        ControllerFixture fixture;
        QVERIFY(fixture.threads.addNote("1"));
        QVERIFY(fixture.threads.addNote("2"));
        QVERIFY(fixture.threads.removeNote(fixture.current().notes.first().id));
        QVERIFY(!fixture.threads.removeNote(QUuid::createUuid()));
        QCOMPARE(fixture.storedCount("notes"), 1);
        QCOMPARE(fixture.stored()["notes"][0]["text"].toString(), "2");
        fixture.threads.endCurrentThread();
        QVERIFY(!fixture.threads.removeNote(QUuid::createUuid()));
    }
};

QUELLORA_TEST(QCoreApplication, TestThreadPersistence)
#include "test_thread_persistence.moc"
