#include "base/Settings.h"
#include "fakes/FakeThreadLibrary.h"
#include "fakes/LogCapture.h"
#include "history/DayLabel.h"
#include "history/HistoryController.h"
#include "history/ThreadController.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

const QDateTime noon(QDate(2026, 3, 1), QTime(12, 0));

QString line(const QString &text)
{
    return QStringLiteral("[OverlayWindowController] ") + text;
}

class CountingSaver : public ThreadSaver
{
public:
    void save(const CaptureSession &session, const QString &) override { saved.append(session); }
    QList<CaptureSession> saved;
};

} // namespace

class TestHistoryController : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_library = std::make_unique<FakeThreadLibrary>();
        m_saver = std::make_unique<CountingSaver>();
        m_defaults = std::make_unique<JsonUserDefaults>();
        m_settings = std::make_unique<Settings>(*m_defaults);
        m_threads = std::make_unique<ThreadController>(*m_settings, m_saver.get());
        m_removals = std::make_unique<PendingRemovals>();
        m_history = std::make_unique<HistoryController>(*m_library, *m_threads, *m_removals);
        m_log = std::make_unique<LogCapture>();
    }
    void cleanup()
    {
        m_log.reset();
        m_history.reset();
        m_threads.reset();
    }

    void opensNewestFirstAndLogsCount()
    {
        m_library->add("old", noon.addDays(-2));
        m_library->add("new", noon);
        m_library->add("middle", noon.addDays(-1));
        open();
        QCOMPARE(titles(), QStringList({"new", "middle", "old"}));
        QVERIFY(m_log->contains(line("History button clicked — sidebar open=true, 3 session(s)")));
        m_history->historyButtonClicked();
        QVERIFY(!m_history->isHistorySidebarOpen());
        QVERIFY(m_log->contains(line("History button clicked — sidebar open=false, 3 session(s)")));
    }

    void openingReloadsList()
    {
        open();
        QVERIFY(titles().isEmpty());
        m_history->historyButtonClicked();
        m_library->add("later", noon);
        open();
        QCOMPARE(titles(), QStringList("later"));
        QCOMPARE(m_library->lists, 2);
    }

    void batchesAreMergedInOrder()
    {
        m_library->holdsList = true;
        m_history->historyButtonClicked();
        QVERIFY(m_history->isLoading());
        QSignalSpy reset(m_history.get(), &HistoryController::sessionsReset);
        QSignalSpy inserted(m_history.get(), &HistoryController::sessionsInserted);
        deliver({"a", "c"}, {0, -2}, 5);
        QCOMPARE(titles(), QStringList({"a", "c"}));
        deliver({"d"}, {-3}, 5);
        deliver({"b"}, {-1}, 5);
        QCOMPARE(titles(), QStringList({"a", "b", "c", "d"}));
        QCOMPARE(ranges(inserted), QStringList({"0+2", "2+1", "1+1"}));
        QVERIFY(reset.isEmpty());
        QCOMPARE(m_history->threadsRead(), 4);
        QCOMPARE(m_history->threadsInAll(), 5);
        m_library->held->finish();
        QTRY_VERIFY(!m_history->isLoading());
    }

    void threadsStayListedUntilReloadEnds()
    {
        m_library->add("kept", noon);
        m_library->add("gone", noon.addDays(-1));
        open();
        m_history->historyButtonClicked();
        m_library->holdsList = true;
        m_history->historyButtonClicked();
        QSignalSpy inserted(m_history.get(), &HistoryController::sessionsInserted);
        QSignalSpy removed(m_history.get(), &HistoryController::sessionsRemoved);
        QSignalSpy changed(m_history.get(), &HistoryController::sessionChanged);
        QCOMPARE(titles(), QStringList({"kept", "gone"}));
        deliver({"fresh"}, {1}, 2);
        QCOMPARE(titles(), QStringList({"fresh", "kept", "gone"}));
        QVERIFY(removed.isEmpty());
        ThreadBatch batch;
        for (const CaptureSession &session : std::as_const(m_library->sessions)) {
            if (session.previewText() == "kept")
                batch.threads.append(FakeThreadLibrary::summary(session));
        }
        m_library->held->addResult(batch);
        m_library->held->finish();
        QTRY_VERIFY(!m_history->isLoading());
        QCOMPARE(titles(), QStringList({"fresh", "kept"}));
        // Only differences are signalled.
        QCOMPARE(ranges(inserted), QStringList("0+1"));
        QCOMPARE(ranges(removed), QStringList("2+1"));
        QVERIFY(changed.isEmpty());
    }

    void unorderedThreadsAreMergedInSmallSteps()
    {
        m_library->holdsList = true;
        m_history->historyButtonClicked();
        ThreadBatch even;
        ThreadBatch odd;
        for (int i = 0; i < 1000; ++i) {
            const auto thread =
                FakeThreadLibrary::summary(QString::number(i), noon.addSecs(-60 * i));
            (i % 2 == 0 ? even : odd).threads.append(thread);
        }
        even.total = odd.total = 1000;
        QSignalSpy inserted(m_history.get(), &HistoryController::sessionsInserted);
        m_library->held->addResult(even);
        QTRY_COMPARE(inserted.size(), 1);
        m_library->held->addResult(odd);
        m_library->held->finish();
        // Process events one by one until loading ends.
        qsizetype before = inserted.size();
        while (m_history->isLoading()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            QVERIFY2(inserted.size() - before <= 200,
                     "one event loop iteration made too many changes");
            before = inserted.size();
        }
        QCOMPARE(inserted.size(), 501);
        for (int i = 0; i < 1000; ++i)
            QCOMPARE(m_history->historySessions().at(i).title(), QString::number(i));
    }

    void closingStopsPendingChanges()
    {
        m_library->holdsList = true;
        m_history->historyButtonClicked();
        ThreadBatch even;
        ThreadBatch odd;
        for (int i = 0; i < 1000; ++i)
            (i % 2 == 0 ? even : odd)
                .threads.append(FakeThreadLibrary::summary("t", noon.addSecs(-60 * i)));
        connect(m_history.get(), &HistoryController::sessionsInserted, m_history.get(), [this] {
            if (m_history->historySessions().size() == 520)
                m_history->close();
        });
        m_library->held->addResult(even);
        m_library->held->addResult(odd);
        QTRY_VERIFY(!m_history->isLoading());
        QCoreApplication::processEvents();
        QCOMPARE(m_history->historySessions().size(), 520);
    }

    void emptyReloadClearsList()
    {
        const auto thread = m_library->add("gone", noon);
        open();
        m_history->historyButtonClicked();
        m_library->sessions.clear();
        open();
        QVERIFY(titles().isEmpty());
    }

    void closingCancelsReload()
    {
        m_library->holdsList = true;
        m_history->historyButtonClicked();
        m_history->close();
        QVERIFY(!m_history->isLoading());
        QVERIFY(m_library->held->isCanceled());
        deliver({"late"}, {0}, 1);
        QVERIFY(titles().isEmpty());
        // Late results of the cancelled list do not affect the next one.
        auto first = m_library->held;
        m_history->historyButtonClicked();
        first->finish();
        deliver({"right"}, {0}, 1);
        QCOMPARE(titles(), QStringList("right"));
    }

    void userChangesOverrideReload()
    {
        const auto deleted = m_library->add("deleted", noon);
        const auto other = m_library->add("other", noon);
        open();
        m_history->historyButtonClicked();
        m_library->holdsList = true;
        m_history->historyButtonClicked();
        m_history->deleteSession(deleted.id);
        m_removals->commitAll();
        QTRY_VERIFY(!m_history->isHidden(deleted.id));
        m_history->renameSession(other.id, "renamed");
        ThreadBatch batch;
        batch.threads = {FakeThreadLibrary::summary(deleted), FakeThreadLibrary::summary(other)};
        batch.total = 2;
        m_library->held->addResult(batch);
        m_library->held->finish();
        QTRY_VERIFY(!m_history->isLoading());
        QCOMPARE(titles(), QStringList("renamed"));
    }

    void skippedThreadsAreLogged()
    {
        m_library->add("good", noon);
        const QUuid bad = QUuid::createUuid();
        m_library->skipped = {{bad, "the description is damaged"}};
        open();
        QCOMPARE(titles(), QStringList("good"));
        QCOMPARE(m_log->lines.filter(uuidText(bad)),
                 QStringList(line("WARNING: Session " + uuidText(bad) +
                                  " left out of History (non-fatal): the description is damaged")));
        QVERIFY(m_history->notice().isEmpty());
    }

    void unreadableFolderClearsListAndShowsNotice()
    {
        m_library->add("before", noon);
        open();
        m_history->historyButtonClicked();
        m_library->listError = StoreError{StoreError::Kind::File, {}, 0, "no such folder"};
        open();
        QVERIFY(titles().isEmpty());
        QVERIFY(m_log->contains(
            line("ERROR: Failed to list sessions for History sidebar: no such folder")));
        QCOMPARE(m_history->notice(), QStringLiteral("The saved threads can't be read."));
        m_library->listError.reset();
        m_history->historyButtonClicked();
        open();
        QVERIFY(m_history->notice().isEmpty());
    }

    void opensThread_data()
    {
        QTest::addColumn<bool>("keeps");
        QTest::newRow("history kept") << true;
        QTest::newRow("history not kept") << false;
    }
    void opensThread()
    {
        QFETCH(bool, keeps);
        m_settings->setKeepAIHistoryEnabled(keeps);
        const auto stored = m_library->add("question", noon);
        m_threads->stageScreenshot("jpeg");
        open();
        QSignalSpy opened(m_history.get(), &HistoryController::threadOpened);
        m_history->loadSession(stored.id);
        QTRY_COMPARE(opened.size(), 1);
        const auto &current = m_threads->currentSession();
        QCOMPARE(current->id, stored.id);
        QCOMPARE(current->turns, stored.turns);
        QVERIFY(m_threads->isSessionLoadedFromHistory());
        QVERIFY(!m_threads->hasAttachedScreenshot());
        QCOMPARE(current->turnPersistenceCursor.has_value(), keeps);
        if (keeps)
            QCOMPARE(*current->turnPersistenceCursor, CaptureSession::TurnPersistenceCursor());
        QVERIFY(!m_history->isHistorySidebarOpen());
        QVERIFY(m_log->contains(line("Session " + uuidText(stored.id) +
                                     " loaded from History (0 notes, 1 turns, 0 screenshots)")));
    }

    void currentThreadIsNotReloaded()
    {
        const auto stored = m_library->add("question", noon);
        open();
        m_history->loadSession(stored.id);
        QTRY_VERIFY(m_threads->currentSession());
        m_threads->addTurn(stored.id, "unsaved", "answer");
        open();
        m_library->calls.clear();
        m_history->loadSession(stored.id);
        QCOMPARE(m_threads->currentSession()->turns.size(), 2);
        QVERIFY(m_library->calls.isEmpty());
        QVERIFY(!m_history->isHistorySidebarOpen());
    }

    void lastRequestedThreadIsOpened()
    {
        const auto first = m_library->add("first", noon);
        const auto second = m_library->add("second", noon);
        open();
        QSignalSpy opened(m_history.get(), &HistoryController::threadOpened);
        m_history->loadSession(first.id);
        m_history->loadSession(second.id);
        QTRY_COMPARE(opened.size(), 1);
        QCOMPARE(m_threads->currentSession()->id, second.id);
        QTest::qWait(0);
        QCOMPARE(opened.size(), 1);
    }

    void answerDuringOpeningIsNotLost()
    {
        m_settings->setKeepAIHistoryEnabled(true);
        auto stored = m_library->add("question", noon);
        open();
        m_history->loadSession(stored.id);
        QTRY_VERIFY(m_threads->currentSession());
        m_threads->retain(stored.id);
        m_threads->startNewThread();
        open();
        m_history->loadSession(stored.id);
        // The answer arrives after the thread was read but before it is opened.
        m_threads->addTurn(stored.id, "late", "answer");
        m_library->sessions[stored.id] = m_saver->saved.constLast();
        m_threads->release(stored.id);
        QTRY_COMPARE(m_threads->currentSession()->id, stored.id);
        QCOMPARE(m_threads->currentSession()->turns.size(), 2);
    }

    void titleChangeDuringOpeningIsNotLost()
    {
        const auto stored = m_library->add("question", noon);
        open();
        m_history->loadSession(stored.id);
        m_history->renameSession(stored.id, "Plan");
        QTRY_VERIFY(m_threads->currentSession());
        QCOMPARE(m_threads->currentSession()->customTitle, std::optional(QString("Plan")));
    }

    void closingCancelsOpening()
    {
        const auto stored = m_library->add("question", noon);
        open();
        m_history->loadSession(stored.id);
        m_history->close();
        open();
        QTest::qWait(0);
        QVERIFY(!m_threads->currentSession());
    }

    void failedOpeningShowsNotice()
    {
        open();
        const QUuid id = QUuid::createUuid();
        m_history->loadSession(id);
        QTRY_COMPARE(m_history->notice(), QStringLiteral("This thread can't be opened."));
        QVERIFY(m_history->isHistorySidebarOpen());
        QVERIFY(m_log->contains(line("ERROR: Failed to load session " + uuidText(id) +
                                     " from History: No saved session found for " + uuidText(id))));
    }

    void deletedThreadIsRemovedWhenItsTimeIsOver()
    {
        const auto deleted = m_library->add("deleted", noon);
        m_library->add("other", noon.addDays(-1));
        open();
        QSignalSpy announced(m_history.get(), &HistoryController::threadsDeleted);
        QSignalSpy emptied(m_history.get(), &HistoryController::currentThreadDeleted);
        m_history->deleteSession(deleted.id);
        QCOMPARE(titles(), QStringList("other"));
        QCOMPARE(m_removals->text(), QString("Deleted “deleted”"));
        // Until then nothing is lost, and reading the list again shows no more of it.
        reopen();
        QCOMPARE(titles(), QStringList("other"));
        QVERIFY(m_library->sessions.contains(deleted.id));
        QVERIFY(announced.isEmpty());
        m_removals->commitAll();
        QTRY_COMPARE(announced.size(), 1);
        QCOMPARE(announced.first().first().value<QSet<QUuid>>(), QSet<QUuid>{deleted.id});
        QVERIFY(!m_library->sessions.contains(deleted.id));
        QVERIFY(m_log->contains(line("Session " + uuidText(deleted.id) + " deleted")));
        QVERIFY(emptied.isEmpty());
        QVERIFY(!m_history->isHidden(deleted.id));
    }

    void undoneDeletionChangesNothing()
    {
        const auto stored = m_library->add("back", noon);
        m_library->add("newer", noon.addDays(1));
        m_library->add("older", noon.addDays(-1));
        open();
        QSignalSpy restored(m_history.get(), &HistoryController::sessionRestored);
        m_history->deleteSession(stored.id);
        QCOMPARE(titles(), QStringList({"newer", "older"}));
        m_removals->undo();
        QCOMPARE(titles(), QStringList({"newer", "back", "older"}));
        QCOMPARE(restored.size(), 1);
        QCOMPARE(restored.first().first().toLongLong(), 1);
        QTRY_VERIFY(!m_history->isLoading());
        QCOMPARE(titles(), QStringList({"newer", "back", "older"}));
        m_removals->commitAll();
        QVERIFY(!m_library->calls.contains("remove"));
    }

    void undoDuringReloadListsThreadOnce()
    {
        const auto stored = m_library->add("back", noon);
        const auto other = m_library->add("other", noon.addDays(-1));
        open();
        m_history->deleteSession(stored.id);
        m_history->historyButtonClicked();
        m_library->holdsList = true;
        m_history->historyButtonClicked();
        ThreadBatch batch;
        batch.threads = {FakeThreadLibrary::summary(stored), FakeThreadLibrary::summary(other)};
        batch.total = 2;
        m_library->held->addResult(batch);
        QTRY_COMPARE(m_history->threadsRead(), 2);
        m_library->holdsList = false;
        m_removals->undo();
        QTRY_VERIFY(!m_history->isLoading());
        QCOMPARE(titles(), QStringList({"back", "other"}));
    }

    void deletionsAreUndoneInReverseOrder()
    {
        const auto first = m_library->add("first", noon);
        const auto second = m_library->add("second", noon.addDays(-1));
        open();
        m_history->deleteSession(first.id);
        m_history->deleteSession(second.id);
        QCOMPARE(m_removals->text(), QString("Deleted “second”"));
        m_removals->undo();
        QCOMPARE(titles(), QStringList("second"));
        QCOMPARE(m_removals->text(), QString("Deleted “first”"));
        m_removals->undo();
        QTRY_COMPARE(titles(), QStringList({"first", "second"}));
        QVERIFY(m_removals->isEmpty());
    }

    void deletesCurrentThread()
    {
        const QUuid id = openStored("question");
        m_threads->stageScreenshot("jpeg");
        m_threads->retain(id);
        open();
        m_saver->saved.clear();
        QSignalSpy emptied(m_history.get(), &HistoryController::currentThreadDeleted);
        m_history->deleteSession(id);
        QCOMPARE(emptied.size(), 1);
        QVERIFY(!m_threads->currentSession());
        QVERIFY(!m_threads->isSessionLoadedFromHistory());
        QVERIFY(!m_threads->hasAttachedScreenshot());
        // An answer that arrives meanwhile must not be saved afterwards.
        QVERIFY(!m_threads->addTurn(id, "meanwhile", "answer"));
        m_removals->commitAll();
        QSignalSpy announced(m_history.get(), &HistoryController::threadsDeleted);
        QTRY_COMPARE(announced.size(), 1);
        // A late answer must not create the thread again.
        QVERIFY(!m_threads->addTurn(id, "late", "answer"));
        m_threads->endCurrentThread();
        QVERIFY(m_saver->saved.isEmpty());
        QVERIFY(titles().isEmpty());
    }

    void undoBringsCurrentThreadBack()
    {
        const QUuid id = openStored("question");
        m_threads->stageScreenshot("jpeg");
        m_threads->retain(id);
        open();
        m_history->deleteSession(id);
        m_threads->addTurn(id, "meanwhile", "answer");
        m_saver->saved.clear();
        QSignalSpy shown(m_history.get(), &HistoryController::currentThreadRestored);
        QSignalSpy staged(m_threads.get(), &ThreadController::stagedScreenshotChanged);
        m_removals->undo();
        QCOMPARE(shown.size(), 1);
        QCOMPARE(m_threads->currentSession()->id, id);
        QVERIFY(m_threads->isSessionLoadedFromHistory());
        QCOMPARE(m_threads->currentSession()->turns.last().prompt, QString("meanwhile"));
        QCOMPARE(m_threads->stagedScreenshot()->imageData, QByteArray("jpeg"));
        QCOMPARE(staged.size(), 1);
        // The answer that came meanwhile is saved now.
        QCOMPARE(m_saver->saved.size(), 1);
        QCOMPARE(m_saver->saved.first().turns.last().prompt, QString("meanwhile"));
    }

    void undoLeavesTheNextThreadCurrent()
    {
        const QUuid id = openStored("question");
        open();
        m_history->deleteSession(id);
        QVERIFY(m_threads->addNote("something else"));
        QSignalSpy shown(m_history.get(), &HistoryController::currentThreadRestored);
        m_removals->undo();
        QVERIFY(shown.isEmpty());
        QCOMPARE(m_threads->currentSession()->notes.size(), 1);
        QTRY_COMPARE(titles(), QStringList("question"));
    }

    void undoReplacesAnEmptyThreadUnlessItAwaitsItsAnswer()
    {
        const QUuid id = openStored("question");
        open();
        m_history->deleteSession(id);
        m_threads->startNewThread();
        m_removals->undo();
        QCOMPARE(m_threads->currentSession()->id, id);
        m_history->deleteSession(id);
        m_threads->startNewThread();
        const QUuid next = m_threads->currentSession()->id;
        m_threads->retain(next);
        m_removals->undo();
        QCOMPARE(m_threads->currentSession()->id, next);
    }

    void lateAnswerDoesNotRestoreDeletedThread()
    {
        const QUuid id = openStored("question");
        m_threads->retain(id);
        m_threads->startNewThread();
        open();
        m_history->deleteSession(id);
        m_saver->saved.clear();
        m_threads->addTurn(id, "late", "answer");
        m_removals->commitAll();
        QSignalSpy announced(m_history.get(), &HistoryController::threadsDeleted);
        QTRY_COMPARE(announced.size(), 1);
        m_threads->addTurn(id, "later", "answer");
        QVERIFY(m_saver->saved.isEmpty());
    }

    void threadBeingLoadedIsNotOpenedAfterItsDeletion()
    {
        const auto stored = m_library->add("question", noon);
        open();
        m_history->loadSession(stored.id);
        QCOMPARE(m_history->threadsInUse(), QSet<QUuid>{stored.id});
        m_history->deleteSession(stored.id);
        QCoreApplication::processEvents();
        QVERIFY(!m_threads->currentSession());
        // What can be undone is in use, too.
        QCOMPARE(m_history->threadsInUse(), QSet<QUuid>{stored.id});
    }

    void failedDeletionListsThreadAgain()
    {
        const auto stored = m_library->add("stays", noon);
        open();
        m_library->failure = StoreError{StoreError::Kind::File, stored.id, 0, "not permitted"};
        QSignalSpy failed(m_history.get(), &HistoryController::deletionFailed);
        m_history->deleteSession(stored.id);
        QVERIFY(titles().isEmpty());
        m_removals->commitAll();
        QTRY_COMPARE(m_history->notice(), QStringLiteral("This thread can't be deleted."));
        QCOMPARE(failed.size(), 1);
        QVERIFY(m_log->contains(
            line("ERROR: Failed to delete session " + uuidText(stored.id) + ": not permitted")));
        QCOMPARE(titles(), QStringList("stays"));
        QVERIFY(m_log->lines.filter(" deleted").isEmpty());
    }

    void failedDeletionKeepsCurrentThread()
    {
        const QUuid id = openStored("stays");
        m_threads->retain(id);
        open();
        m_saver->saved.clear();
        QSignalSpy announced(m_history.get(), &HistoryController::threadsDeleted);
        QSignalSpy shown(m_history.get(), &HistoryController::currentThreadRestored);
        m_library->failure = StoreError{StoreError::Kind::File, id, 0, "not permitted"};
        m_history->deleteSession(id);
        m_removals->commitAll();
        m_threads->addTurn(id, "meanwhile", "answer");
        QTRY_COMPARE(m_history->notice(), QStringLiteral("This thread can't be deleted."));
        QVERIFY(announced.isEmpty());
        QCOMPARE(shown.size(), 1);
        QCOMPARE(m_threads->currentSession()->id, id);
        QCOMPARE(m_threads->currentSession()->turns.size(), 2);
        // The deferred save is performed after the failure.
        QCOMPARE(m_saver->saved.last().turns.size(), 2);
        QVERIFY(m_threads->addTurn(id, "after", "answer"));
        QCOMPARE(m_saver->saved.last().turns.size(), 3);
    }

    void allThreadsAreDeletedAndUndoneTogether()
    {
        const QUuid id = openStored("current");
        const auto other = m_library->add("other", noon.addDays(-1));
        m_history->deleteThreads({id, other.id});
        QVERIFY(!m_threads->currentSession());
        QCOMPARE(m_removals->text(), QString("Deleted 2 threads"));
        open();
        QVERIFY(titles().isEmpty());
        m_removals->undo();
        QCOMPARE(m_threads->currentSession()->id, id);
        QTRY_COMPARE(titles(), QStringList({"current", "other"}));

        m_history->deleteThreads({id, other.id});
        QVERIFY(titles().isEmpty());
        QSignalSpy announced(m_history.get(), &HistoryController::threadsDeleted);
        m_removals->commitAll();
        QCOMPARE(m_library->calls.count("remove"), 1);
        QTRY_COMPARE(announced.size(), 1);
        QVERIFY(m_library->sessions.isEmpty());
        QVERIFY(m_log->contains(line("2 sessions deleted")));
        m_history->deleteThreads({});
        QVERIFY(m_removals->isEmpty());
    }

    void whatCannotBeDeletedOfAllIsListedAgain()
    {
        m_library->add("goes", noon);
        const auto stays = m_library->add("stays", noon.addDays(-1));
        open();
        m_library->failure = StoreError{StoreError::Kind::File, stays.id, 0, "not permitted"};
        m_history->deleteThreads(m_library->sessions.keys());
        m_removals->commitAll();
        QTRY_COMPARE(m_history->notice(), QStringLiteral("1 thread can't be deleted."));
        QTRY_COMPARE(titles(), QStringList("stays"));
        QVERIFY(!m_history->isHidden(stays.id));
    }

    void removalOutlivesTheController()
    {
        const auto stored = m_library->add("stays", noon);
        open();
        m_history->deleteSession(stored.id);
        m_history.reset();
        m_removals->commitAll();
        QVERIFY(m_library->sessions.contains(stored.id));
    }

    void renamesThread()
    {
        const auto stored = m_library->add("question", noon);
        const auto newer = m_library->add("newer", noon.addDays(1));
        open();
        QSignalSpy changed(m_history.get(), &HistoryController::sessionChanged);
        m_history->renameSession(stored.id, " \n Budget \n");
        QCOMPARE(titles(), QStringList({"newer", "Budget"}));
        QCOMPARE(changed.at(0).at(0).toLongLong(), 1);
        QTRY_VERIFY(m_log->contains(line("Session " + uuidText(stored.id) + " renamed")));
        QCOMPARE(*m_library->sessions[stored.id].customTitle, QStringLiteral("Budget"));
        m_history->renameSession(stored.id, "  ");
        QCOMPARE(titles(), QStringList({"newer", "question"}));
        QTRY_VERIFY(!m_library->sessions[stored.id].customTitle);
    }

    void renamingUpdatesThreadInMemory()
    {
        m_settings->setKeepAIHistoryEnabled(true);
        const auto stored = m_library->add("question", noon);
        open();
        m_history->loadSession(stored.id);
        QTRY_VERIFY(m_threads->currentSession());
        open();
        m_history->renameSession(stored.id, "Budget");
        QCOMPARE(*m_threads->currentSession()->customTitle, QStringLiteral("Budget"));
        QCOMPARE(m_threads->currentSession()->updatedAt, stored.updatedAt);
        // Also after the thread has ended while its answer is streaming.
        m_threads->retain(stored.id);
        m_threads->startNewThread();
        m_history->renameSession(stored.id, "Plan");
        m_threads->addTurn(stored.id, "late", "answer");
        QCOMPARE(*m_saver->saved.constLast().customTitle, QStringLiteral("Plan"));
    }

    void failedRenamingReverts()
    {
        const auto stored = m_library->add("question", noon);
        open();
        m_library->failure = StoreError{StoreError::Kind::File, stored.id, 0, "disk full"};
        m_history->renameSession(stored.id, "Budget");
        QTRY_COMPARE(m_history->notice(), QStringLiteral("This thread can't be renamed."));
        QCOMPARE(titles(), QStringList("question"));
        QVERIFY(m_log->contains(
            line("ERROR: Failed to rename session " + uuidText(stored.id) + ": disk full")));
    }

    void dayLabels_data()
    {
        QTest::addColumn<QDateTime>("moment");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("label");
        QTest::newRow("now") << noon << "en_US"
                             << "Today";
        QTest::newRow("midnight") << QDateTime(QDate(2026, 3, 1), QTime(0, 0)) << "en_US"
                                  << "Today";
        QTest::newRow("second before midnight")
            << QDateTime(QDate(2026, 2, 28), QTime(23, 59, 59)) << "en_US"
            << "Yesterday";
        QTest::newRow("two days ago") << QDateTime(QDate(2026, 2, 27), QTime(23, 0)) << "en_US"
                                      << "Feb 27, 2026";
        QTest::newRow("tomorrow") << QDateTime(QDate(2026, 3, 2), QTime(1, 0)) << "en_US"
                                  << "Mar 2, 2026";
        QTest::newRow("British") << QDateTime(QDate(2025, 3, 11), QTime(1, 0)) << "en_GB"
                                 << "11 Mar 2025";
        QTest::newRow("German") << QDateTime(QDate(2025, 10, 3), QTime(1, 0)) << "de_DE"
                                << "3. Okt. 2025";
        QTest::newRow("Japanese") << QDateTime(QDate(2025, 3, 11), QTime(1, 0)) << "ja_JP"
                                  << "2025年3月11日";
    }
    void dayLabels()
    {
        QFETCH(QDateTime, moment);
        QFETCH(QString, locale);
        QFETCH(QString, label);
        QCOMPARE(dayLabel(moment, noon, QLocale(locale)), label);
        QCOMPARE(dayLabel(moment.toUTC(), noon.toUTC(), QLocale(locale)), label);
    }

    void mediumFormatsHaveNoWeekday()
    {
        const auto locales =
            QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyCountry);
        QVERIFY(locales.size() > 100);
        for (const QLocale &locale : locales) {
            QString format = mediumDateFormat(locale);
            // Quoted words are literals.
            format.remove(QRegularExpression("'[^']*'"));
            QVERIFY2(!format.contains("ddd") && !format.contains("MMMM"),
                     qPrintable(locale.name()));
            QVERIFY2(format.contains('d') && format.contains('M') && format.contains('y'),
                     qPrintable(locale.name() + ": " + mediumDateFormat(locale)));
        }
    }

