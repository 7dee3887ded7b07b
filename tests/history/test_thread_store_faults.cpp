// Fault injection on real files: every step of a save fails in turn, as with a full disk, an I/O
// error or missing permissions.

#include "history/StoreFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using namespace quellora;

namespace {

const QString noSpace = QStringLiteral("No space left on device");

/// Which step of a save fails, and after which fraction of a file's bytes.
struct Fault
{
    /// Number of steps that succeed before the failure; if negative, no step fails.
    int stepsToSucceed = -1;
    double writtenFraction = 0;

    static Fault at(int step, double fraction = 0)
    {
        Fault fault;
        fault.stepsToSucceed = step;
        fault.writtenFraction = fraction;
        return fault;
    }

    int stepsSeen = 0;
    bool hasTriggered = false;
    QStringList journal;

    bool triggers(const QString &step)
    {
        journal.append(step);
        const bool triggersNow = stepsSeen++ == stepsToSucceed;
        hasTriggered = hasTriggered || triggersNow;
        return triggersNow;
    }
};

class FailingReplacement : public FileReplacement
{
public:
    FailingReplacement(std::unique_ptr<FileReplacement> file, const QString &path, Fault &fault)
        : m_file(std::move(file)), m_name(QFileInfo(path).fileName()), m_fault(fault)
    {}

    Result open() override
    {
        return m_fault.triggers("open " + m_name) ? tl::unexpected(noSpace) : m_file->open();
    }
    Result write(const QByteArray &content) override
    {
        if (!m_fault.triggers("write " + m_name))
            return m_file->write(content);
        const auto written =
            static_cast<qsizetype>(m_fault.writtenFraction * static_cast<double>(content.size()));
        if (!m_file->write(content.left(written)))
            qFatal("The test could not write");
        return tl::unexpected(noSpace);
    }
    Result commit() override
    {
        return m_fault.triggers("commit " + m_name) ? tl::unexpected(noSpace) : m_file->commit();
    }

private:
    std::unique_ptr<FileReplacement> m_file;
    QString m_name;
    Fault &m_fault;
};

class FailingFiles : public DiskThreadFiles
{
public:
    Result createFolder(const QString &path) override
    {
        const QString step = "folder " + QFileInfo(path).fileName();
        return fault.triggers(step) ? tl::unexpected(noSpace) : DiskThreadFiles::createFolder(path);
    }
    std::unique_ptr<FileReplacement> replacement(const QString &path) override
    {
        return std::make_unique<FailingReplacement>(DiskThreadFiles::replacement(path), path,
                                                    fault);
    }
    Result removeFile(const QString &path) override
    {
        const QString step = "remove " + QFileInfo(path).fileName();
        return fault.triggers(step) ? tl::unexpected(noSpace) : DiskThreadFiles::removeFile(path);
    }
    void syncFolder(const QString &path) override
    {
        fault.journal.append("sync " + QFileInfo(path).fileName());
        DiskThreadFiles::syncFolder(path);
    }

