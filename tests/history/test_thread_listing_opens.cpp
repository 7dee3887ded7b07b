#include "history/StoreFixture.h"
#include "history/ThreadListing.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

#include <sys/inotify.h>
#include <unistd.h>

using namespace quellora;

/// Verifies with inotify which files a listing opens.
class TestThreadListingOpens : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void opensDescriptionsButNoImages()
    {
        const StoreFixture f;
        const int watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (watch < 0)
            QSKIP("inotify is not available");
        for (int i = 0; i < 3; ++i) {
            const CaptureSession session = keptSample();
            QVERIFY(f.store.save(session));
            QVERIFY(::inotify_add_watch(watch, QFile::encodeName(f.folder(session.id)),
                                        IN_OPEN | IN_ACCESS) >= 0);
        }
        QCOMPARE(listCount(f), 3);
        QCOMPARE(openedFiles(watch), QSet<QByteArray>({"session.json"}));
        // Verify that inotify does report an opened image.
        QVERIFY(f.store.load(f.store.list()->first()));
        QVERIFY(openedFiles(watch).contains("screenshot-0.png"));
        ::close(watch);
    }

private:
    static qsizetype listCount(const StoreFixture &f)
    {
        ThreadListing::Promise promise;
        promise.start();
        ThreadListing::read(f.store, promise);
        promise.finish();
        return promise.future().result()->threads.size();
    }
    static QSet<QByteArray> openedFiles(int watch)
    {
        QSet<QByteArray> names;
        alignas(inotify_event) char buffer[16384];
        for (ssize_t size; (size = ::read(watch, buffer, sizeof buffer)) > 0;) {
            for (ssize_t at = 0; at < size;) {
                inotify_event event = {};
                memcpy(&event, buffer + at, sizeof event);
                names.insert(QByteArray(buffer + at + sizeof event));
                at += static_cast<ssize_t>(sizeof event + event.len);
            }
        }
        return names;
    }
};

QUELLORA_TEST(QCoreApplication, TestThreadListingOpens)
#include "test_thread_listing_opens.moc"