private:
    /// Stores a thread, makes it current and returns its id; history keeping is on.
    QUuid openStored(const QString &prompt)
    {
        m_settings->setKeepAIHistoryEnabled(true);
        const QUuid id = m_library->add(prompt, noon).id;
        open();
        m_history->loadSession(id);
        [this] { QTRY_VERIFY(m_threads->currentSession()); }();
        return id;
    }
    void reopen()
    {
        m_history->historyButtonClicked();
        open();
    }
    void open()
    {
        m_history->historyButtonClicked();
        QVERIFY(m_history->isHistorySidebarOpen());
        QTRY_VERIFY(!m_history->isLoading());
    }
    QStringList titles() const
    {
        QStringList titles;
        for (const ThreadSummary &thread : m_history->historySessions())
            titles.append(thread.title());
        return titles;
    }
    /// The arguments of each signal as "first+count".
    static QStringList ranges(const QSignalSpy &spy)
    {
        QStringList texts;
        for (const auto &arguments : spy)
            texts.append(arguments.at(0).toString() + "+" + arguments.at(1).toString());
        return texts;
    }
    void deliver(const QStringList &titles, const QList<int> &days, qsizetype total)
    {
        ThreadBatch batch;
        for (qsizetype i = 0; i < titles.size(); ++i)
            batch.threads.append(
                FakeThreadLibrary::summary(titles.at(i), noon.addDays(days.at(i))));
        batch.total = total;
        QSignalSpy progress(m_history.get(), &HistoryController::progressChanged);
        m_library->held->addResult(batch);
        if (m_history->isLoading())
            QTRY_VERIFY(!progress.isEmpty());
        else
            QCoreApplication::processEvents();
    }

    std::unique_ptr<FakeThreadLibrary> m_library;
    std::unique_ptr<PendingRemovals> m_removals;
    std::unique_ptr<CountingSaver> m_saver;
    std::unique_ptr<JsonUserDefaults> m_defaults;
    std::unique_ptr<Settings> m_settings;
    std::unique_ptr<ThreadController> m_threads;
    std::unique_ptr<HistoryController> m_history;
    std::unique_ptr<LogCapture> m_log;
};

QUELLORA_TEST(QCoreApplication, TestHistoryController)
#include "test_history_controller.moc"
