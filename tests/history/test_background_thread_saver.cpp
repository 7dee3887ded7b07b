#include "base/Settings.h"
#include "fakes/LogCapture.h"
#include "history/BackgroundThreadSaver.h"
#include "history/StoreFixture.h"
#include "history/ThreadController.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSemaphore>
#include <QTest>

#include <atomic>

using namespace quellora;

namespace {

const QString saveFailure =
    QStringLiteral("[OverlayWindowController] ERROR: Failed to save session to disk: ");
const QString commitFailure = QStringLiteral(
    "[OverlayWindowController] ERROR: Failed to commit thread before starting a new one: ");

/// A disk that can block writes or report itself as full. Records the order of written threads.
class SlowFiles : public DiskThreadFiles
{
public:
    std::unique_ptr<FileReplacement> replacement(const QString &path) override
    {
        arrived.release();
        gate.acquire();
        gate.release();
        if (QFileInfo(path).fileName() == "session.json") {
            // Saves run one at a time, so no lock is needed.
            written.append(QFileInfo(QFileInfo(path).path()).fileName());
        }
        if (isFull)
            return std::make_unique<Full>();
        return DiskThreadFiles::replacement(path);
    }

    void block() { gate.acquire(); }
    void unblock() { gate.release(); }

    QSemaphore gate{1};
    QSemaphore arrived;
    std::atomic_bool isFull = false;
    QStringList written;

private:
    struct Full : FileReplacement
    {
        Result open() override { return tl::unexpected(QStringLiteral("No space left on device")); }
        Result write(const QByteArray &) override { return {}; }
        Result commit() override { return {}; }
    };
};

CaptureSession keptThread()
{
    CaptureSession session = CaptureSession::create(t0);
    session.resumeTurnPersistingFromDisk();
    session.addTurn("question", "answer", t0, t0);
    return session;
}

} // namespace

