// Every step of a save fails in turn, as a full disk, a failing disk or a missing right would have
// it, with the real files underneath.

#include "history/StoreFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

using namespace quellora;

namespace {

const QString noSpace = QStringLiteral("No space left on device");

/// Which step of a save fails, and after how much of a file (as a share of its bytes).
struct Fault
{
    /// Steps that still succeed; none fails when negative.
    int stepsBefore = -1;
    double shareWritten = 0;

    static Fault at(int step, double share = 0)
    {
        Fault fault;
        fault.stepsBefore = step;
        fault.shareWritten = share;
        return fault;
    }

    int stepsSeen = 0;
    bool hasStruck = false;
    QStringList journal;

    bool strikes(const QString &step)
    {
        journal.append(step);
        const bool strikesNow = stepsSeen++ == stepsBefore;
        hasStruck = hasStruck || strikesNow;
        return strikesNow;
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
        return m_fault.strikes("open " + m_name) ? tl::unexpected(noSpace) : m_file->open();
    }
    Result write(const QByteArray &content) override
    {
        if (!m_fault.strikes("write " + m_name))
            return m_file->write(content);
        const auto written =
            static_cast<qsizetype>(m_fault.shareWritten * static_cast<double>(content.size()));
        if (!m_file->write(content.left(written)))
            qFatal("The test could not write");
        return tl::unexpected(noSpace);
    }
    Result commit() override
    {
        return m_fault.strikes("commit " + m_name) ? tl::unexpected(noSpace) : m_file->commit();
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
        return fault.strikes(step) ? tl::unexpected(noSpace) : DiskThreadFiles::createFolder(path);
    }
    std::unique_ptr<FileReplacement> replacement(const QString &path) override
    {
        return std::make_unique<FailingReplacement>(DiskThreadFiles::replacement(path), path,
                                                    fault);
    }
    Result removeFile(const QString &path) override
    {
        const QString step = "remove " + QFileInfo(path).fileName();
        return fault.strikes(step) ? tl::unexpected(noSpace) : DiskThreadFiles::removeFile(path);
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

constexpr double shares[] = {0, 0.00001, 0.5, 0.99999, 1};

} // namespace

class TestThreadStoreFaults : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void stepsOfASave()
    {
        auto files = std::make_shared<FailingFiles>();
        StoreFixture f(files);
        const CaptureSession session = keptSample();
        const QString folder = uuidText(session.id);
        QVERIFY(f.store.save(session));
        // The images' names are safe before anything names them.
        QCOMPARE(
            files->fault.journal,
            (QStringList{"folder sessions", "folder Quellora",
                         "folder " + QFileInfo(f.support.path()).fileName(), "folder " + folder,
                         "folder sessions", "open screenshot-0.png", "write screenshot-0.png",
                         "commit screenshot-0.png", "open screenshot-1.png",
                         "write screenshot-1.png", "commit screenshot-1.png", "sync " + folder,
                         "open session.json", "write session.json", "commit session.json",
                         "sync " + folder, "sync sessions"}));
        // Later saves touch what is new and nothing else.
        files->fault.journal.clear();
        QVERIFY(f.store.save(session));
        QCOMPARE(files->fault.journal,
                 (QStringList{"folder sessions", "folder " + folder, "open session.json",
                              "write session.json", "commit session.json"}));
    }

    void everyStepOfALaterSaveFails()
    {
        int steps = 0;
        for (const double share : shares) {
            for (int step = 0;; ++step) {
                auto files = std::make_shared<FailingFiles>();
                StoreFixture f(files);
                const CaptureSession before = keptSample();
                QVERIFY(f.store.save(before));
                const CaptureSession after = grown(before);
                files->fault = Fault::at(step, share);

                const auto saved = f.store.save(after);
                if (!files->fault.hasStruck) {
                    QVERIFY(saved);
                    QCOMPARE(*f.store.load(after.id), asStored(after));
                    break;
                }
                ++steps;
                QVERIFY2(!saved, qPrintable(files->fault.journal.last()));
                verifyFailure(saved.error(), after.id, files->fault);
                QCOMPARE(withoutTakenNumbers(*f.store.load(after.id)), asStored(before));
                verifyOnlyWholeFiles(f, after);
                verifyNextSave(f, *files, after);
            }
        }
        // Two folders; open, write and commit of two images and the description.
        QCOMPARE(steps, 11 * static_cast<int>(std::size(shares)));
    }

