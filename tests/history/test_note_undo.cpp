#include "base/Settings.h"
#include "history/BackgroundThreadSaver.h"
#include "history/StoreFixture.h"
#include "history/ThreadController.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

/// Breaks every replacement of a file while it is full.
struct FullFiles : DiskThreadFiles
{
    std::unique_ptr<FileReplacement> replacement(const QString &path) override
    {
        struct Full : FileReplacement
        {
            Result open() override { return tl::unexpected(QString("No space left on device")); }
            Result write(const QByteArray &) override { return {}; }
            Result commit() override { return {}; }
        };
        if (isFull)
            return std::make_unique<Full>();
        return DiskThreadFiles::replacement(path);
    }
    bool isFull = false;
};

struct Fixture
{
    Fixture()
    {
        for (const char *text : {"one", "two", "three"})
            threads.addNote(text);
        saver.flush();
        id = threads.currentSession()->id;
    }

    QUuid note(const QString &text) const
    {
        for (const auto &each : threads.currentSession()->notes) {
            if (each.text == text)
                return each.id;
        }
        return {};
    }
    static QStringList texts(const CaptureSession &session)
    {
        QStringList all;
        for (const auto &each : session.notes)
            all.append(each.text);
        return all;
    }
    QStringList shown() const { return texts(*threads.currentSession()); }
    QStringList onDisk()
    {
        saver.flush();
        const auto stored = f.store.load(id);
        return stored ? texts(*stored) : QStringList("none");
    }

    std::shared_ptr<FullFiles> files = std::make_shared<FullFiles>();
    StoreFixture f{files};
    JsonUserDefaults defaults;
    Settings settings{defaults};
    BackgroundThreadSaver saver{f.store};
    ThreadController threads{settings, &saver, [] { return t0; }};
    QUuid id;
};

} // namespace