    Fault fault;
};

/// keptSample() with two more screenshots, a note and a turn.
CaptureSession grown(CaptureSession session)
{
    session.addScreenshot(QByteArray(100'000, 'a'), t0, t0);
    session.addScreenshot(QByteArray(100'000, 'b'), t0, t0);
    session.addNote("note", t0);
    session.addTurn("q", QString(50'000, 'c'), t0, t0);
    return session;
}

constexpr double fractions[] = {0, 0.00001, 0.5, 0.99999, 1};

} // namespace

class TestThreadStoreFaults : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void saveSteps()
    {
        auto files = std::make_shared<FailingFiles>();
        StoreFixture f(files);
        const CaptureSession session = keptSample();
        const QString folder = uuidText(session.id);
        QVERIFY(f.store.save(session));
        // The folder is synced before the description refers to the images.
        const QString support = QFileInfo(f.support.path()).fileName();
        QCOMPARE(files->fault.journal,
                 (QStringList{"folder sessions", "folder Quellora", "folder " + support,
                              "sync " + support, "sync Quellora", "folder " + folder,
                              "folder sessions", "sync sessions", "open screenshot-0.png",
                              "write screenshot-0.png", "commit screenshot-0.png",
                              "open screenshot-1.png", "write screenshot-1.png",
                              "commit screenshot-1.png", "sync " + folder, "open session.json",
                              "write session.json", "commit session.json", "sync " + folder}));
        // A later save writes only the description.
        files->fault.journal.clear();
        QVERIFY(f.store.save(session));
        QCOMPARE(files->fault.journal,
                 (QStringList{"folder sessions", "folder " + folder, "open session.json",
                              "write session.json", "commit session.json", "sync " + folder}));
    }

    void failureAtAnyStepOfLaterSave()
    {
        int steps = 0;
        for (const double fraction : fractions) {
            for (int step = 0;; ++step) {
                auto files = std::make_shared<FailingFiles>();
                StoreFixture f(files);
                const CaptureSession before = keptSample();
                QVERIFY(f.store.save(before));
                const CaptureSession after = grown(before);
                files->fault = Fault::at(step, fraction);

                const auto saved = f.store.save(after);
                if (!files->fault.hasTriggered) {
                    QVERIFY(saved);
                    QCOMPARE(*f.store.load(after.id), asStored(after));
                    break;
                }
                ++steps;
                QVERIFY2(!saved, qPrintable(files->fault.journal.last()));
                verifyFailure(saved.error(), after.id, files->fault);
                QCOMPARE(withoutReservedNumbers(*f.store.load(after.id)), asStored(before));
                verifyOnlyCompleteFiles(f, after);
                verifyNextSave(f, *files, after);
            }
        }
        // Two createFolder() calls; open, write and commit of two images and the description.
        QCOMPARE(steps, 11 * static_cast<int>(std::size(fractions)));
    }

    void nextSaveRetriesImageRemoval()
    {
        auto files = std::make_shared<FailingFiles>();
        StoreFixture f(files);
        CaptureSession session = keptSample();
        QVERIFY(f.store.save(session));
        session.removeScreenshot(0);
        files->fault.journal.clear();
        QVERIFY(f.store.save(session));
        // The image is removed after the description that referred to it is replaced for good.
        QCOMPARE(files->fault.journal.mid(files->fault.journal.size() - 3),
                 (QStringList{"commit session.json", "sync " + uuidText(session.id),
                              "remove screenshot-0.png"}));

        session.removeScreenshot(1);
        files->fault = Fault::at(5, 0);
        const auto saved = f.store.save(session);
        QVERIFY(!saved);
        QCOMPARE(saved.error().kind, StoreError::Kind::File);
        QCOMPARE(saved.error().description(),
                 f.folder(session.id) + "/screenshot-1.png: " + noSpace);
        QVERIFY(f.store.load(session.id)->screenshots.isEmpty());
        // Its number is not reused while the file exists.
        QCOMPARE(f.store.load(session.id)->nextScreenshotIndex, 2);
        QVERIFY(f.store.save(session));
        QCOMPARE(f.names(session.id), QStringList{"session.json"});
    }

    void failureAtAnyStepOfFirstSave()
    {
        int steps = 0;
        for (int step = 0;; ++step) {
            auto files = std::make_shared<FailingFiles>();
            StoreFixture f(files);
            const CaptureSession session = grown(keptSample());
            files->fault = Fault::at(step, 0.5);
            const auto saved = f.store.save(session);
            if (!files->fault.hasTriggered)
                break;
            ++steps;
            QVERIFY(!saved);
            verifyFailure(saved.error(), session.id, files->fault);
            QCOMPARE(f.store.load(session.id).error().kind, StoreError::Kind::SessionNotFound);
            verifyOnlyCompleteFiles(f, session);
            verifyNextSave(f, *files, session);
        }
        // Five createFolder() calls; open, write and commit of four images and the description.
        QCOMPARE(steps, 5 + 3 * 5);
    }

    void failureAtAnyStepOfRename()
    {
        for (const double fraction : fractions) {
            for (int step = 0; step < 3; ++step) {
                auto files = std::make_shared<FailingFiles>();
                StoreFixture f(files);
                const CaptureSession session = keptSample();
                QVERIFY(f.store.save(session));
                const QByteArray before = contentOf(f.description(session.id));
                files->fault = Fault::at(step, fraction);
                const auto renamed = f.store.updateTitle(session.id, QString(20'000, 'T'));
                QVERIFY(!renamed && files->fault.hasTriggered);
                verifyFailure(renamed.error(), session.id, files->fault);
                QCOMPARE(contentOf(f.description(session.id)), before);
                QCOMPARE(f.names(session.id).size(), 3);
                files->fault = {};
                QVERIFY(f.store.updateTitle(session.id, "T"));
                QCOMPARE(f.store.load(session.id)->customTitle, std::optional(QString("T")));
            }
        }
    }

    void listFailsWithoutFolder()
    {
        auto files = std::make_shared<FailingFiles>();
        StoreFixture f(files);
        files->fault = Fault::at(0);
        const auto ids = f.store.list();
        QVERIFY(!ids);
        QCOMPARE(ids.error().description(),
                 f.support.filePath("Quellora/sessions") + ": " + noSpace);
    }

private:
    static void verifyFailure(const StoreError &error, const QUuid &id, const Fault &fault)
    {
        QCOMPARE(error.kind, StoreError::Kind::File);
        const QString last = fault.journal.last();
        if (!last.startsWith("folder "))
            QCOMPARE(error.id, id);
        // The message names the file and the reason.
        QVERIFY2(error.description().endsWith(": " + noSpace), qPrintable(error.description()));
        QVERIFY2(error.description().contains(last.section(' ', 1)),
                 qPrintable(error.description()));
        QVERIFY(error.description().startsWith('/'));
    }

    /// Verifies that the folder contains only complete images and no temporary files.
    static void verifyOnlyCompleteFiles(const StoreFixture &f, const CaptureSession &session)
    {
        for (const QString &name : f.names(session.id)) {
            if (name == "session.json")
                continue;
            bool isWhole = false;
            for (const auto &screenshot : session.screenshots) {
                isWhole = isWhole ||
                          (name == CaptureSessionStore::screenshotFileName(screenshot.index) &&
                           contentOf(f.folder(session.id) + '/' + name) == screenshot.imageData);
            }
            QVERIFY2(isWhole, qPrintable(name));
        }
    }

    static void verifyNextSave(const StoreFixture &f, FailingFiles &files,
                               const CaptureSession &session)
    {
        files.fault = {};
        const auto saved = f.store.save(session);
        QVERIFY2(saved, saved ? "" : qPrintable(saved.error().description()));
        QCOMPARE(*f.store.load(session.id), asStored(session));
        QCOMPARE(f.names(session.id).size(), session.screenshots.size() + 1);
    }
};

QUELLORA_TEST(QCoreApplication, TestThreadStoreFaults)
#include "test_thread_store_faults.moc"
