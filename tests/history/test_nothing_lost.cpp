// Stored threads when any single call that changes the disk fails, when all from one on fail, and
// when the power is cut after any of them.

#include "history/StoreFixture.h"
#include "support/FaultyDisk.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTest>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <utility>
#include <vector>

using namespace quellora;

namespace {

using Fault = FaultyDisk::Fault;
/// nullopt for a thread that is not there.
using Stored = std::optional<CaptureSession>;

struct Operation
{
    QUuid id;
    /// The thread afterwards.
    Stored after;
    std::function<bool(const CaptureSessionStore &)> run;
};

Operation saving(const CaptureSession &session)
{
    return {session.id, asStored(session),
            [=](const CaptureSessionStore &store) { return bool(store.save(session)); }};
}

Operation removing(const CaptureSession &session)
{
    return {session.id, std::nullopt,
            [=](const CaptureSessionStore &store) { return bool(store.remove(session.id)); }};
}

Operation renaming(CaptureSession session, const QString &title)
{
    session.customTitle = title;
    return {session.id, asStored(session), [=](const CaptureSessionStore &store) {
                return bool(store.updateTitle(session.id, title));
            }};
}

/// What a user may do: questions, a note, a title, deleting.
struct Scenario
{
    Scenario()
    {
        CaptureSession first = keptSample();
        const CaptureSession second = keptSample();
        for (const CaptureSession &session : {first, second})
            before[session.id] = asStored(session);
        first.addScreenshot(QByteArray(3'000, 'a'), t0, t0);
        first.addNote("note", t0);
        first.addTurn("q", QString(2'000, 'c'), t0, t0);
        operations.push_back(saving(first));
        operations.push_back(renaming(second, "A title"));
        const CaptureSession third = keptSample();
        operations.push_back(saving(third));
        const QUuid note = first.notes.first().id;
        first.removeNote(note);
        first.removeScreenshot(1);
        operations.push_back(saving(first));
        operations.push_back(removing(second));
        operations.push_back(removing(third));
    }

    std::map<QUuid, Stored> before;
    std::vector<Operation> operations;
};

const std::vector<std::pair<QString, QByteArray>> foreignFiles = {
    {QStringLiteral("Quellora/sessions/notes.txt"), "not a thread"},
    {QStringLiteral("Quellora/sessions/.deleted-draft"), "not a thread either"},
    {QStringLiteral("Quellora/preferences.json"), "{}"},
};

/// What each thread may be.
using Allowed = std::map<QUuid, std::vector<Stored>>;

} // namespace

class TestNothingLost : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_f.store.sessionsRoot());
        for (const auto &[path, content] : foreignFiles)
            writeFile(m_f.support.filePath(path), content);
        for (const auto &[id, stored] : m_scenario.before) {
            CaptureSession session = *stored;
            session.resumeTurnPersistingFromDisk();
            QVERIFY(m_f.store.save(session));
        }
        m_start = DiskImage::of(root());
    }

    void everyFailingCall_data()
    {
        QTest::addColumn<int>("fault");
        QTest::addColumn<bool>("isLasting");
        const std::pair<const char *, Fault> faults[] = {
            {"no space", Fault::NoSpace},        {"I/O error", Fault::InputOutput},
            {"interrupted", Fault::Interrupted}, {"read only", Fault::ReadOnly},
            {"short write", Fault::ShortWrite},
        };
        for (const auto &[name, fault] : faults) {
            QTest::addRow("%s once", name) << int(fault) << false;
            // A call that is interrupted each time never returns.
            if (fault != Fault::Interrupted)
                QTest::addRow("%s from then on", name) << int(fault) << true;
        }
    }
    void everyFailingCall()
    {
        QFETCH(int, fault);
        QFETCH(bool, isLasting);
        int calls = 0;
        for (;; ++calls) {
            m_start.writeTo(root());
            Allowed allowed = asBefore();
            bool hasFailed = false;
            {
                FaultyDisk disk(root());
                disk.fail(static_cast<Fault>(fault), calls, isLasting);
                for (const Operation &operation : m_scenario.operations) {
                    if (operation.run(m_f.store))
                        allowed[operation.id] = {operation.after};
                    else
                        allowed[operation.id].push_back(operation.after);
                }
                hasFailed = disk.repair();
            }
            verify(allowed, QStringLiteral("call %1").arg(calls));
            if (QTest::currentTestFailed())
                return;
            if (!hasFailed)
                break;
            // The last of each thread once more, on the repaired disk.
            std::map<QUuid, const Operation *> last;
            for (const Operation &operation : m_scenario.operations)
                last[operation.id] = &operation;
            for (const auto &[id, operation] : last)
                QVERIFY2(operation->run(m_f.store), qPrintable(QString::number(calls)));
            verifyEnd();
            if (QTest::currentTestFailed())
                return;
        }
        QVERIFY(calls > 40);
        qInfo("calls tried: %d", calls);
    }

