#include "app/UserDefaults.h"
#include "fakes/LogCapture.h"
#include "history/CaptureSession.h"
#include "history/ThreadController.h"

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

    void additionsMoveUpdatedAt()
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

    void firstNoteKeepsTheWholeThread()
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

    void entriesAreInTimeOrderNotesFirst()
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

    void cursorsFollowTheSetting()
    {
        JsonUserDefaults defaults;
        RecordingSaver saver;
        ThreadController threads(defaults, &saver, [] { return t0; });
        CaptureSession session = threads.takeOrCreate();
        session.addScreenshot("a", t0, t0);
        session.addTurn("1", "r", t0, t0);
        session.addTurn("2", "r", t0, t0);
        threads.markForQuery(session);
        QVERIFY(!session.turnPersistenceCursor);
        threads.setCurrentSession(session);
        QVERIFY(saver.saved.isEmpty());

        threads.setKeepAIHistoryEnabled(true);
        QCOMPARE(defaults.boolValue("keepAIHistoryEnabled"), true);
        QCOMPARE(*threads.currentSession()->turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{1, 2}));
        QCOMPARE(saver.saved.size(), 1);

        // Off again: a thread that is being kept stays kept.
        threads.setKeepAIHistoryEnabled(false);
        QVERIFY(threads.currentSession()->turnPersistenceCursor);
    }

    void queryOnANewThreadIsKeptFromItsStart()
    {
        JsonUserDefaults defaults;
        defaults.setBool("keepAIHistoryEnabled", true);
        ThreadController threads(defaults, nullptr, [] { return t0; });
        CaptureSession session = threads.takeOrCreate();
        threads.markForQuery(session);
        QCOMPARE(*session.turnPersistenceCursor, (CaptureSession::TurnPersistenceCursor{0, 0}));
        session.addScreenshot("a", t0);
        threads.markForQuery(session);
        QCOMPARE(*session.turnPersistenceCursor, (CaptureSession::TurnPersistenceCursor{0, 0}));
    }

    void threadFromHistoryIsKeptWhole()
    {
        JsonUserDefaults defaults;
        ThreadController threads(defaults, nullptr, [] { return t0; });
        CaptureSession stored = CaptureSession::create(t0);
        stored.addTurn("p", "r", t0);
        threads.openFromHistory(stored);
        QVERIFY(threads.isSessionLoadedFromHistory());
        QVERIFY(!threads.currentSession()->turnPersistenceCursor);
        threads.setKeepAIHistoryEnabled(true);
        QCOMPARE(*threads.currentSession()->turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{0, 0}));
        threads.openFromHistory(stored);
        QCOMPARE(*threads.currentSession()->turnPersistenceCursor,
                 (CaptureSession::TurnPersistenceCursor{0, 0}));
    }

    void savesNameTheirFailure()
    {
        JsonUserDefaults defaults;
        RecordingSaver saver;
        ThreadController threads(defaults, &saver, [] { return t0; });
        QVERIFY(threads.addNote("note"));
        threads.startNewThread();
        QCOMPARE(saver.prefixes,
                 (QStringList{"[OverlayWindowController] ERROR: Failed to save session to disk: ",
                              "[OverlayWindowController] ERROR: Failed to commit thread before "
                              "starting a new one: "}));
        QVERIFY(threads.currentSession()->notes.isEmpty());
    }

    void noteClearsTheStagedScreenshot()
    {
        JsonUserDefaults defaults;
        ThreadController threads(defaults, nullptr, [] { return t0; });
        threads.stageScreenshot("jpeg");
        QSignalSpy staged(&threads, &ThreadController::stagedScreenshotChanged);
        QVERIFY(!threads.addNote("  "));
        QVERIFY(threads.hasAttachedScreenshot());
        QVERIFY(threads.addNote("x"));
        QVERIFY(!threads.hasAttachedScreenshot());
        QCOMPARE(staged.count(), 1);
    }

    void answerOfAnEndedThreadJoinsThatThread()
    {
        JsonUserDefaults defaults;
        defaults.setBool("keepAIHistoryEnabled", true);
        RecordingSaver saver;
        ThreadController threads(defaults, &saver, [] { return t0; });
        CaptureSession session = threads.takeOrCreate();
        threads.markForQuery(session);
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

QTEST_GUILESS_MAIN(TestCaptureSession)
#include "test_capture_session.moc"
