#include "history/StoreFixture.h"
#include "history/ThreadListing.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QFutureWatcher>
#include <QTest>

#include <atomic>
#include <thread>

using namespace quellora;

namespace {

using Listed = ThreadLibrary::Result<ThreadBatch>;

struct ListingFixture : StoreFixture
{
    QUuid save(const QString &title = QStringLiteral("p"), int changed = 0) const
    {
        CaptureSession session = keptSample();
        session.turns.first().prompt = title;
        session.updatedAt = t0.addSecs(changed);
        if (!store.save(session))
            qFatal("The thread could not be stored");
        touch(session.id, changed);
        return session.id;
    }
    /// Writes many copies of a thread without the store, which is faster. The first is the newest.
    QList<QUuid> saveMany(int count) const
    {
        const QUuid original = save();
        const QByteArray json = contentOf(description(original));
        QList<QUuid> ids;
        for (int i = 0; i < count; ++i) {
            const QUuid id = QUuid::createUuid();
            ids.append(id);
            if (!QDir().mkdir(folder(id)))
                qFatal("The folder could not be created");
            writeFile(description(id),
                      QByteArray(json).replace(uuidText(original).toUtf8(), uuidText(id).toUtf8()));
            for (const char *image : {"/screenshot-0.png", "/screenshot-1.png"})
                writeFile(folder(id) + image, "jpeg");
            touch(id, -i);
        }
        if (!store.remove(original))
            qFatal("The thread could not be removed");
        return ids;
    }
    void touch(const QUuid &id, int changed) const
    {
        QFile file(description(id));
        if (!file.open(QIODevice::ReadWrite) ||
            !file.setFileTime(t0.addSecs(changed), QFileDevice::FileModificationTime))
            qFatal("The modification time could not be set");
    }
    QList<Listed> list(ThreadListing::BatchSizes sizes = {}) const
    {
        QPromise<Listed> promise;
        QFuture<Listed> future = promise.future();
        promise.start();
        ThreadListing::read(store, promise, sizes);
        promise.finish();
        return future.results();
    }
};

QList<QUuid> idsOf(const QList<Listed> &batches)
{
    QList<QUuid> ids;
    for (const Listed &batch : batches) {
        for (const ThreadSummary &thread : batch->threads)
            ids.append(thread.id);
    }
    return ids;
}

} // namespace

