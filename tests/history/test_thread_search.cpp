#include "history/StoreFixture.h"
#include "history/StoredThreadLibrary.h"
#include "history/ThreadSearch.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSemaphore>
#include <QSet>
#include <QTest>

#include <atomic>
#include <thread>

using namespace quellora;

namespace {

struct SearchFixture : StoreFixture
{
    /// Stores @p count threads; every third contains "needle".
    explicit SearchFixture(int count)
    {
        for (int i = 0; i < count; ++i) {
            CaptureSession session = CaptureSession::create(t0);
            session.addTurn(i % 3 == 0 ? "needle" : "hay", "r", t0, t0);
            session.resumeTurnPersistingFromDisk();
            if (!store.save(session))
                qFatal("The thread could not be stored");
            ids.append(session.id);
        }
    }

    QFuture<ThreadHits> search(ThreadSearch::BatchSizes sizes) const
    {
        QPromise<ThreadHits> promise;
        promise.start();
        ThreadSearch::run(store, {"needle", QLocale::c(), ids}, promise, sizes);
        promise.finish();
        return promise.future();
    }
    QSet<QUuid> expected() const
    {
        QSet<QUuid> hits;
        for (qsizetype i = 0; i < ids.size(); i += 3)
            hits.insert(ids.at(i));
        return hits;
    }
    static QSet<QUuid> foundIn(const QFuture<ThreadHits> &search)
    {
        QSet<QUuid> hits;
        for (const ThreadHits &batch : search.results())
            hits.unite({batch.keyBegin(), batch.keyEnd()});
        return hits;
    }

    QList<QUuid> ids;
};

} // namespace

class TestThreadSearch : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void everyThreadIsSearchedOnce_data()
    {
        QTest::addColumn<int>("threads");
        QTest::addColumn<int>("batches");
        QTest::newRow("none") << 0 << 1;
        QTest::newRow("less than a batch") << 3 << 1;
        QTest::newRow("one batch") << 4 << 1;
        QTest::newRow("one more") << 5 << 2;
        QTest::newRow("many") << 100 << 13;
    }
    void everyThreadIsSearchedOnce()
    {
        QFETCH(int, threads);
        QFETCH(int, batches);
        SearchFixture f(threads);
        const auto search = f.search({4, 8});
        QCOMPARE(search.resultCount(), batches);
        QCOMPARE(SearchFixture::foundIn(search), f.expected());
    }

    void firstBatchHasTheFirstThreads()
    {
        SearchFixture f(30);
        const ThreadHits first = f.search({4, 8}).resultAt(0);
        QCOMPARE(QSet<QUuid>(first.keyBegin(), first.keyEnd()),
                 QSet<QUuid>({f.ids.at(0), f.ids.at(3)}));
    }

    void missingAndDamagedThreadsStopNothing()
    {
        SearchFixture f(30);
        writeFile(f.description(f.ids.at(1)), "{");
        QVERIFY(QDir(f.folder(f.ids.at(2))).removeRecursively());
        QVERIFY(QDir(f.folder(f.ids.at(3))).removeRecursively());
        QCOMPARE(SearchFixture::foundIn(f.search({4, 8})), f.expected() - QSet({f.ids.at(3)}));
    }

    void cancelledSearchEnds()
    {
        SearchFixture f(30);
        QPromise<ThreadHits> promise;
        promise.start();
        promise.future().cancel();
        ThreadSearch::run(f.store, {"needle", QLocale::c(), f.ids}, promise);
        promise.finish();
        QCOMPARE(promise.future().resultCount(), 0);
    }

    void unusableFolderHasNoHits()
    {
        QTemporaryDir folder;
        writeFile(folder.filePath("Quellora"), "in the way");
        const CaptureSessionStore store(folder.path());
        QPromise<ThreadHits> promise;
        promise.start();
        ThreadSearch::run(store, {"needle", QLocale::c(), {QUuid::createUuid()}}, promise);
        promise.finish();
        QCOMPARE(promise.future().resultCount(), 0);
    }

    void searchDoesNotWaitForSaves()
    {
        SearchFixture f(6);
        BackgroundThreadSaver saver(f.store);
        StoredThreadLibrary library(f.store, saver);
        QSemaphore mayEnd;
        saver.runAfterSaves([&mayEnd] { mayEnd.acquire(); });
        auto search = library.search({"needle", QLocale::c(), f.ids});
        search.waitForFinished();
        QCOMPARE(SearchFixture::foundIn(search), f.expected());
        mayEnd.release();
    }

    void filesMayChangeMeanwhile()
    {
        SearchFixture f(60);
        BackgroundThreadSaver saver(f.store);
        StoredThreadLibrary library(f.store, saver);
        std::atomic_bool isDone = false;
        std::thread writer([&] {
            for (int i = 0; !isDone; ++i) {
                const QString path = f.description(f.ids.at(1 + 3 * (i % 20)));
                writeFile(path, i % 2 == 0 ? "{\"turns\": [{\"prompt\": \"nee" : "");
                writeFile(path, QByteArray(i % 4096, ' '));
            }
        });
        for (int i = 0; i < 50; ++i) {
            auto search = library.search({"needle", QLocale::c(), f.ids});
            search.waitForFinished();
            QCOMPARE(SearchFixture::foundIn(search), f.expected());
        }
        isDone = true;
        writer.join();
    }

    void destroyingTheLibraryEndsSearches()
    {
        SearchFixture f(60);
        QFuture<ThreadHits> search;
        {
            BackgroundThreadSaver saver(f.store);
            StoredThreadLibrary library(f.store, saver);
            for (int i = 0; i < 20; ++i)
                search = library.search({"needle", QLocale::c(), f.ids});
        }
        QVERIFY(search.isFinished());
        QVERIFY(search.isCanceled());
    }
};

QUELLORA_TEST(QCoreApplication, TestThreadSearch)
#include "test_thread_search.moc"