class TestBackgroundThreadSaver : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void savesInRequestOrder()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        QStringList expected;
        {
            BackgroundThreadSaver saver(f.store);
            for (int i = 0; i < 8; ++i) {
                const CaptureSession session = keptThread();
                expected.append(uuidText(session.id));
                saver.save(session, "P: ");
            }
        }
        QCOMPARE(files->written, expected);
    }

    void saveDoesNotBlock()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        BackgroundThreadSaver saver(f.store);
        CaptureSession session = keptThread();
        files->block();
        saver.save(session, "P: ");
        QVERIFY(files->arrived.tryAcquire(1, 10'000));
        // save() returns while the write is blocked.
        session.addTurn("q", "r", t0, t0);
        saver.save(session, "P: ");
        QCOMPARE(f.store.load(session.id).error().kind, StoreError::Kind::SessionNotFound);
        files->unblock();
        saver.flush();
        QCOMPARE(*f.store.load(session.id), asStored(session));
    }

    void newerSaveReplacesQueuedOne()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        BackgroundThreadSaver saver(f.store);
        CaptureSession first = keptThread();
        CaptureSession second = keptThread();
        CaptureSession third = keptThread();
        files->block();
        saver.save(first, "P: ");
        QVERIFY(files->arrived.tryAcquire(1, 10'000));
        for (int i = 0; i < 10; ++i) {
            first.addTurn(QString::number(i), "r", t0, t0);
            second.addTurn(QString::number(i), "r", t0, t0);
            saver.save(second, "P: ");
            saver.save(first, "P: ");
            if (i == 5)
                saver.save(third, "P: ");
        }
        files->unblock();
        saver.flush();
        QCOMPARE(files->written, (QStringList{uuidText(first.id), uuidText(second.id),
                                              uuidText(first.id), uuidText(third.id)}));
        QCOMPARE(*f.store.load(first.id), asStored(first));
        QCOMPARE(*f.store.load(second.id), asStored(second));
        QCOMPARE(*f.store.load(third.id), asStored(third));
    }

    void queueAdvancesFromEventLoop()
    {
        StoreFixture f;
        BackgroundThreadSaver saver(f.store);
        const CaptureSession first = keptThread();
        const CaptureSession second = keptThread();
        const CaptureSession third = keptThread();
        for (const auto &session : {first, second, third})
            saver.save(session, "P: ");
        QTRY_VERIFY(QFileInfo::exists(f.description(third.id)));
        QVERIFY(f.store.load(first.id) && f.store.load(second.id));
    }

    void destructorFlushes()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        LogCapture log;
        CaptureSession first = keptThread();
        CaptureSession second = keptThread();
        files->block();
        {
            BackgroundThreadSaver saver(f.store);
            saver.save(first, "P: ");
            QVERIFY(files->arrived.tryAcquire(1, 10'000));
            first.addTurn("last words", "r", t0, t0);
            saver.save(first, "P: ");
            saver.save(second, "P: ");
            // The write is unblocked only just before the destructor flushes.
            files->unblock();
        }
        QCOMPARE(*f.store.load(first.id), asStored(first));
        QCOMPARE(*f.store.load(second.id), asStored(second));
        QVERIFY(log.lines.isEmpty());
    }

    void failureAtQuitIsLogged()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        LogCapture log;
        const CaptureSession session = keptThread();
        files->isFull = true;
        {
            BackgroundThreadSaver saver(f.store);
            saver.save(session, saveFailure);
        }
        QCOMPARE(log.lines, QStringList{saveFailure + f.description(session.id) +
                                        ": No space left on device"});
    }

    void flushOfEmptyQueueReturns()
    {
        StoreFixture f;
        BackgroundThreadSaver saver(f.store);
        saver.flush();
        const CaptureSession session = keptThread();
        saver.save(session, "P: ");
        saver.flush();
        saver.flush();
        QVERIFY(f.store.load(session.id));
        // The queued call of the flushed save is delivered now and must have no effect.
        QCoreApplication::processEvents();
        saver.save(keptThread(), "P: ");
        saver.flush();
        QCOMPARE(f.store.list()->size(), 2);
    }

    void programmingErrorIsLogged()
    {
        StoreFixture f;
        LogCapture log;
        BackgroundThreadSaver saver(f.store);
        const CaptureSession session = sample();
        saver.save(session, saveFailure);
        saver.flush();
        QCOMPARE(log.lines, QStringList{saveFailure + "save() called for " + uuidText(session.id) +
                                        " but it was never marked for persistence (neither "
                                        "beginPersistingNotes() nor beginPersistingTurns()/"
                                        "resumeTurnPersistingFromDisk() was called)"});
    }

    void reportsSaveState()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        BackgroundThreadSaver saver(f.store);
        CaptureSession session = keptThread();
        QCOMPARE(saver.stateOf(session.id), SaveState());
        QList<SaveState> states;
        connect(&saver, &ThreadSaver::stateChanged, this,
                [&](const QUuid &id) { states.append(saver.stateOf(id)); });
        saver.save(session, "P: ");
        QCOMPARE(states, (QList<SaveState>{{SaveState::Kind::Saving, {}}}));
        saver.flush();
        QCOMPARE(states.last(), (SaveState{SaveState::Kind::Saved, {}}));
        files->isFull = true;
        saver.save(session, "P: ");
        saver.flush();
        QCOMPARE(states.size(), 4);
        QCOMPARE(states.last(), (SaveState{SaveState::Kind::Failed, "No space left on device"}));
        files->isFull = false;
        saver.save(session, "P: ");
        saver.flush();
        QCOMPARE(states.last(), (SaveState{SaveState::Kind::Saved, {}}));
        QCOMPARE(saver.stateOf(session.id), states.last());
    }

    void replacedSaveReportsNoState()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        BackgroundThreadSaver saver(f.store);
        CaptureSession session = keptThread();
        QList<SaveState::Kind> states;
        connect(&saver, &ThreadSaver::stateChanged, this,
                [&](const QUuid &id) { states.append(saver.stateOf(id).kind); });
        files->block();
        saver.save(session, "P: ");
        QVERIFY(files->arrived.tryAcquire(1, 10'000));
        session.addTurn("q", "r", t0, t0);
        saver.save(session, "P: ");
        files->unblock();
        saver.flush();
        QCOMPARE(states,
                 (QList{SaveState::Kind::Saving, SaveState::Kind::Saving, SaveState::Kind::Saved}));
    }

    void failedSavesAreRetried()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        LogCapture log;
        BackgroundThreadSaver saver(f.store);
        const CaptureSession ended = keptThread();
        const CaptureSession dropped = keptThread();
        files->isFull = true;
        saver.save(ended, "P: ");
        saver.save(dropped, "P: ");
        saver.flush();
        QCOMPARE(log.lines.size(), 2);
        saver.forget(dropped.id);
        QCOMPARE(saver.stateOf(dropped.id), SaveState());
        // A successful save of another thread retries the one that is no longer changed.
        files->isFull = false;
        saver.save(keptThread(), "P: ");
        saver.flush();
        QVERIFY(f.store.load(ended.id));
        QCOMPARE(saver.stateOf(ended.id), (SaveState{SaveState::Kind::Saved, {}}));
        QVERIFY(!f.store.load(dropped.id));

        files->isFull = true;
        const CaptureSession last = keptThread();
        saver.save(last, "P: ");
        saver.flush();
        files->isFull = false;
        saver.retryFailed();
        saver.flush();
        QVERIFY(f.store.load(last.id));
    }

    void failedNoteDeletionRestoresNote()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        JsonUserDefaults defaults;
        Settings settings(defaults);
        BackgroundThreadSaver saver(f.store);
        ThreadController threads(settings, &saver, [] { return t0; });
        for (const char *text : {"one", "two", "three", "four"})
            QVERIFY(threads.addNote(text));
        saver.flush();
        const auto notes = threads.currentSession()->notes;
        QStringList reasons;
        connect(&threads, &ThreadController::noteDeletionFailed, this,
                [&](const QString &reason) { reasons.append(reason); });
        files->isFull = true;
        QVERIFY(threads.removeNote(notes.at(2).id));
        QVERIFY(threads.removeNote(notes.at(1).id));
        QVERIFY(!threads.removeNote(notes.at(1).id));
        QCOMPARE(threads.currentSession()->notes.size(), 2);
        saver.flush();
        QCOMPARE(threads.currentSession()->notes, notes);
        QCOMPARE(reasons, QStringList{"No space left on device"});
        QCOMPARE(threads.saveState().kind, SaveState::Kind::Failed);
        // Later saves keep the restored notes.
        files->isFull = false;
        threads.retrySaving();
        saver.flush();
        QCOMPARE(threads.saveState(), (SaveState{SaveState::Kind::Saved, {}}));
        QCOMPARE(f.store.load(threads.currentSession()->id)->notes.size(), 4);
        QVERIFY(threads.removeNote(notes.at(2).id));
        saver.flush();
        QCOMPARE(f.store.load(threads.currentSession()->id)->notes.size(), 3);
        QCOMPARE(reasons.size(), 1);
        // A failure of a later save does not restore a note whose deletion was saved.
        files->isFull = true;
        QVERIFY(threads.addNote("five"));
        saver.flush();
        QCOMPARE(threads.currentSession()->notes.size(), 4);
        QCOMPARE(reasons.size(), 1);
    }

    void savedStateRequiresStoredThread()
    {
        StoreFixture f;
        JsonUserDefaults defaults;
        Settings settings(defaults);
        BackgroundThreadSaver saver(f.store);
        ThreadController threads(settings, &saver, [] { return t0; });
        QCOMPARE(threads.saveState(), SaveState());
        settings.setKeepAIHistoryEnabled(true);
        threads.setCurrentSession(threads.threadForQuery());
        saver.flush();
        // The question has been sent, but nothing has been written yet.
        QVERIFY(threads.currentSession()->isMarkedForPersistence());
        QCOMPARE(threads.saveState(), SaveState());
        QVERIFY(threads.addTurn(threads.currentSession()->id, "q", "r"));
        QCOMPARE(threads.saveState().kind, SaveState::Kind::Saving);
        saver.flush();
        QCOMPARE(threads.saveState().kind, SaveState::Kind::Saved);
        // A loaded thread counts as saved before its first save.
        const CaptureSession stored = *f.store.load(threads.currentSession()->id);
        BackgroundThreadSaver later(f.store);
        ThreadController again(settings, &later, [] { return t0; });
        again.openFromHistory(stored);
        QCOMPARE(again.saveState().kind, SaveState::Kind::Saved);
        again.startNewThread();
        QCOMPARE(again.saveState(), SaveState());
    }

    void savesAreDeferredDuringDeletion()
    {
        StoreFixture f;
        JsonUserDefaults defaults;
        Settings settings(defaults);
        BackgroundThreadSaver saver(f.store);
        ThreadController threads(settings, &saver, [] { return t0; });
        QVERIFY(threads.addNote("one"));
        saver.flush();
        const QUuid id = threads.currentSession()->id;
        settings.setKeepAIHistoryEnabled(true);
        saver.flush();
        // An answer is on its way.
        threads.retain(id);
        QVERIFY(threads.setAside(id));
        QVERIFY(!threads.currentSession());
        QVERIFY(!threads.addTurn(id, "two", "answer"));
        QVERIFY(!threads.addTurn(id, "three", "answer"));
        saver.flush();
        QVERIFY(f.store.load(id)->turns.isEmpty());
        QVERIFY(threads.bringBack(id));
        saver.flush();
        QCOMPARE(f.store.load(id)->turns.size(), 2);
        QCOMPARE(threads.currentSession()->turns.size(), 2);

        QVERIFY(threads.setAside(id));
        QVERIFY(!threads.addTurn(id, "four", "answer"));
        QVERIFY(f.store.remove(id));
        threads.forget(id);
        QVERIFY(!threads.bringBack(id));
        QVERIFY(!threads.addTurn(id, "five", "answer"));
        saver.flush();
        QVERIFY(!f.store.load(id));
    }

    void nextChangeRetriesFailedSave()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        LogCapture log;
        JsonUserDefaults defaults;
        Settings settings(defaults);
        BackgroundThreadSaver saver(f.store);
        ThreadController threads(settings, &saver, [] { return t0; });
        files->isFull = true;
        QVERIFY(threads.addNote("first"));
        saver.flush();
        const QUuid id = threads.currentSession()->id;
        const QString reason = f.description(id) + ": No space left on device";
        QCOMPARE(log.lines, QStringList{saveFailure + reason});
        // The thread in memory is unchanged.
        QCOMPARE(threads.currentSession()->notes.size(), 1);
        QVERIFY(threads.currentSession()->isMarkedForPersistence());

        files->isFull = false;
        QVERIFY(threads.addNote("second"));
        saver.flush();
        QCOMPARE(log.lines.size(), 1);
        QCOMPARE(*f.store.load(id), asStored(*threads.currentSession()));

        // A failed save of a thread that ends has its own message.
        log.clear();
        files->isFull = true;
        threads.startNewThread();
        saver.flush();
        QCOMPARE(log.lines, QStringList{commitFailure + reason});
        QVERIFY(threads.currentSession()->notes.isEmpty());
        QCOMPARE(f.store.load(id)->notes.size(), 2);
    }
};

QUELLORA_TEST(QCoreApplication, TestBackgroundThreadSaver)
#include "test_background_thread_saver.moc"
