#include "app/UserDefaults.h"
#include "fakes/LogCapture.h"
#include "history/BackgroundThreadSaver.h"
#include "history/StoreFixture.h"

#include <QSemaphore>
#include <QTest>

#include <atomic>

using namespace quellora;

namespace {

const QString saveFailure =
    QStringLiteral("[OverlayWindowController] ERROR: Failed to save session to disk: ");
const QString commitFailure = QStringLiteral(
    "[OverlayWindowController] ERROR: Failed to commit thread before starting a new one: ");

/// A disk that a test can hold, and that can be full. Records which threads reach it.
class SlowFiles : public DiskThreadFiles
{
public:
    std::unique_ptr<FileReplacement> replacement(const QString &path) override
    {
        arrived.release();
        gate.acquire();
        gate.release();
        if (QFileInfo(path).fileName() == "session.json") {
            // One save at a time, so nothing else touches this now.
            written.append(QFileInfo(QFileInfo(path).path()).fileName());
        }
        if (isFull)
            return std::make_unique<Full>();
        return DiskThreadFiles::replacement(path);
    }

    void hold() { gate.acquire(); }
    void letGo() { gate.release(); }

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
    void savesInTheOrderOfTheRequests()
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

    void callerDoesNotWaitForTheDisk()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        BackgroundThreadSaver saver(f.store);
        CaptureSession session = keptThread();
        files->hold();
        saver.save(session, "P: ");
        QVERIFY(files->arrived.tryAcquire(1, 10'000));
        // Returns although the disk does not.
        session.addTurn("q", "r", t0, t0);
        saver.save(session, "P: ");
        QCOMPARE(f.store.load(session.id).error().kind, StoreError::Kind::SessionNotFound);
        files->letGo();
        saver.flush();
        QCOMPARE(*f.store.load(session.id), asStored(session));
    }

    void newestStateReplacesTheOneThatWaits()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        BackgroundThreadSaver saver(f.store);
        CaptureSession first = keptThread();
        CaptureSession second = keptThread();
        CaptureSession third = keptThread();
        files->hold();
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
        files->letGo();
        saver.flush();
        QCOMPARE(files->written, (QStringList{uuidText(first.id), uuidText(second.id),
                                              uuidText(first.id), uuidText(third.id)}));
        QCOMPARE(*f.store.load(first.id), asStored(first));
        QCOMPARE(*f.store.load(second.id), asStored(second));
        QCOMPARE(*f.store.load(third.id), asStored(third));
    }

    void eventLoopCarriesOnWithoutFlush()
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

    void nothingIsLostAtQuit()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        LogCapture log;
        CaptureSession first = keptThread();
        CaptureSession second = keptThread();
        files->hold();
        {
            BackgroundThreadSaver saver(f.store);
            saver.save(first, "P: ");
            QVERIFY(files->arrived.tryAcquire(1, 10'000));
            first.addTurn("last words", "r", t0, t0);
            saver.save(first, "P: ");
            saver.save(second, "P: ");
            // The disk answers only while the program is already on its way out.
            files->letGo();
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

    void flushWithNothingToDoReturns()
    {
        StoreFixture f;
        BackgroundThreadSaver saver(f.store);
        saver.flush();
        const CaptureSession session = keptThread();
        saver.save(session, "P: ");
        saver.flush();
        saver.flush();
        QVERIFY(f.store.load(session.id));
        // The worker's report of the flushed save arrives now and changes nothing.
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

    void failedSaveIsMadeUpForByTheNextChange()
    {
        auto files = std::make_shared<SlowFiles>();
        StoreFixture f(files);
        LogCapture log;
        JsonUserDefaults defaults;
        BackgroundThreadSaver saver(f.store);
        ThreadController threads(defaults, &saver, [] { return t0; });
        files->isFull = true;
        QVERIFY(threads.addNote("first"));
        saver.flush();
        const QUuid id = threads.currentSession()->id;
        const QString reason = f.description(id) + ": No space left on device";
        QCOMPARE(log.lines, QStringList{saveFailure + reason});
        // The thread in memory has not noticed.
        QCOMPARE(threads.currentSession()->notes.size(), 1);
        QVERIFY(threads.currentSession()->isMarkedForPersistence());

        files->isFull = false;
        QVERIFY(threads.addNote("second"));
        saver.flush();
        QCOMPARE(log.lines.size(), 1);
        QCOMPARE(*f.store.load(id), asStored(*threads.currentSession()));

        // A thread that ends says so in its own words.
        log.clear();
        files->isFull = true;
        threads.startNewThread();
        saver.flush();
        QCOMPARE(log.lines, QStringList{commitFailure + reason});
        QVERIFY(threads.currentSession()->notes.isEmpty());
        QCOMPARE(f.store.load(id)->notes.size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestBackgroundThreadSaver)
#include "test_background_thread_saver.moc"
