#include "fakes/LogCapture.h"
#include "history/BackgroundThreadSaver.h"
#include "history/CaptureSessionStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using namespace quellora;

namespace {

const QDateTime t0 = QDateTime::fromString("2026-03-01T14:05:09.750Z", Qt::ISODateWithMs);

CaptureSession sample()
{
    CaptureSession session = CaptureSession::create(t0);
    session.addScreenshot("jpeg-0", t0, t0);
    session.addScreenshot("jpeg-1", t0.addSecs(1), t0.addSecs(1));
    session.addTurn("p", "r", t0.addSecs(2), t0.addSecs(2));
    return session;
}

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

struct Fixture
{
    QTemporaryDir support;
    CaptureSessionStore store{support.path()};

    QString folder(const QUuid &id) const
    {
        return support.filePath("Quellora/sessions/" + uuidText(id));
    }
    QJsonObject json(const QUuid &id) const
    {
        return QJsonDocument::fromJson(read(folder(id) + "/session.json")).object();
    }
};

} // namespace

class TestCaptureSessionStore : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void fileIsWrittenToTheByte()
    {
        Fixture f;
        CaptureSession session = CaptureSession::create(t0);
        session.id = QUuid("6f1c2e0a-3b7d-4e55-9a21-0c7b5d2e8f14");
        session.addNote("n\n\"q\"", t0);
        session.notes[0].id = QUuid("00000000-0000-4000-8000-00000000000a");
        session.addScreenshot("x", t0, t0);
        session.customTitle = "T";
        QVERIFY(f.store.save(session));
        QCOMPARE(read(f.folder(session.id) + "/session.json"),
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
        QCOMPARE(read(f.folder(session.id) + "/screenshot-0.png"), "x");
    }

    void unmarkedThreadIsNeverWritten()
    {
        Fixture f;
        const CaptureSession session = sample();
        const auto saved = f.store.save(session);
        QVERIFY(!saved);
        QCOMPARE(saved.error().description(),
                 "save() called for " + uuidText(session.id) +
                     " but it was never marked for persistence (neither beginPersistingNotes() "
                     "nor beginPersistingTurns()/resumeTurnPersistingFromDisk() was called)");
        QVERIFY(!QFileInfo::exists(f.support.filePath("Quellora")));
    }

    void noteCursorKeepsScreenshotsAndNotesOnly()
    {
        Fixture f;
        CaptureSession session = sample();
        session.addNote("note", t0);
        QVERIFY(f.store.save(session));
        const QJsonObject json = f.json(session.id);
        QCOMPARE(json["notes"].toArray().size(), 1);
        QCOMPARE(json["turns"].toArray().size(), 0);
        QCOMPARE(json["screenshots"].toArray().size(), 2);
        QVERIFY(!json.contains("customTitle"));
    }

    void turnCursorKeepsWhatComesAfterIt()
    {
        Fixture f;
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
        QCOMPARE(read(f.folder(session.id) + "/screenshot-2.png"), "jpeg-2");
    }

    void bothCursorsKeepFromTheSmallerStart()
    {
        Fixture f;
        CaptureSession session = sample();
        session.beginPersistingTurns();
        session.addNote("note", t0);
        QVERIFY(f.store.save(session));
        QCOMPARE(f.json(session.id)["screenshots"].toArray().size(), 2);
    }

    void cursorPastTheEndKeepsNothing()
    {
        Fixture f;
        CaptureSession session = sample();
        session.turnPersistenceCursor = CaptureSession::TurnPersistenceCursor{99, 99};
        QVERIFY(f.store.save(session));
        QCOMPARE(f.json(session.id)["screenshots"].toArray().size(), 0);
        QCOMPARE(f.json(session.id)["turns"].toArray().size(), 0);
    }

    void screenshotsAreWrittenOnce()
    {
        Fixture f;
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
        QCOMPARE(read(image), "changed by hand");
        QCOMPARE(f.json(session.id)["turns"].toArray().size(), 2);
    }

    void savedThreadComesBackWithoutCursors()
    {
        Fixture f;
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

    void loadingNamesWhatIsMissing()
    {
        Fixture f;
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

    void damagedDescriptionsAreRefused_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("half") << QByteArray("{\"id\":");
        QTest::newRow("array") << QByteArray("[]");
        QTest::newRow("empty object") << QByteArray("{}");
        QTest::newRow("bad date") << QByteArray(
            R"({"id":"6F1C2E0A-3B7D-4E55-9A21-0C7B5D2E8F14","createdAt":"yesterday",)"
            R"("updatedAt":"2026-03-01T14:05:09Z","notes":[],"turns":[],"screenshots":[]})");
        QTest::newRow("bad note") << QByteArray(
            R"({"id":"6F1C2E0A-3B7D-4E55-9A21-0C7B5D2E8F14","createdAt":"2026-03-01T14:05:09Z",)"
            R"("updatedAt":"2026-03-01T14:05:09Z","notes":[7],"turns":[],"screenshots":[]})");
        QTest::newRow("bad index") << QByteArray(
            R"({"id":"6F1C2E0A-3B7D-4E55-9A21-0C7B5D2E8F14","createdAt":"2026-03-01T14:05:09Z",)"
            R"("updatedAt":"2026-03-01T14:05:09Z","notes":[],"turns":[],)"
            R"("screenshots":[{"index":"0","capturedAt":"2026-03-01T14:05:09Z"}]})");
    }
    void damagedDescriptionsAreRefused()
    {
        QFETCH(QByteArray, content);
        Fixture f;
        const QUuid id = QUuid::createUuid();
        QVERIFY(QDir().mkpath(f.folder(id)));
        QFile file(f.folder(id) + "/session.json");
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        QCOMPARE(f.store.load(id).error().kind, StoreError::Kind::Decoding);
        QVERIFY(!f.store.load(id).error().description().isEmpty());
    }

    void listIgnoresWhatIsNoThread()
    {
        Fixture f;
        QVERIFY(f.store.list()->isEmpty());
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

    void removingIsIdempotent()
    {
        Fixture f;
        CaptureSession session = sample();
        session.resumeTurnPersistingFromDisk();
        QVERIFY(f.store.save(session));
        QVERIFY(f.store.remove(session.id));
        QVERIFY(!QFileInfo::exists(f.folder(session.id)));
        QVERIFY(f.store.remove(session.id));
    }

    void renamingTouchesTheTitleOnly()
    {
        Fixture f;
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

    void failedWriteLeavesTheOldFile()
    {
        Fixture f;
        CaptureSession session = sample();
        session.resumeTurnPersistingFromDisk();
        QVERIFY(f.store.save(session));
        const QByteArray before = read(f.folder(session.id) + "/session.json");
        // A folder in the place of the next image makes its write fail.
        session.addScreenshot("jpeg-2", t0, t0);
        const QString blocked = f.support.filePath("blocked");
        QVERIFY(QFile::rename(f.folder(session.id), blocked));
        QFile obstacle(f.folder(session.id));
        QVERIFY(obstacle.open(QIODevice::WriteOnly));
        obstacle.close();
        const auto saved = f.store.save(session);
        QVERIFY(!saved);
        QCOMPARE(saved.error().kind, StoreError::Kind::File);
        QCOMPARE(read(blocked + "/session.json"), before);
    }

    void threadsArePrivate()
    {
        Fixture f;
        CaptureSession session = sample();
        session.resumeTurnPersistingFromDisk();
        QVERIFY(f.store.save(session));
        const auto others = QFileDevice::ReadGroup | QFileDevice::ReadOther;
        QVERIFY(!(QFileInfo(f.folder(session.id) + "/session.json").permissions() & others));
        QVERIFY(!(QFileInfo(f.support.filePath("Quellora/sessions")).permissions() & others));
    }

    void backgroundSavesComeInOrderAndLogFailures()
    {
        Fixture f;
        LogCapture log;
        CaptureSession session = sample();
        session.resumeTurnPersistingFromDisk();
        {
            BackgroundThreadSaver saver(f.store);
            for (int i = 0; i < 20; ++i) {
                session.addTurn(QString::number(i), "r", t0, t0);
                saver.save(session, "P: ");
            }
        }
        QCOMPARE(f.json(session.id)["turns"].toArray().size(), 21);
        QVERIFY(log.lines.isEmpty());
        BackgroundThreadSaver saver(f.store);
        const CaptureSession unmarked = sample();
        saver.save(unmarked, "P: ");
        saver.flush();
        QCOMPARE(log.lines.size(), 1);
        QVERIFY(log.lines.first().startsWith("P: save() called for "));
    }
};

QTEST_GUILESS_MAIN(TestCaptureSessionStore)
#include "test_capture_session_store.moc"