class TestThreadListing : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void batchesContainAllThreads()
    {
        ListingFixture f;
        QSet<QUuid> expected;
        for (int i = 0; i < 7; ++i)
            expected.insert(f.save("p", i));
        const QUuid bad = f.save();
        writeFile(f.description(bad), "{");
        const QList<Listed> batches = f.list({3, 3});
        QCOMPARE(batches.size(), 3);
        qsizetype skipped = 0;
        for (const Listed &batch : batches) {
            QVERIFY(batch);
            QCOMPARE(batch->total, 8);
            QVERIFY(std::is_sorted(batch->threads.begin(), batch->threads.end(), isNewer));
            for (const SkippedThread &skippedThread : batch->skipped) {
                QCOMPARE(skippedThread.id, bad);
                ++skipped;
            }
        }
        QCOMPARE(skipped, 1);
        const QList<QUuid> found = idsOf(batches);
        QCOMPARE(found.size(), expected.size());
        QCOMPARE(QSet<QUuid>(found.begin(), found.end()), expected);
    }

    void newestComeFirst()
    {
        ListingFixture f;
        // More than one chunk, so that both workers take part.
        const QList<QUuid> ids = f.saveMany(700);
        QCOMPARE(idsOf(f.list({1, 1})), ids);
    }

    void changesWithinSameSecondAreOrdered()
    {
        ListingFixture f;
        const QUuid older = f.save();
        const QUuid newer = f.save();
        const QUuid oldest = f.save();
        const auto touch = [&f](const QUuid &id, int milliseconds) {
            QFile file(f.description(id));
            QVERIFY(file.open(QIODevice::ReadWrite));
            QVERIFY(file.setFileTime(t0.addMSecs(milliseconds), QFileDevice::FileModificationTime));
        };
        touch(oldest, 1);
        touch(older, 2);
        touch(newer, 3);
        QCOMPARE(idsOf(f.list({1, 1})), QList<QUuid>({newer, older, oldest}));
    }

    void batchSizesGrow()
    {
        ListingFixture f;
        f.saveMany(700);
        QList<qsizetype> sizes;
        for (const Listed &batch : f.list({50, 200}))
            sizes.append(batch->threads.size());
        QCOMPARE(sizes, QList<qsizetype>({50, 100, 200, 200, 150}));
    }

    void everyBatchIsReportedOnce()
    {
        // Independently of the order in which two workers finish.
        ListingFixture f;
        f.saveMany(300);
        QPromise<Listed> promise;
        QFutureWatcher<Listed> watcher;
        QList<int> reported;
        connect(&watcher, &QFutureWatcherBase::resultReadyAt, &watcher,
                [&reported](int index) { reported.append(index); });
        promise.start();
        watcher.setFuture(promise.future());
        ThreadListing::read(f.store, promise, {7, 7});
        promise.finish();
        QTRY_VERIFY(watcher.isFinished() && reported.size() >= 43);
        QCoreApplication::processEvents();
        std::sort(reported.begin(), reported.end());
        QCOMPARE(reported.size(), 43);
        for (int i = 0; i < 43; ++i)
            QCOMPARE(reported.at(i), i);
    }

    void cancelledListReadsNothing()
    {
        ListingFixture f;
        f.save();
        QPromise<Listed> promise;
        QFuture<Listed> future = promise.future();
        promise.start();
        future.cancel();
        ThreadListing::read(f.store, promise);
        promise.finish();
        QCOMPARE(future.resultCount(), 0);
    }

    void cancellingStopsBothWorkers()
    {
        ListingFixture f;
        f.saveMany(300);
        QPromise<Listed> promise;
        QFuture<Listed> future = promise.future();
        promise.start();
        std::thread worker([&] { ThreadListing::read(f.store, promise, {1, 1}); });
        while (future.resultCount() == 0)
            std::this_thread::yield();
        future.cancel();
        worker.join();
        promise.finish();
        QVERIFY(future.isCanceled());
        const QList<QUuid> found = idsOf(future.results());
        QCOMPARE(QSet<QUuid>(found.begin(), found.end()).size(), found.size());
    }

    void concurrentlyChangedThreadIsCompleteOrSkipped()
    {
        ListingFixture f;
        const QList<QUuid> unchanged = f.saveMany(60);
        CaptureSession changing = keptSample();
        std::atomic_bool isDone = false;
        std::thread writer([&] {
            while (!isDone) {
                if (!f.store.save(changing) || !f.store.updateTitle(changing.id, "renamed") ||
                    !f.store.remove(changing.id))
                    qFatal("The thread could not be changed");
            }
        });
        int seen = 0;
        for (int i = 0; i < 30; ++i) {
            int unchangedSeen = 0;
            for (const Listed &batch : f.list({10, 10})) {
                for (const ThreadSummary &thread : batch->threads) {
                    if (thread.id != changing.id) {
                        ++unchangedSeen;
                        continue;
                    }
                    ++seen;
                    if (thread.title() != "p" && thread.title() != "renamed")
                        QTest::qFail(qPrintable(thread.title()), __FILE__, __LINE__);
                    if (thread.screenshots != 2)
                        QTest::qFail("incomplete thread", __FILE__, __LINE__);
                }
                for (const SkippedThread &skippedThread : batch->skipped) {
                    if (skippedThread.id != changing.id)
                        QTest::qFail(qPrintable(skippedThread.reason), __FILE__, __LINE__);
                }
            }
            if (unchangedSeen != unchanged.size())
                QTest::qFail("an unchanged thread was skipped", __FILE__, __LINE__);
        }
        isDone = true;
        writer.join();
        // The last operation removed the thread.
        QCOMPARE(idsOf(f.list()).size(), unchanged.size());
    }

    void nextListReflectsChanges()
    {
        ListingFixture f;
        const QUuid one = f.save("one", 1);
        const QUuid two = f.save("two", 2);
        QCOMPARE(idsOf(f.list()), QList<QUuid>({two, one}));
        QVERIFY(f.store.updateTitle(one, "uno"));
        QVERIFY(f.store.remove(two));
        const QUuid three = f.save("three", 3);
        const QList<Listed> batches = f.list();
        QCOMPARE(idsOf(batches), QList<QUuid>({three, one}));
        QCOMPARE(batches.first()->threads.last().title(), QStringLiteral("uno"));
        QVERIFY(QFile::remove(f.folder(three) + "/screenshot-1.png"));
        QCOMPARE(idsOf(f.list()), QList<QUuid>({one}));
    }

    void foldersDifferingInCaseAreOneThread()
    {
        ListingFixture f;
        const QUuid id = f.save();
        QVERIFY(QDir().mkdir(f.support.filePath("Quellora/sessions/" + uuidText(id).toLower())));
        for (const QUuid &found : idsOf(f.list()))
            QCOMPARE(found, id);
    }

    void unreadableFolderIsOneError()
    {
        ListingFixture f;
        QVERIFY(f.list().isEmpty());
        QVERIFY(QDir(f.support.filePath("Quellora")).removeRecursively());
        writeFile(f.support.filePath("Quellora"), "");
        const QList<Listed> listed = f.list();
        QCOMPARE(listed.size(), 1);
        QVERIFY(!listed.first());
        QCOMPARE(listed.first().error().kind, StoreError::Kind::File);
    }
};

QUELLORA_TEST(QCoreApplication, TestThreadListing)
#include "test_thread_listing.moc"
