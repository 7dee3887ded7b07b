#include "base/Settings.h"
#include "fakes/LogCapture.h"
#include "history/CaptureSession.h"
#include "history/ThreadController.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

const QDateTime t0 = QDateTime::fromString("2026-03-01T14:05:00Z", Qt::ISODate);

class RecordingSaver : public ThreadSaver
{
public:
    void save(const CaptureSession &session, const QString &failurePrefix) override
    {
        saved.append(session);
        prefixes.append(failurePrefix);
    }
    QList<CaptureSession> saved;
    QStringList prefixes;
};

} // namespace

class TestCaptureSession : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void newThreadIsEmpty()
    {
        const CaptureSession session = CaptureSession::create(t0);
        QVERIFY(!session.id.isNull());
        QCOMPARE(session.createdAt, t0);
        QCOMPARE(session.updatedAt, t0);
        QVERIFY(!session.isMarkedForPersistence() && !session.customTitle);
        QCOMPARE(uuidText(session.id).size(), 36);
        QCOMPARE(uuidText(session.id), uuidText(session.id).toUpper());
    }

    void additionsUpdateUpdatedAt()
    {
        CaptureSession session = CaptureSession::create(t0);
        session.addScreenshot("a", t0.addSecs(1), t0.addSecs(2));
        session.addScreenshot("b", t0.addSecs(3), t0.addSecs(4));
        QCOMPARE(session.screenshots.at(1).index, 1);
        QCOMPARE(session.screenshots.at(1).capturedAt, t0.addSecs(3));
        QCOMPARE(session.updatedAt, t0.addSecs(4));
        session.addTurn("p", "r", t0.addSecs(5), t0.addSecs(6));
        QCOMPARE(session.turns.first().createdAt, t0.addSecs(5));
        QCOMPARE(session.updatedAt, t0.addSecs(6));
        QVERIFY(session.addNote("n", t0.addSecs(7)));
        QCOMPARE(session.updatedAt, t0.addSecs(7));
        QCOMPARE(session.createdAt, t0);
    }

    void blankNoteChangesNothing()
    {
        CaptureSession session = CaptureSession::create(t0);
        const CaptureSession before = session;
        QVERIFY(!session.addNote(" \n\t ", t0.addSecs(9)));
        QCOMPARE(session, before);
    }

    void firstNoteKeepsWholeThread()
    {
        CaptureSession session = CaptureSession::create(t0);
        session.addScreenshot("a", t0);
        session.addTurn("p", "r", t0);
        QVERIFY(session.addNote("n", t0));
        QCOMPARE(*session.notePersistenceCursor, (CaptureSession::NotePersistenceCursor{0, 0}));
        QVERIFY(!session.turnPersistenceCursor);
    }

    void notesAreRemovedById()
    {
        CaptureSession session = CaptureSession::create(t0);
        session.addNote("1", t0);
        session.addNote("2", t0);
        QVERIFY(!session.removeNote(QUuid::createUuid()));
        QVERIFY(session.removeNote(session.notes.first().id));
        QCOMPARE(session.notes.size(), 1);
        QCOMPARE(session.notes.first().text, "2");
    }

    void screenshotNumbersAreNotReused()
    {
        CaptureSession session = CaptureSession::create(t0);
        session.addScreenshot("0", t0);
        session.addScreenshot("1", t0);
        QVERIFY(session.removeScreenshot(1));
        QVERIFY(!session.removeScreenshot(1));
        session.addScreenshot("2", t0);
        QCOMPARE(session.screenshots.constLast().index, 2);
        QVERIFY(session.removeScreenshot(0));
        QVERIFY(session.removeScreenshot(2));
        QVERIFY(session.screenshots.isEmpty());
        session.addScreenshot("3", t0);
        QCOMPARE(session.screenshots.constLast().index, 3);
    }

    void removalsShiftCursors()
    {
        CaptureSession session = CaptureSession::create(t0);
        for (const char *jpeg : {"0", "1", "2"})
            session.addScreenshot(jpeg, t0);
        session.addNote("1", t0);
        session.addNote("2", t0);
        session.markAsStored();
        session.notePersistenceCursor = CaptureSession::NotePersistenceCursor{1, 1};
        session.beginPersistingTurns();
        session.addScreenshot("3", t0);
        session.removeScreenshot(0);
        session.removeNote(session.notes.constFirst().id);
        QCOMPARE(*session.notePersistenceCursor, (CaptureSession::NotePersistenceCursor{0, 0}));
        QCOMPARE(session.turnPersistenceCursor->sinceScreenshotIndex, 2);
        QCOMPARE(*session.storedPart, (CaptureSession::StoredPart{2, 1, 0, t0}));
        // Removing an element after the cursor and the stored part changes neither.
        session.removeScreenshot(3);
        QCOMPARE(session.turnPersistenceCursor->sinceScreenshotIndex, 2);
        QCOMPARE(session.storedPart->screenshots, 2);
    }

    void persistenceStartsAtStagedScreenshot()
    {
        CaptureSession session = CaptureSession::create(t0);
        session.addScreenshot("unkept", t0);
        session.addScreenshot("staged", t0);
        session.addScreenshot("later", t0);
        CaptureSession other = session;
        session.beginPersistingTurns(1);
        QCOMPARE(*session.turnPersistenceCursor, (CaptureSession::TurnPersistenceCursor{1, 0}));
        // With an unknown number, persistence starts after the last screenshot.
        other.beginPersistingTurns(7);
        QCOMPARE(*other.turnPersistenceCursor, (CaptureSession::TurnPersistenceCursor{3, 0}));
    }

    void restartingPersistenceKeepsEarlierStart()
    {
        CaptureSession session = CaptureSession::create(t0);
        session.addTurn("unkept", "r", t0);
        session.beginPersistingTurns();
        session.addScreenshot("kept", t0);
        session.addTurn("kept", "r", t0);
        session.beginPersistingTurns();
        QCOMPARE(*session.turnPersistenceCursor, (CaptureSession::TurnPersistenceCursor{0, 1}));
        QCOMPARE(session.keptPart().turns.size(), 1);
        QCOMPARE(session.keptPart().screenshots.size(), 1);
    }

    void keptPart_data()
    {
        // Three entries of each kind; the second turn refers to the first screenshot.
        using Stored = std::optional<CaptureSession::StoredPart>;
        using Notes = std::optional<CaptureSession::NotePersistenceCursor>;
        using Turns = std::optional<CaptureSession::TurnPersistenceCursor>;
        QTest::addColumn<Stored>("stored");
        QTest::addColumn<Notes>("noteCursor");
        QTest::addColumn<Turns>("turnCursor");
        QTest::addColumn<QString>("expected");
        const Stored none;
        const auto stored = [](qint64 screenshots, qint64 notes, qint64 turns) {
            return Stored({screenshots, notes, turns, t0});
        };
        QTest::newRow("none") << none << Notes() << Turns() << " / / ";
        QTest::newRow("notes") << none << Notes({1, 0}) << Turns() << "12/012/";
        QTest::newRow("notes from second") << none << Notes({0, 1}) << Turns() << "012/12/";
        QTest::newRow("turns") << none << Notes() << Turns({1, 2}) << "12/ /2";
        QTest::newRow("both") << none << Notes({2, 1}) << Turns({1, 2}) << "12/12/2";
        QTest::newRow("past the end") << none << Notes({9, 9}) << Turns({9, 9}) << " / / ";
        QTest::newRow("sent screenshot before cursor")
            << none << Notes() << Turns({3, 1}) << "0/ /12";
        QTest::newRow("stored") << stored(1, 2, 1) << Notes() << Turns() << "0/01/0";
        QTest::newRow("stored entirely") << stored(3, 3, 3) << Notes() << Turns() << "012/012/012";
        QTest::newRow("gap between stored part and cursors")
            << stored(1, 1, 1) << Notes({2, 2}) << Turns({2, 2}) << "02/02/02";
        QTest::newRow("stored beyond the cursors")
            << stored(2, 2, 2) << Notes({1, 1}) << Turns({0, 1}) << "012/012/012";
        QTest::newRow("note added to loaded thread")
            << stored(1, 1, 2) << Notes({0, 0}) << Turns() << "012/012/01";
    }
    void keptPart()
    {
        QFETCH(std::optional<CaptureSession::StoredPart>, stored);
        QFETCH(std::optional<CaptureSession::NotePersistenceCursor>, noteCursor);
        QFETCH(std::optional<CaptureSession::TurnPersistenceCursor>, turnCursor);
        QFETCH(QString, expected);
        CaptureSession session = CaptureSession::create(t0);
        for (const char *text : {"0", "1", "2"}) {
            session.addScreenshot(text, t0);
            session.addTurn(text, "r", t0, t0);
            session.notes.append({QUuid::createUuid(), text, t0});
        }
        session.turns[1].screenshot = CaptureSession::TurnScreenshot{0};
        session.storedPart = stored;
        session.notePersistenceCursor = noteCursor;
        session.turnPersistenceCursor = turnCursor;
        const CaptureSession::KeptPart kept = session.keptPart();
        QString found;
        for (const auto &item : kept.screenshots)
            found += QString::fromLatin1(item.imageData);
        found += '/';
        for (const auto &item : kept.notes)
            found += item.text;
        found += '/';
        for (const auto &item : kept.turns)
            found += item.prompt;
        QCOMPARE(found, expected.remove(' '));
        QCOMPARE(kept.isEmpty(), expected == "//");
    }

    void previewTextPrefersTurnsThenNotes()
    {
        CaptureSession session = CaptureSession::create(t0);
        QCOMPARE(session.previewText(), "Screenshot");
        session.addNote("  \n  Hello\nworld", t0);
        QCOMPARE(session.previewText(), "Hello");
        session.addTurn("\n Ask \r\nmore", "r", t0);
        QCOMPARE(session.previewText(), "Ask ");
        QCOMPARE(CaptureSession::firstLine("  \n "), "");
    }

    void entriesAreChronologicalWithNotesFirst()
    {
        CaptureSession session = CaptureSession::create(t0);
        session.addTurn("late", "r", t0.addSecs(10));
        session.addTurn("same", "r", t0.addSecs(5));
        session.addNote("note", t0.addSecs(5));
        const auto entries = chronologicalEntries(session);
        QCOMPARE(entries.size(), 3);
        QVERIFY(std::holds_alternative<CaptureSession::Note>(entries.at(0)));
        QCOMPARE(std::get<CaptureSession::Turn>(entries.at(1)).prompt, "same");
        QCOMPARE(std::get<CaptureSession::Turn>(entries.at(2)).prompt, "late");
    }

    void cursorsFollowSetting()
    {
        JsonUserDefaults defaults;
        Settings settings(defaults);
        RecordingSaver saver;
        ThreadController threads(settings, &saver, [] { return t0; });
        CaptureSession session = threads.threadForQuery();
        QVERIFY(!session.turnPersistenceCursor);
        session.addScreenshot("a", t0, t0);
        session.addTurn("1", "r", t0, t0);
        session.addTurn("2", "r", t0, t0);
        threads.setCurrentSession(session);
        QVERIFY(saver.saved.isEmpty());

        settings.setKeepAIHistoryEnabled(true);
        QCOMPARE(defaults.boolValue("keepAIHistoryEnabled"), true);
        QCOMPARE(*threads.currentSession()->turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{1, 2}));
        QCOMPARE(saver.saved.size(), 1);

        // Turning the setting off does not stop keeping this thread.
        settings.setKeepAIHistoryEnabled(false);
        QVERIFY(threads.currentSession()->turnPersistenceCursor);
    }

    void newThreadIsKeptFromStart()
    {
        JsonUserDefaults defaults;
        Settings settings(defaults);
        defaults.setBool("keepAIHistoryEnabled", true);
        ThreadController threads(settings, nullptr, [] { return t0; });
        CaptureSession session = threads.threadForQuery();
        QCOMPARE(*session.turnPersistenceCursor, (CaptureSession::TurnPersistenceCursor{0, 0}));
        session.addScreenshot("a", t0);
        threads.setCurrentSession(session);
        session = threads.threadForQuery();
        QCOMPARE(*session.turnPersistenceCursor, (CaptureSession::TurnPersistenceCursor{0, 0}));
    }

    void reopenedThreadIsKeptEntirely()
    {
        JsonUserDefaults defaults;
        Settings settings(defaults);
        ThreadController threads(settings, nullptr, [] { return t0; });
        CaptureSession stored = CaptureSession::create(t0);
        stored.addTurn("p", "r", t0);
        threads.openFromHistory(stored);
        QVERIFY(threads.isSessionLoadedFromHistory());
        QVERIFY(!threads.currentSession()->turnPersistenceCursor);
        settings.setKeepAIHistoryEnabled(true);
        QCOMPARE(*threads.currentSession()->turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{0, 0}));
        threads.openFromHistory(stored);
        QCOMPARE(*threads.currentSession()->turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{0, 0}));
    }

    void savesPassFailurePrefix()
    {
        JsonUserDefaults defaults;
        Settings settings(defaults);
        RecordingSaver saver;
        ThreadController threads(settings, &saver, [] { return t0; });
        QVERIFY(threads.addNote("note"));
        threads.startNewThread();
        QCOMPARE(saver.prefixes,
                 (QStringList{"[OverlayWindowController] ERROR: Failed to save session to disk: ",
                              "[OverlayWindowController] ERROR: Failed to commit thread before "
                              "starting a new one: "}));
        QVERIFY(threads.currentSession()->notes.isEmpty());
    }

    void noteClearsStagedScreenshot()
    {
        JsonUserDefaults defaults;
        Settings settings(defaults);
        ThreadController threads(settings, nullptr, [] { return t0; });
        threads.stageScreenshot("jpeg");
        QSignalSpy staged(&threads, &ThreadController::stagedScreenshotChanged);
        QVERIFY(!threads.addNote("  "));
        QVERIFY(threads.hasAttachedScreenshot());
        QVERIFY(threads.addNote("x"));
        QVERIFY(!threads.hasAttachedScreenshot());
        QCOMPARE(staged.count(), 1);
    }

    void answerIsAddedToEndedThread()
    {
        JsonUserDefaults defaults;
        Settings settings(defaults);
        defaults.setBool("keepAIHistoryEnabled", true);
        RecordingSaver saver;
        ThreadController threads(settings, &saver, [] { return t0; });
        CaptureSession session = threads.threadForQuery();
        threads.setCurrentSession(session);
        threads.retain(session.id);
        threads.startNewThread();
        saver.saved.clear();
        QVERIFY(!threads.addTurn(session.id, "p", "r"));
        QCOMPARE(saver.saved.size(), 1);
        QCOMPARE(saver.saved.first().id, session.id);
        QCOMPARE(saver.saved.first().turns.size(), 1);
        QVERIFY(threads.currentSession()->turns.isEmpty());
        threads.release(session.id);
        QVERIFY(!threads.addTurn(session.id, "p", "r"));
        QCOMPARE(saver.saved.size(), 1);
    }
};

QUELLORA_TEST(QCoreApplication, TestCaptureSession)
#include "test_capture_session.moc"