/// Notes whose removal can be undone, with a real store.
class TestNoteUndo : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void noteSetAsideIsGoneButStaysOnDisk()
    {
        Fixture f;
        const quint64 before = inodeOf(f.f.description(f.id));
        QVERIFY(f.threads.setNoteAside(f.note("two")));
        QCOMPARE(f.shown(), QStringList({"one", "three"}));
        QCOMPARE(f.onDisk(), QStringList({"one", "two", "three"}));
        QCOMPARE(inodeOf(f.f.description(f.id)), before);
        // Other changes are saved with the note.
        QVERIFY(f.threads.addNote("four"));
        QCOMPARE(f.onDisk(), QStringList({"one", "two", "three", "four"}));
        QVERIFY(!f.threads.setNoteAside(QUuid::createUuid()));
    }

    void noteIsRestoredInItsPlace()
    {
        Fixture f;
        const auto notes = f.threads.currentSession()->notes;
        QVERIFY(f.threads.setNoteAside(notes.at(0).id));
        QVERIFY(f.threads.setNoteAside(notes.at(1).id));
        QCOMPARE(f.shown(), QStringList("three"));
        QVERIFY(f.threads.restoreNote(notes.at(1).id));
        QCOMPARE(f.shown(), QStringList({"two", "three"}));
        QVERIFY(f.threads.restoreNote(notes.at(0).id));
        QCOMPARE(f.threads.currentSession()->notes, notes);
        QVERIFY(!f.threads.restoreNote(notes.at(0).id));
        QCOMPARE(f.onDisk(), QStringList({"one", "two", "three"}));
    }

    void removalIsSavedAtItsEnd()
    {
        Fixture f;
        const QUuid id = f.note("two");
        QVERIFY(f.threads.setNoteAside(id));
        QVERIFY(f.threads.removeNote(id));
        QCOMPARE(f.onDisk(), QStringList({"one", "three"}));
        QVERIFY(!f.threads.removeNote(id));
        QVERIFY(!f.threads.restoreNote(id));
    }

    void lastNoteTakesItsThreadAlong()
    {
        Fixture f;
        for (const char *text : {"one", "two", "three"}) {
            const QUuid id = f.note(text);
            QVERIFY(f.threads.setNoteAside(id));
            QVERIFY(f.onDisk().contains(text));
            QVERIFY(f.threads.removeNote(id));
        }
        QCOMPARE(f.onDisk(), QStringList("none"));
    }

    void failureAtTheEndRestoresTheNote()
    {
        Fixture f;
        QSignalSpy failed(&f.threads, &ThreadController::noteDeletionFailed);
        const auto notes = f.threads.currentSession()->notes;
        QVERIFY(f.threads.setNoteAside(notes.at(0).id));
        QVERIFY(f.threads.setNoteAside(notes.at(2).id));
        f.files->isFull = true;
        QVERIFY(f.threads.removeNote(notes.at(0).id));
        f.saver.flush();
        QCOMPARE(failed.size(), 1);
        QCOMPARE(failed.first().first().toString(), QString("No space left on device"));
        QCOMPARE(f.shown(), QStringList({"one", "two"}));
        f.files->isFull = false;
        QVERIFY(f.threads.restoreNote(notes.at(2).id));
        QCOMPARE(f.threads.currentSession()->notes, notes);
        QCOMPARE(f.onDisk(), QStringList({"one", "two", "three"}));
    }

    void threadMayEndBeforeTheNote()
    {
        for (const bool isUndone : {true, false}) {
            Fixture f;
            const QUuid note = f.note("two");
            QVERIFY(f.threads.setNoteAside(note));
            f.threads.startNewThread();
            QCOMPARE(f.onDisk(), QStringList({"one", "two", "three"}));
            QSignalSpy changed(&f.threads, &ThreadController::endedThreadChanged);
            if (isUndone)
                QVERIFY(!f.threads.restoreNote(note));
            else
                QVERIFY(f.threads.removeNote(note));
            QCOMPARE(changed.size(), 1);
            QCOMPARE(f.onDisk(), isUndone ? QStringList({"one", "two", "three"})
                                          : QStringList({"one", "three"}));
            QCOMPARE(f.threads.threadsInUse(), QSet<QUuid>{f.threads.currentSession()->id});
        }
    }

    void reopenedThreadLacksTheNote()
    {
        for (const bool isUndone : {true, false}) {
            Fixture f;
            const QUuid note = f.note("two");
            QVERIFY(f.threads.setNoteAside(note));
            f.threads.startNewThread();
            f.saver.flush();
            f.threads.openFromHistory(*f.f.store.load(f.id));
            QCOMPARE(f.shown(), QStringList({"one", "three"}));
            // Also with the saving of entries off.
            QVERIFY(!f.threads.currentSession()->isMarkedForPersistence());
            if (isUndone)
                QVERIFY(f.threads.restoreNote(note));
            else
                QVERIFY(f.threads.removeNote(note));
            const QStringList expected =
                isUndone ? QStringList({"one", "two", "three"}) : QStringList({"one", "three"});
            QCOMPARE(f.shown(), expected);
            QCOMPARE(f.onDisk(), expected);
        }
    }

    void noteOfADeletedThreadComesBackWithIt()
    {
        Fixture f;
        const QUuid note = f.note("two");
        QVERIFY(f.threads.setNoteAside(note));
        QVERIFY(f.threads.setAside(f.id));
        QVERIFY(f.threads.bringBack(f.id));
        QCOMPARE(f.shown(), QStringList({"one", "three"}));
        QVERIFY(f.threads.restoreNote(note));
        QCOMPARE(f.shown(), QStringList({"one", "two", "three"}));
        // Its own end comes first, while the thread can still be brought back.
        QVERIFY(f.threads.setNoteAside(note));
        QVERIFY(f.threads.setAside(f.id));
        QVERIFY(f.threads.removeNote(note));
        QCOMPARE(f.onDisk(), QStringList({"one", "two", "three"}));
        f.threads.bringBack(f.id);
        QCOMPARE(f.onDisk(), QStringList({"one", "three"}));
    }
};

QUELLORA_TEST(QCoreApplication, TestNoteUndo)
#include "test_note_undo.moc"
