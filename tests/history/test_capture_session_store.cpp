#include "history/StoreFixture.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QTest>

using namespace quellora;

class TestCaptureSessionStore : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void encodingIsExact()
    {
        StoreFixture f;
        CaptureSession session = CaptureSession::create(t0);
        session.id = QUuid("6f1c2e0a-3b7d-4e55-9a21-0c7b5d2e8f14");
        session.addNote("n\n\"q\"", t0);
        session.notes[0].id = QUuid("00000000-0000-4000-8000-00000000000a");
        session.addScreenshot("x", t0, t0);
        session.customTitle = "T";
        QVERIFY(f.store.save(session));
        QCOMPARE(contentOf(f.folder(session.id) + "/session.json"),
                 QByteArray("{\n"
                            "    \"createdAt\": \"2026-03-01T14:05:09Z\",\n"
                            "    \"customTitle\": \"T\",\n"
                            "    \"id\": \"6F1C2E0A-3B7D-4E55-9A21-0C7B5D2E8F14\",\n"
                            "    \"notes\": [\n"
                            "        {\n"
                            "            \"createdAt\": \"2026-03-01T14:05:09Z\",\n"
                            "            \"id\": \"00000000-0000-4000-8000-00000000000A\",\n"
                            "            \"text\": \"n\\n\\\"q\\\"\"\n"
                            "        }\n"
                            "    ],\n"
                            "    \"screenshots\": [\n"
                            "        {\n"
                            "            \"capturedAt\": \"2026-03-01T14:05:09Z\",\n"
                            "            \"index\": 0\n"
                            "        }\n"
                            "    ],\n"
                            "    \"turns\": [\n"
                            "    ],\n"
                            "    \"updatedAt\": \"2026-03-01T14:05:09Z\"\n"
                            "}\n"));
        QCOMPARE(contentOf(f.folder(session.id) + "/screenshot-0.png"), "x");
    }

    void savingUnmarkedThreadFails()
    {
        StoreFixture f;
        const CaptureSession session = sample();
        const auto saved = f.store.save(session);
        QVERIFY(!saved);
        QCOMPARE(saved.error().description(),
                 "save() called for " + uuidText(session.id) +
                     " but it was never marked for persistence (neither beginPersistingNotes() "
                     "nor beginPersistingTurns()/resumeTurnPersistingFromDisk() was called)");
        QVERIFY(!QFileInfo::exists(f.support.filePath("Quellora")));
    }

    void noteCursorKeepsScreenshotsAndNotes()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.addNote("note", t0);
        QVERIFY(f.store.save(session));
        const QJsonObject json = f.json(session.id);
        QCOMPARE(json["notes"].toArray().size(), 1);
        QCOMPARE(json["turns"].toArray().size(), 0);
        QCOMPARE(json["screenshots"].toArray().size(), 2);
        QVERIFY(!json.contains("customTitle"));
    }

    void turnCursorKeepsLaterEntries()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.notes.append({QUuid::createUuid(), "unkept", t0});
        session.beginPersistingTurns();
        session.addScreenshot("jpeg-2", t0, t0);
        session.addTurn("later", "r", t0, t0);
        QVERIFY(f.store.save(session));
        const QJsonObject json = f.json(session.id);
        QCOMPARE(json["notes"].toArray().size(), 0);
        QCOMPARE(json["turns"].toArray().size(), 1);
        QCOMPARE(json["screenshots"].toArray().size(), 1);
        QCOMPARE(json["screenshots"].toArray().first()["index"].toInt(), 2);
        QVERIFY(!QFileInfo::exists(f.folder(session.id) + "/screenshot-0.png"));
        QCOMPARE(contentOf(f.folder(session.id) + "/screenshot-2.png"), "jpeg-2");
    }

    void earlierCursorSelectsScreenshots()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.beginPersistingTurns();
        session.addNote("note", t0);
        QVERIFY(f.store.save(session));
        QCOMPARE(f.json(session.id)["screenshots"].toArray().size(), 2);
    }

    void cursorPastEndKeepsNothing()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.turnPersistenceCursor = CaptureSession::TurnPersistenceCursor{99, 99};
        QVERIFY(f.store.save(session));
        QCOMPARE(f.json(session.id)["screenshots"].toArray().size(), 0);
        QCOMPARE(f.json(session.id)["turns"].toArray().size(), 0);
    }

    void emptyThreadIsNotStored()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.beginPersistingTurns();
        QVERIFY(f.store.save(session));
        QVERIFY(!QFileInfo::exists(f.support.filePath("Quellora")));
        // The folder is removed with the last kept entry.
        session.addNote("note", t0);
        session.screenshots.clear();
        QVERIFY(f.store.save(session));
        QVERIFY(QFileInfo::exists(f.description(session.id)));
        session.removeNote(session.notes.constFirst().id);
        QVERIFY(f.store.save(session));
        QVERIFY(!QFileInfo::exists(f.folder(session.id)));
        // A custom title alone keeps the thread.
        session.addNote("note", t0);
        session.customTitle = "Plan";
        QVERIFY(f.store.save(session));
        session.removeNote(session.notes.constFirst().id);
        QVERIFY(f.store.save(session));
        QCOMPARE(f.store.load(session.id)->customTitle, std::optional(QString("Plan")));
    }

    void storedPartIsSavedWithoutCursors()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.addNote("1", t0);
        session.addNote("2", t0);
        session.resumeTurnPersistingFromDisk();
        QVERIFY(f.store.save(session));
        CaptureSession loaded = *f.store.load(session.id);
        loaded.markAsStored();
        const QDateTime stamp = loaded.updatedAt;
        loaded.addScreenshot("unkept", t0, t0.addDays(1));
        loaded.addTurn("unkept", "r", t0, t0.addDays(1));
        loaded.removeNote(loaded.notes.constFirst().id);
        QVERIFY(f.store.save(loaded));
        const auto stored = f.store.load(session.id);
        QCOMPARE(stored->screenshots, asStored(session).screenshots);
        QCOMPARE(stored->turns, asStored(session).turns);
        QCOMPARE(stored->notes.size(), 1);
        QCOMPARE(stored->notes.constFirst().text, "2");
        // Entries that are not kept do not change the stored updatedAt.
        QCOMPARE(stored->updatedAt, stamp);
    }

    void removedScreenshotFileIsDeleted()
    {
        StoreFixture f;
        CaptureSession session = keptSample();
        QVERIFY(f.store.save(session));
        const QStringList others = {"notes.txt", "screenshot-00.png", "screenshot-x.png"};
        for (const QString &name : others)
            writeFile(f.folder(session.id) + '/' + name, "not ours");
        session.removeScreenshot(0);
        QVERIFY(f.store.save(session));
        QCOMPARE(f.names(session.id), (QStringList{others[0], others[1], "screenshot-1.png",
                                                   others[2], "session.json"}));
        QCOMPARE(f.store.load(session.id)->screenshots.size(), 1);
    }

    void loadedThreadDoesNotReuseNumbers()
    {
        StoreFixture f;
        CaptureSession session = keptSample();
        QVERIFY(f.store.save(session));
        QCOMPARE(f.store.load(session.id)->nextScreenshotIndex, 2);
        // A turn still refers to the number of a removed screenshot.
        session.turns[0].screenshot = CaptureSession::TurnScreenshot{4};
        QVERIFY(f.store.save(session));
        QCOMPARE(f.store.load(session.id)->nextScreenshotIndex, 5);
        // An image left by an interrupted save, missing from the description.
        writeFile(f.folder(session.id) + "/screenshot-8.png", "cut off");
        CaptureSession loaded = *f.store.load(session.id);
        QCOMPARE(loaded.nextScreenshotIndex, 9);
        loaded.markAsStored();
        loaded.resumeTurnPersistingFromDisk();
        loaded.addScreenshot("new", t0, t0);
        QVERIFY(f.store.save(loaded));
        QCOMPARE(f.names(session.id), (QStringList{"screenshot-0.png", "screenshot-1.png",
                                                   "screenshot-9.png", "session.json"}));
    }

    void screenshotsAreWrittenOnce()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.resumeTurnPersistingFromDisk();
        QVERIFY(f.store.save(session));
        const QString image = f.folder(session.id) + "/screenshot-0.png";
        QFile file(image);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("changed by hand");
        file.close();
        session.addTurn("q", "r", t0, t0);
        QVERIFY(f.store.save(session));
        QCOMPARE(contentOf(image), "changed by hand");
        QCOMPARE(f.json(session.id)["turns"].toArray().size(), 2);
    }

    void secondSaveRewritesOnlyDescription()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.resumeTurnPersistingFromDisk();
        QVERIFY(f.store.save(session));
        const QString image = f.folder(session.id) + "/screenshot-0.png";
        const auto inode = inodeOf(image);
        session.addTurn("q", "r", t0, t0);
        QVERIFY(f.store.save(session));
        QCOMPARE(inodeOf(image), inode);
        QCOMPARE(f.names(session.id),
                 (QStringList{"screenshot-0.png", "screenshot-1.png", "session.json"}));
    }

    void loadRestoresThreadWithoutCursors()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.addNote("note", t0);
        session.resumeTurnPersistingFromDisk();
        QVERIFY(f.store.save(session));
        const auto loaded = f.store.load(session.id);
        QVERIFY(loaded);
        QVERIFY(!loaded->isMarkedForPersistence());
        QCOMPARE(loaded->screenshots.at(1).imageData, "jpeg-1");
        QCOMPARE(loaded->screenshots.at(1).index, 1);
        QCOMPARE(loaded->turns.first().response, "r");
        QCOMPARE(loaded->notes.first().id, session.notes.first().id);
        QCOMPARE(loaded->createdAt.toSecsSinceEpoch(), t0.toSecsSinceEpoch());
    }

    void loadReportsMissingFiles()
    {
        StoreFixture f;
        const QUuid unknown = QUuid::createUuid();
        QCOMPARE(f.store.load(unknown).error().description(),
                 "No saved session found for " + uuidText(unknown));
        QVERIFY(QDir().mkpath(f.folder(unknown)));
        QCOMPARE(f.store.load(unknown).error().kind, StoreError::Kind::SessionNotFound);

        CaptureSession session = sample();
        session.resumeTurnPersistingFromDisk();
        QVERIFY(f.store.save(session));
        QVERIFY(QFile::remove(f.folder(session.id) + "/screenshot-1.png"));
        QCOMPARE(f.store.load(session.id).error().description(),
                 "Session " + uuidText(session.id) + " is missing screenshot-1.png");
    }

    void listIgnoresOtherEntries()
    {
        StoreFixture f;
        QVERIFY(f.store.list()->isEmpty());
        // Names that resemble UUIDs.
        const QString almostUuid = uuidText(QUuid::createUuid());
        for (const QString &name : {almostUuid + "x", almostUuid.chopped(1), '{' + almostUuid + '}',
                                    almostUuid.chopped(2) + "GG", QString(almostUuid).remove('-')})
            QVERIFY(QDir().mkpath(f.support.filePath("Quellora/sessions/" + name)));
        const QUuid a = QUuid::createUuid();
        const QUuid b = QUuid::createUuid();
        for (const QString &path :
             {f.folder(a), f.folder(b), f.support.filePath("Quellora/sessions/notes"),
              f.support.filePath("Quellora/sessions/.hidden")})
            QVERIFY(QDir().mkpath(path));
        auto ids = *f.store.list();
        QCOMPARE(ids.size(), 2);
        QVERIFY(ids.contains(a) && ids.contains(b));
    }

    void listIncludesAllUuidEntries()
    {
        StoreFixture f;
        QVERIFY(f.store.list());
        const QUuid lowerCase = QUuid::createUuid();
        const QUuid plainFile = QUuid::createUuid();
        const QUuid danglingLink = QUuid::createUuid();
        QVERIFY(QDir().mkpath(
            f.folder(lowerCase).replace(uuidText(lowerCase), uuidText(lowerCase).toLower())));
        writeFile(f.folder(plainFile), "");
        QVERIFY(QFile::link("/nowhere", f.folder(danglingLink)));
        const auto ids = *f.store.list();
        QCOMPARE(ids.size(), 3);
        QVERIFY(ids.contains(lowerCase) && ids.contains(plainFile) && ids.contains(danglingLink));
    }

    void listReportsReasonOfFailure()
    {
        StoreFixture f;
        writeFile(f.support.filePath("Quellora"), "no folder");
        const auto ids = f.store.list();
        QVERIFY(!ids);
        QCOMPARE(ids.error().kind, StoreError::Kind::File);
        QCOMPARE(ids.error().description(), f.support.filePath("Quellora/sessions") +
                                                ": something else is in the place of the folder");
    }

    void removeIsIdempotent()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.resumeTurnPersistingFromDisk();
        QVERIFY(f.store.save(session));
        QVERIFY(f.store.remove(session.id));
        QVERIFY(!QFileInfo::exists(f.folder(session.id)));
        QVERIFY(f.store.remove(session.id));
        QVERIFY(f.store.remove(QUuid::createUuid()));
    }

    void listCompletesInterruptedDeletion()
    {
        StoreFixture f;
        const CaptureSession kept = keptSample();
        const CaptureSession deleted = keptSample();
        QVERIFY(f.store.save(kept) && f.store.save(deleted));
        const QString root = f.support.filePath("Quellora/sessions");
        const QString remains = root + "/.deleted-" + uuidText(deleted.id);
        QVERIFY(QDir().rename(f.folder(deleted.id), remains));
        QVERIFY(QDir().mkdir(root + "/.deleted-by-the-user"));
        QCOMPARE(*f.store.list(), QList<QUuid>{kept.id});
        QVERIFY(!QFileInfo::exists(remains));
        QVERIFY(QFileInfo::exists(root + "/.deleted-by-the-user"));
    }

    void updateTitleChangesOnlyTitle()
    {
        StoreFixture f;
        CaptureSession session = sample();
        session.resumeTurnPersistingFromDisk();
        QVERIFY(f.store.save(session));
        const QJsonObject before = f.json(session.id);
        QVERIFY(f.store.updateTitle(session.id, "New"));
        QJsonObject after = f.json(session.id);
        QCOMPARE(after["customTitle"].toString(), "New");
        after.remove("customTitle");
        QCOMPARE(after, before);
        QVERIFY(f.store.updateTitle(session.id, std::nullopt));
        QCOMPARE(f.json(session.id), before);
        QCOMPARE(f.store.updateTitle(QUuid::createUuid(), "x").error().kind,
                 StoreError::Kind::SessionNotFound);
    }
};

QUELLORA_TEST(QCoreApplication, TestCaptureSessionStore)
#include "test_capture_session_store.moc"