    void powerCuts()
    {
        m_start.writeTo(root());
        tryPowerCuts(asBefore(), m_scenario.operations);
    }

    void powerCutsOfAFirstSave()
    {
        DiskImage().writeTo(root());
        const CaptureSession session = keptSample();
        tryPowerCuts({{session.id, {std::nullopt}}}, {saving(session)}, false);
    }

private:
    std::string root() const { return QFile::encodeName(m_f.support.path()).toStdString(); }

    Allowed asBefore() const
    {
        Allowed allowed;
        for (const Operation &operation : m_scenario.operations)
            allowed[operation.id] = {std::nullopt};
        for (const auto &[id, stored] : m_scenario.before)
            allowed[id] = {stored};
        return allowed;
    }

    /// Carries out the operations, then looks at everything that a power cut may have left.
    void tryPowerCuts(const Allowed &before, const std::vector<Operation> &operations,
                      bool withForeignFiles = true)
    {
        std::vector<std::size_t> ends;
        std::vector<std::vector<DiskImage>> images;
        {
            const FaultyDisk disk(root());
            for (const Operation &operation : operations) {
                QVERIFY(operation.run(m_f.store));
                ends.push_back(disk.position());
            }
            for (std::size_t i = 0; i <= disk.position(); ++i)
                images.push_back(disk.afterPowerCut(i));
        }
        int states = 0;
        for (std::size_t cut = 0; cut < images.size(); ++cut) {
            Allowed allowed = before;
            for (std::size_t i = 0; i < operations.size(); ++i) {
                const Operation &operation = operations[i];
                if (ends[i] <= cut) {
                    allowed[operation.id] = {operation.after};
                } else {
                    allowed[operation.id].push_back(operation.after);
                    break;
                }
            }
            const std::set<DiskImage> different(images[cut].begin(), images[cut].end());
            for (const DiskImage &image : different) {
                ++states;
                image.writeTo(root());
                verify(allowed, QStringLiteral("power cut after %1 calls").arg(cut),
                       withForeignFiles);
                if (QTest::currentTestFailed())
                    return;
            }
        }
        QVERIFY(states > int(operations.size()) * 5);
        qInfo("states tried: %d", states);
    }

    void verify(const Allowed &allowed, const QString &where, bool withForeignFiles = true)
    {
        for (const auto &[id, states] : allowed) {
            const auto loaded = m_f.store.load(id);
            Stored now;
            if (loaded)
                now = withoutReservedNumbers(*loaded);
            else
                QVERIFY2(loaded.error().kind == StoreError::Kind::SessionNotFound,
                         qPrintable(where + ": " + loaded.error().description()));
            const bool isAllowed =
                std::any_of(states.begin(), states.end(), [&](const Stored &each) {
                    return now.has_value() == each.has_value() &&
                           (!now || *now == withoutReservedNumbers(*each));
                });
            QVERIFY2(isAllowed, qPrintable(where + (now ? ": another state of " : ": no thread ") +
                                           uuidText(id)));
        }
        QVERIFY(m_f.store.list());
        if (!withForeignFiles)
            return;
        for (const auto &[path, content] : foreignFiles)
            QCOMPARE(contentOf(m_f.support.filePath(path)), content);
    }

    /// All operations are done, and nothing but the threads is left.
    void verifyEnd()
    {
        Allowed allowed = asBefore();
        for (const Operation &operation : m_scenario.operations)
            allowed[operation.id] = {operation.after};
        verify(allowed, QStringLiteral("repeated"));
        for (const auto &[id, states] : allowed) {
            const Stored &stored = states.front();
            QCOMPARE(m_f.names(id).size(), stored ? stored->screenshots.size() + 1 : 0);
        }
    }

    StoreFixture m_f;
    Scenario m_scenario;
    DiskImage m_start;
};

QUELLORA_TEST(QCoreApplication, TestNothingLost)

#include "test_nothing_lost.moc"