    void imageThatCannotBeRemovedGoesWithTheNextSave()
    {
        auto files = std::make_shared<FailingFiles>();
        StoreFixture f(files);
        CaptureSession session = keptSample();
        QVERIFY(f.store.save(session));
        session.removeScreenshot(0);
        files->fault.journal.clear();
        QVERIFY(f.store.save(session));
        // Not before the description that named it has gone.
        QCOMPARE(files->fault.journal.mid(files->fault.journal.size() - 2),
                 (QStringList{"commit session.json", "remove screenshot-0.png"}));

        session.removeScreenshot(1);
        files->fault = Fault::at(5, 0);
        const auto saved = f.store.save(session);
        QVERIFY(!saved);
        QCOMPARE(saved.error().kind, StoreError::Kind::File);
        QCOMPARE(saved.error().description(),
                 f.folder(session.id) + "/screenshot-1.png: " + noSpace);
        QVERIFY(f.store.load(session.id)->screenshots.isEmpty());
        // Its number stays taken as long as it lies there.
        QCOMPARE(f.store.load(session.id)->nextScreenshotIndex, 2);
        QVERIFY(f.store.save(session));
        QCOMPARE(f.names(session.id), QStringList{"session.json"});
    }

    void everyStepOfAFirstSaveFails()
    {
        int steps = 0;
        for (int step = 0;; ++step) {
            auto files = std::make_shared<FailingFiles>();
            StoreFixture f(files);
            const CaptureSession session = grown(keptSample());
            files->fault = Fault::at(step, 0.5);
            const auto saved = f.store.save(session);
            if (!files->fault.hasStruck)
                break;
            ++steps;
            QVERIFY(!saved);
            verifyFailure(saved.error(), session.id, files->fault);
            QCOMPARE(f.store.load(session.id).error().kind, StoreError::Kind::SessionNotFound);
            verifyOnlyWholeFiles(f, session);
            verifyNextSave(f, *files, session);
        }
        // Five looks at folders, four images, the description.
        QCOMPARE(steps, 5 + 3 * 5);
    }

    void everyStepOfARenameFails()
    {
        for (const double share : shares) {
            for (int step = 0; step < 3; ++step) {
                auto files = std::make_shared<FailingFiles>();
                StoreFixture f(files);
                const CaptureSession session = keptSample();
                QVERIFY(f.store.save(session));
                const QByteArray before = contentOf(f.description(session.id));
                files->fault = Fault::at(step, share);
                const auto renamed = f.store.updateTitle(session.id, QString(20'000, 'T'));
                QVERIFY(!renamed && files->fault.hasStruck);
                verifyFailure(renamed.error(), session.id, files->fault);
                QCOMPARE(contentOf(f.description(session.id)), before);
                QCOMPARE(f.names(session.id).size(), 3);
                files->fault = {};
                QVERIFY(f.store.updateTitle(session.id, "T"));
                QCOMPARE(f.store.load(session.id)->customTitle, std::optional(QString("T")));
            }
        }
    }

    void listingNeedsItsFolder()
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
        // The text says what failed and why.
        QVERIFY2(error.description().endsWith(": " + noSpace), qPrintable(error.description()));
        QVERIFY2(error.description().contains(last.section(' ', 1)),
                 qPrintable(error.description()));
        QVERIFY(error.description().startsWith('/'));
    }

    /// Nothing half-written and nothing temporary can be seen.
    static void verifyOnlyWholeFiles(const StoreFixture &f, const CaptureSession &session)
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
