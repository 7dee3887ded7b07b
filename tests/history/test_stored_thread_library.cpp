#include "base/WhenFinished.h"
#include "fakes/LogCapture.h"
#include "history/StoreFixture.h"
#include "history/StoredThreadLibrary.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTest>

using namespace quellora;

namespace {

CaptureSession makeThread(const QString &prompt)
{
    CaptureSession session = CaptureSession::create(t0);
    session.resumeTurnPersistingFromDisk();
    session.addScreenshot("jpeg", t0, t0);
    session.addTurn(prompt, "answer", t0, t0);
    return session;
}

} // namespace

class TestStoredThreadLibrary : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_folder = std::make_unique<QTemporaryDir>(fastFolder() + "/quellora-test-XXXXXX");
        m_store = std::make_unique<CaptureSessionStore>(m_folder->path());
        m_saver = std::make_unique<BackgroundThreadSaver>(*m_store);
        m_library = std::make_unique<StoredThreadLibrary>(*m_store, *m_saver);
    }
    void cleanup()
    {
        m_library.reset();
        m_saver.reset();
    }

    void operationsRunAfterEarlierSaves()
    {
        CaptureSession session = makeThread("question");
        m_saver->save(session, "failed: ");
        session.addTurn("second", "answer", t0, t0);
        m_saver->save(session, "failed: ");
        const auto loaded = result(m_library->load(session.id));
        QVERIFY(loaded);
        QCOMPARE(loaded->turns.size(), 2);
        QCOMPARE(loaded->screenshots.first().imageData, QByteArray("jpeg"));

        m_saver->save(session, "failed: ");
        QVERIFY(result(m_library->updateTitle(session.id, QStringLiteral("Title"))));
        QCOMPARE(*result(m_library->load(session.id))->customTitle, QStringLiteral("Title"));

        m_saver->save(session, "failed: ");
        QCOMPARE(result(m_library->remove({session.id})).removed, QList<QUuid>{session.id});
        m_saver->flush();
        const auto afterRemoval = result(m_library->load(session.id));
        QVERIFY(!afterRemoval);
        QCOMPARE(afterRemoval.error().kind, StoreError::Kind::SessionNotFound);
    }

    void listsSavedThreads()
    {
        const CaptureSession one = makeThread("one");
        const CaptureSession two = makeThread("two");
        m_saver->save(one, "failed: ");
        m_saver->save(two, "failed: ");
        auto future = m_library->list();
        QTRY_VERIFY(future.isFinished());
        QStringList titles;
        for (int i = 0; i < future.resultCount(); ++i) {
            const auto batch = future.resultAt(i);
            QVERIFY(batch);
            QCOMPARE(batch->total, 2);
            for (const ThreadSummary &summary : batch->threads)
                titles.append(summary.title());
        }
        titles.sort();
        QCOMPARE(titles, QStringList({"one", "two"}));
    }

    void failuresAreReturned()
    {
        const QUuid id = QUuid::createUuid();
        QCOMPARE(result(m_library->load(id)).error().description(),
                 QStringLiteral("No saved session found for ") + uuidText(id));
        QCOMPARE(result(m_library->updateTitle(id, QStringLiteral("t"))).error().kind,
                 StoreError::Kind::SessionNotFound);
        QCOMPARE(result(m_library->remove({id})).removed, QList<QUuid>{id});
    }

    void removesSeveralThreadsAndNothingElse()
    {
        const CaptureSession one = store("one");
        const CaptureSession two = store("two");
        const CaptureSession kept = store("kept");
        const QString root = *m_store->sessionsRoot();
        QVERIFY(QDir(root).mkpath("notes"));
        writeFile(root + "/mine.txt", "mine");
        // The removal of one fails: what should be its folder's new name is taken.
        const CaptureSession stuck = store("stuck");
        const QString obstacle = root + "/.deleted-" + uuidText(stuck.id);
        writeFile(obstacle, "in the way");
        const auto outcome = result(m_library->remove({one.id, stuck.id, two.id}));
        QCOMPARE(outcome.removed, QList<QUuid>({one.id, two.id}));
        QCOMPARE(outcome.failed.size(), 1);
        QCOMPARE(outcome.failed.first().id, stuck.id);
        QVERIFY(result(m_library->load(kept.id)));
        QVERIFY(result(m_library->load(stuck.id)));
        QVERIFY(QFileInfo(root + "/notes").isDir());
        QCOMPARE(contentOf(root + "/mine.txt"), QByteArray("mine"));
    }

    void removalDropsFailedSave()
    {
        const CaptureSession session = store("one");
        QCOMPARE(m_saver->stateOf(session.id).kind, SaveState::Kind::Saved);
        result(m_library->remove({session.id}));
        m_saver->flush();
        QCOMPARE(m_saver->stateOf(session.id).kind, SaveState::Kind::None);
    }

    void measuresAllThreads()
    {
        const CaptureSession one = store("one");
        const QUuid damaged = QUuid::createUuid();
        const QString root = *m_store->sessionsRoot();
        const QString folder = root + '/' + uuidText(damaged);
        QVERIFY(QDir().mkpath(folder + "/inner"));
        writeFile(folder + "/session.json", "damaged");
        writeFile(folder + "/inner/other", QByteArray(5000, 'x'));
        // Neither a link nor what it leads to counts.
        QVERIFY(QFile::link(folder, root + '/' + uuidText(QUuid::createUuid())));
        QVERIFY(QFile::link("/dev/zero", folder + "/endless"));
        QVERIFY(QDir().mkpath(root + "/notes"));
        const auto measured = result(m_library->measure());
        QVERIFY(measured);
        QCOMPARE(measured->size(), 2);
        for (const MeasuredThread &thread : *measured) {
            if (thread.id == damaged) {
                QCOMPARE(thread.bytes, 7);
                QVERIFY(!thread.updatedAt);
            } else {
                QCOMPARE(thread.id, one.id);
                const QString stored = root + '/' + uuidText(one.id);
                QCOMPARE(thread.bytes, QFileInfo(stored + "/session.json").size() +
                                           QFileInfo(stored + "/screenshot-0.png").size());
                QCOMPARE(thread.updatedAt, result(m_library->load(one.id))->updatedAt);
            }
        }
    }

    void removesOlderThreads()
    {
        const CaptureSession older = store("older", t0.addDays(-40));
        const CaptureSession inUse = store("in use", t0.addDays(-40));
        const CaptureSession newer = store("newer", t0.addDays(-20));
        const QString root = *m_store->sessionsRoot();
        const QString damaged = root + '/' + uuidText(QUuid::createUuid());
        QVERIFY(QDir().mkpath(damaged) && QDir().mkpath(root + "/old notes"));
        writeFile(damaged + "/session.json", "damaged");
        const auto outcome = result(m_library->removeOlder(t0.addDays(-30), {inUse.id}));
        QVERIFY(outcome);
        QCOMPARE(outcome->removed, QList<QUuid>{older.id});
        QVERIFY(outcome->failed.isEmpty());
        QVERIFY(!result(m_library->load(older.id)));
        QVERIFY(result(m_library->load(inUse.id)) && result(m_library->load(newer.id)));
        QVERIFY(QFileInfo(damaged + "/session.json").isFile());
        QVERIFY(QFileInfo(root + "/old notes").isDir());
    }

    void unreadableFolderIsOneError()
    {
        m_library.reset();
        m_saver.reset();
        m_store = std::make_unique<CaptureSessionStore>(QStringLiteral("/dev/null"));
        m_saver = std::make_unique<BackgroundThreadSaver>(*m_store);
        m_library = std::make_unique<StoredThreadLibrary>(*m_store, *m_saver);
        auto future = m_library->list();
        QTRY_VERIFY(future.isFinished());
        QCOMPARE(future.resultCount(), 1);
        QVERIFY(!future.resultAt(0));
        QVERIFY(!result(m_library->measure()));
        QVERIFY(!result(m_library->removeOlder(t0, {})));
    }

    void destructionDuringListIsSafe()
    {
        for (int i = 0; i < 50; ++i)
            m_saver->save(makeThread(QString::number(i)), "failed: ");
        auto future = m_library->list();
        m_library.reset();
        QVERIFY(future.isFinished() || future.isCanceled());
    }

private:
    template <typename T>
    static T result(QFuture<T> future)
    {
        std::optional<T> value;
        QObject context;
        whenFinished(future, &context, [&](const T &finished) { value = finished; });
        [&] { QTRY_VERIFY(value); }();
        return *value;
    }
    /// Stores a thread that was last updated at @p time.
    CaptureSession store(const QString &prompt, const QDateTime &time = t0)
    {
        CaptureSession session = makeThread(prompt);
        session.updatedAt = time;
        m_saver->save(session, "failed: ");
        m_saver->flush();
        return session;
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<CaptureSessionStore> m_store;
    std::unique_ptr<BackgroundThreadSaver> m_saver;
    std::unique_ptr<StoredThreadLibrary> m_library;
};

QUELLORA_TEST(QCoreApplication, TestStoredThreadLibrary)
#include "test_stored_thread_library.moc"
