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
        QVERIFY(result(m_library->remove(session.id)));
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
        QVERIFY(result(m_library->remove(id)));
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
        T value{tl::unexpected(StoreError{})};
        bool isFinished = false;
        QObject context;
        whenFinished(future, &context, [&](const T &finished) {
            value = finished;
            isFinished = true;
        });
        [&] { QTRY_VERIFY(isFinished); }();
        return value;
    }

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<CaptureSessionStore> m_store;
    std::unique_ptr<BackgroundThreadSaver> m_saver;
    std::unique_ptr<StoredThreadLibrary> m_library;
};

QUELLORA_TEST(QCoreApplication, TestStoredThreadLibrary)
#include "test_stored_thread_library.moc"
