// The store on full and read-only disks, and with writers killed during a save.

#include "history/BusySession.h"
#include "support/TestProgram.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>

#include <cerrno>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

using namespace quellora;

namespace {

void writeProcFile(const char *path, const QByteArray &content)
{
    const int file = ::open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0 || ::write(file, content.constData(), content.size()) != content.size())
        qWarning("%s could not be written", path);
    ::close(file);
}

/// Moves this process into a private mount namespace, which the kernel removes when it ends.
/// @return the reason of a failure; empty on success
QString enterMountNamespace()
{
    const uid_t user = ::getuid();
    const gid_t group = ::getgid();
    if (::unshare(CLONE_NEWNS) != 0) {
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return "no mount namespace: " + qt_error_string(errno);
        writeProcFile("/proc/self/setgroups", "deny");
        writeProcFile("/proc/self/uid_map", "0 " + QByteArray::number(user) + " 1");
        writeProcFile("/proc/self/gid_map", "0 " + QByteArray::number(group) + " 1");
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return "no private mounts: " + qt_error_string(errno);
    return {};
}

QString namespaceError;

/// A store on a small private tmpfs.
class SmallDisk
{
public:
    explicit SmallDisk(const QByteArray &options)
    {
        if (::mount("none", path().constData(), "tmpfs", 0, options.constData()) != 0)
            m_mountError = qt_error_string(errno);
    }
    ~SmallDisk() { ::umount2(path().constData(), MNT_DETACH); }
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    QString refusal() const { return m_mountError; }

    bool setReadOnly(bool readOnly) const
    {
        const unsigned long flags = MS_REMOUNT | (readOnly ? MS_RDONLY : 0);
        return ::mount("none", path().constData(), "tmpfs", flags, nullptr) == 0;
    }

    /// Fills the disk except for @p freePages pages of 4096 bytes.
    bool fill(int freePages) const
    {
        const QByteArray page(4096, 'x');
        const int file = ::open(fillFile().constData(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
        off_t size = 0;
        while (::write(file, page.constData(), page.size()) == page.size())
            size += page.size();
        const bool isDone =
            errno == ENOSPC && ::ftruncate(file, size - freePages * page.size()) == 0;
        ::close(file);
        return isDone;
    }
    void empty() const { ::unlink(fillFile().constData()); }

    StoreFixture f;

private:
    QByteArray path() const { return QFile::encodeName(f.support.path()); }
    QByteArray fillFile() const { return path() + "/fillFile"; }

    QString m_mountError;
};

#define SKIP_WITHOUT_MOUNTS(disk)                                                                  \
    if (!namespaceError.isEmpty() || !(disk).refusal().isEmpty())                                  \
    QSKIP(qPrintable(namespaceError.isEmpty() ? (disk).refusal() : namespaceError))

/// keptSample() with a screenshot of four pages and a description of three.
CaptureSession grown(CaptureSession session)
{
    session.addScreenshot(QByteArray(4 * 4096, 'a'), t0, t0);
    session.addTurn("q", QString(2 * 4096, 'b'), t0, t0);
    return session;
}

} // namespace

class TestThreadStoreDisk : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void fullDisk()
    {
        const SmallDisk disk("size=256k");
        SKIP_WITHOUT_MOUNTS(disk);
        int failures = 0;
        int successes = 0;
        for (int freePages = 0; freePages < 9; ++freePages) {
            const CaptureSession before = keptSample();
            QVERIFY(disk.f.store.save(before));
            const CaptureSession after = grown(before);
            QVERIFY(disk.fill(freePages));
            const auto saved = disk.f.store.save(after);
            if (saved) {
                ++successes;
                QCOMPARE(*disk.f.store.load(after.id), asStored(after));
            } else {
                ++failures;
                QCOMPARE(saved.error().kind, StoreError::Kind::File);
                QVERIFY2(saved.error().description().endsWith(": No space left on device"),
                         qPrintable(saved.error().description()));
                QCOMPARE(withoutReservedNumbers(*disk.f.store.load(before.id)), asStored(before));
                QVERIFY(disk.f.names(before.id).filter("saving").isEmpty());
            }
            disk.empty();
            QVERIFY(disk.f.store.save(after));
            QCOMPARE(*disk.f.store.load(after.id), asStored(after));
            QVERIFY(disk.f.store.remove(after.id));
        }
        // The image takes four pages, the description three.
        QCOMPARE(failures, 7);
        QCOMPARE(successes, 2);
    }

    void diskWithoutFreeInodes()
    {
        const SmallDisk disk("size=256k,nr_inodes=8");
        SKIP_WITHOUT_MOUNTS(disk);
        // The root, two folders, the thread's folder and three files leave one inode.
        const CaptureSession before = keptSample();
        QVERIFY(disk.f.store.save(before));
        const CaptureSession after = grown(before);
        const auto saved = disk.f.store.save(after);
        QVERIFY(!saved);
        QCOMPARE(saved.error().kind, StoreError::Kind::File);
        QVERIFY(saved.error().description().startsWith(disk.f.description(after.id) + ": "));
        QCOMPARE(withoutReservedNumbers(*disk.f.store.load(before.id)), asStored(before));
        const auto other = disk.f.store.save(keptSample());
        QVERIFY(!other);
        QVERIFY2(other.error().description().endsWith(": No space left on device"),
                 qPrintable(other.error().description()));
        QCOMPARE(disk.f.store.list()->size(), 1);
    }

    void readOnlyDisk()
    {
        const SmallDisk disk("size=256k");
        SKIP_WITHOUT_MOUNTS(disk);
        const CaptureSession before = keptSample();
        QVERIFY(disk.f.store.save(before));
        const CaptureSession after = grown(before);
        QVERIFY(disk.setReadOnly(true));
        const QList<StoreError> refusals{disk.f.store.save(after).error(),
                                         disk.f.store.save(keptSample()).error(),
                                         disk.f.store.updateTitle(before.id, "T").error(),
                                         disk.f.store.remove(before.id).error()};
        for (const StoreError &error : refusals) {
            QCOMPARE(error.kind, StoreError::Kind::File);
            QVERIFY(error.description().startsWith(disk.f.support.path()));
        }
        for (int i = 0; i < 3; ++i) {
            QVERIFY2(refusals.at(i).description().endsWith(": Read-only file system"),
                     qPrintable(refusals.at(i).description()));
        }
        QCOMPARE(*disk.f.store.list(), QList<QUuid>{before.id});
        QCOMPARE(*disk.f.store.load(before.id), asStored(before));
        QVERIFY(disk.setReadOnly(false));
        QVERIFY(disk.f.store.save(after));
        QCOMPARE(*disk.f.store.load(after.id), asStored(after));
    }

    void busyFolderIsNotRemoved()
    {
        const SmallDisk disk("size=256k");
        SKIP_WITHOUT_MOUNTS(disk);
        const CaptureSession session = keptSample();
        QVERIFY(disk.f.store.save(session));
        // A mount point makes the folder busy.
        const QByteArray folder = QFile::encodeName(disk.f.folder(session.id));
        QCOMPARE(::mount(folder.constData(), folder.constData(), nullptr, MS_BIND, nullptr), 0);
        const StoreError refusal = disk.f.store.remove(session.id).error();
        QCOMPARE(refusal.kind, StoreError::Kind::File);
        QCOMPARE(refusal.reasonForUser(), "Device or resource busy");
        QCOMPARE(*disk.f.store.list(), QList<QUuid>{session.id});
        QCOMPARE(*disk.f.store.load(session.id), asStored(session));
        QCOMPARE(::umount2(folder.constData(), MNT_DETACH), 0);
        QVERIFY(disk.f.store.remove(session.id));
        QVERIFY(!QFileInfo::exists(disk.f.folder(session.id)));
        QVERIFY(disk.f.store.list()->isEmpty());
    }

    void failedRemovalIsRolledBack()
    {
        const SmallDisk disk("size=256k");
        SKIP_WITHOUT_MOUNTS(disk);
        const CaptureSession session = keptSample();
        QVERIFY(disk.f.store.save(session));
        // The description cannot be removed, but the folder can be renamed.
        const QByteArray description = QFile::encodeName(disk.f.description(session.id));
        QCOMPARE(
            ::mount(description.constData(), description.constData(), nullptr, MS_BIND, nullptr),
            0);
        QVERIFY(!disk.f.store.remove(session.id));
        QCOMPARE(*disk.f.store.list(), QList<QUuid>{session.id});
        QCOMPARE(*disk.f.store.load(session.id), asStored(session));
        QCOMPARE(::umount2(description.constData(), MNT_DETACH), 0);
        QVERIFY(disk.f.store.remove(session.id));
        QVERIFY(disk.f.store.list()->isEmpty());
    }

    /// QUELLORA_KILLS sets the number of kills.
    void killedWriters()
    {
        const int kills = qEnvironmentVariableIsSet("QUELLORA_KILLS")
                              ? qEnvironmentVariableIntValue("QUELLORA_KILLS")
                              : 50;
        const StoreFixture f(std::make_shared<DiskThreadFiles>(), QDir::tempPath());
        QVERIFY(f.store.sessionsRoot());
        const QString foreign = f.support.filePath(QStringLiteral("Quellora/sessions/notes.txt"));
        writeFile(foreign, "not ours");
        QRandomGenerator random(20261121);
        int steps = 0;
        for (int kill = 0; kill < kills; ++kill) {
            const int stored =
                killDuringStep(f, steps, random.bounded(1, 12), random.bounded(4'000));
            QVERIFY(stored >= steps);
            steps = stepsOnDisk(f, stored);
            QVERIFY2(steps >= 0, qPrintable(QStringLiteral("kill %1: neither the state after %2 "
                                                           "steps nor the next one")
                                                .arg(kill)
                                                .arg(stored)));
        }
        QVERIFY(steps > kills);
        QCOMPARE(contentOf(foreign), QByteArray("not ours"));
        // Further saves leave no temporary files.
        BusySession session = BusySession::after(steps);
        for (const int end = steps + 21; steps < end; ++steps)
            QVERIFY(session.take(steps, &f.store));
        QCOMPARE(stepsOnDisk(f, steps), steps);
        for (std::size_t i = 0; i < session.threads.size(); ++i) {
            const auto &thread = session.threads.at(i);
            QCOMPARE(f.names(BusySession::idOf(i)).size(),
                     thread ? thread->screenshots.size() + 1 : 0);
        }
    }

private:
    /// Starts a writer after @p steps, waits for @p reports and kills it @p microseconds later.
    /// @return the number of steps last reported as stored; -1 on failure
    static int killDuringStep(const StoreFixture &f, int steps, int reports, int microseconds)
    {
        QProcess writer;
        writer.start(QUELLORA_THREAD_STORE_WRITER, {f.support.path(), QString::number(steps)});
        QByteArray output;
        while (output.count('\n') < reports) {
            if (!writer.waitForReadyRead(10'000)) {
                qWarning("The writer stopped after %s: %s", output.constData(),
                         writer.readAllStandardError().constData());
                return -1;
            }
            output += writer.readAllStandardOutput();
        }
        QElapsedTimer timer;
        timer.start();
        while (timer.nsecsElapsed() < qint64(microseconds) * 1000) {
        }
        writer.kill();
        if (!writer.waitForFinished(10'000) || writer.exitStatus() != QProcess::CrashExit)
            return -1;
        output += writer.readAllStandardOutput();
        const auto lines = output.left(output.lastIndexOf('\n')).split('\n');
        return lines.last().toInt();
    }

    static bool isStored(const StoreFixture &f, std::size_t thread, const BusySession &session)
    {
        const auto loaded = f.store.load(BusySession::idOf(thread));
        const auto &expected = session.threads.at(thread);
        if (!loaded)
            return !expected && loaded.error().kind == StoreError::Kind::SessionNotFound;
        return expected &&
               withoutReservedNumbers(*loaded) == withoutReservedNumbers(asStored(*expected));
    }

    /// Whether the disk has the state after @p stored steps, or after one more.
    /// @return which; -1 if neither
    static int stepsOnDisk(const StoreFixture &f, int stored)
    {
        const BusySession now = BusySession::after(stored);
        const BusySession next = BusySession::after(stored + 1);
        const std::size_t changing = BusySession::threadOf(stored);
        for (std::size_t i = 0; i < now.threads.size(); ++i) {
            if (i != changing && !isStored(f, i, now))
                return -1;
        }
        return isStored(f, changing, now) ? stored : isStored(f, changing, next) ? stored + 1 : -1;
    }
};

namespace {

int runTests(int argc, char **argv)
{
    // unshare(CLONE_NEWUSER) requires a single-threaded process.
    namespaceError = enterMountNamespace();
    QCoreApplication app(argc, argv);
    TestThreadStoreDisk test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace

QUELLORA_TEST_MAIN(runTests)

#include "test_thread_store_disk.moc"
