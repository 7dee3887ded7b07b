#include "history/StoreFixture.h"
#include "history/ThreadSummaryReader.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QTest>

using namespace quellora;

namespace {

struct ReaderFixture : StoreFixture
{
    ThreadSummaryReader reader{support.filePath("Quellora/sessions")};

    QUuid save(CaptureSession session) const
    {
        session.resumeTurnPersistingFromDisk();
        session.beginPersistingNotes();
        if (!store.save(session))
            qFatal("The thread could not be stored");
        return session.id;
    }
    /// A stored thread whose description is replaced by @p json.
    QUuid saveDamaged(const QByteArray &json) const
    {
        const QUuid id = save(sample());
        writeFile(description(id), json);
        return id;
    }
    /// The summary's title, or "skipped: " and the reason.
    QString outcome(const QUuid &id)
    {
        const auto summary = reader.read(id);
        return summary ? summary->title() : "skipped: " + summary.error();
    }
};

} // namespace

class TestThreadSummaryReader : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void readsSummary()
    {
        ReaderFixture f;
        CaptureSession session = sample();
        session.addNote("note", t0);
        session.addTurn("second", "r", t0, t0.addSecs(60));
        session.turns[0].prompt = "  \n first \"line\"\nmore";
        const auto summary = f.reader.read(f.save(session));
        QVERIFY2(summary, summary ? "" : qPrintable(summary.error()));
        QCOMPARE(*summary, (ThreadSummary{session.id, asStored(session).createdAt,
                                          asStored(session).updatedAt, std::nullopt,
                                          "first \"line\"", 2, 1, 2}));
    }

    void titles()
    {
        ReaderFixture f;
        CaptureSession session = CaptureSession::create(t0);
        session.addScreenshot("jpeg", t0, t0);
        QCOMPARE(f.outcome(f.save(session)), "Screenshot");
        session.addNote("  \n  Hello\nworld", t0);
        session.addNote("other", t0);
        QCOMPARE(f.outcome(f.save(session)), "Hello");
        session.addTurn("", "r", t0, t0);
        QCOMPARE(f.outcome(f.save(session)), "");
        session.customTitle = QString::fromUtf8("Größe \xF0\x9F\x98\x80 \"1\"");
        QCOMPARE(f.outcome(f.save(session)), *session.customTitle);
        QVERIFY(f.store.updateTitle(session.id, ""));
        QCOMPARE(f.reader.read(session.id)->customTitle, std::optional(QString("")));
    }

    void unusualDescriptionsMatchLoad_data()
    {
        QTest::addColumn<QByteArray>("from");
        QTest::addColumn<QByteArray>("to");
        QTest::newRow("compact") << QByteArray("    ") << QByteArray();
        QTest::newRow("fractions of seconds") << QByteArray("09Z\"") << QByteArray("09.25Z\"");
        QTest::newRow("other zone") << QByteArray("09Z\"") << QByteArray("09+02:00\"");
        QTest::newRow("null title")
            << QByteArray("\"turns\"") << QByteArray("\"customTitle\": null, \"turns\"");
        QTest::newRow("unknown key")
            << QByteArray("\"turns\"") << QByteArray("\"x\": {}, \"turns\"");
        QTest::newRow("duplicate key")
            << QByteArray("\"turns\"") << QByteArray("\"notes\": [], \"turns\"");
        QTest::newRow("lone surrogate") << QByteArray("\"p\"") << QByteArray("\"a\\ud83db\"");
        QTest::newRow("escaped key") << QByteArray("\"turns\"") << QByteArray("\"t\\u0075rns\"");
        QTest::newRow("lower-case entry id")
            << QByteArray("\"id\": \"A") << QByteArray("\"id\": \"a");
        QTest::newRow("index as floating point")
            << QByteArray("\"index\": 1") << QByteArray("\"index\": 1.0");
        // Invalid descriptions:
        QTest::newRow("broken constant")
            << QByteArray("\"turns\"") << QByteArray("\"x\": nul, \"turns\"");
        QTest::newRow("nonexistent date") << QByteArray("2026-03-01") << QByteArray("2026-02-30");
        QTest::newRow("number instead of text")
            << QByteArray("\"response\": \"r\"") << QByteArray("\"response\": 5");
        QTest::newRow("missing response") << QByteArray("\"response\"") << QByteArray("\"answer\"");
        QTest::newRow("bad id") << QByteArray("\"prompt\": \"p\"")
                                << QByteArray("\"id\": \"\", \"prompt\": \"p\"");
        QTest::newRow("invalid UTF-8") << QByteArray("\"p\"") << QByteArray("\"\xff\"");
        QTest::newRow("object instead of list")
            << QByteArray("\"turns\": [") << QByteArray("\"turns\": {}, \"t\": [");
        QTest::newRow("turn screenshot in scientific notation")
            << QByteArray("\"screenshotIndex\": 1") << QByteArray("\"screenshotIndex\": 1e0");
        QTest::newRow("null turn screenshot")
            << QByteArray("\"screenshotIndex\": 1") << QByteArray("\"screenshotIndex\": null");
        QTest::newRow("text as turn screenshot")
            << QByteArray("\"screenshotIndex\": 1") << QByteArray("\"screenshotIndex\": \"1\"");
        QTest::newRow("missing index") << QByteArray("\"index\"") << QByteArray("\"position\"");
        QTest::newRow("two values")
            << QByteArray("{\n    \"createdAt\"") << QByteArray("{}{\n    \"createdAt\"");
        QTest::newRow("trailing text") << QByteArray("\n}\n") << QByteArray("\n}\n7");
        QTest::newRow("truncated") << QByteArray("\n}\n") << QByteArray("\n");
        QTest::newRow("control character in text") << QByteArray("\"p\"") << QByteArray("\"\n\"");
    }
    void unusualDescriptionsMatchLoad()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        ReaderFixture f;
        CaptureSession session = sample();
        session.addNote("note", t0);
        session.turns[0].id = QUuid("{ABCDEF01-3b7d-4e55-9a21-0c7b5d2e8f14}");
        session.turns[0].screenshot = CaptureSession::TurnScreenshot{1};
        const QUuid id = f.save(session);
        const QByteArray json = contentOf(f.description(id));
        QVERIFY(json.contains(from));
        writeFile(f.description(id), QByteArray(json).replace(from, to));
        const auto loaded = f.store.load(id);
        const auto summary = f.reader.read(id);
        QCOMPARE(summary.has_value(), loaded.has_value());
        if (!loaded) {
            QCOMPARE(summary.error(), loaded.error().description());
            return;
        }
        QCOMPARE(summary->title(), loaded->customTitle.value_or(loaded->previewText()));
        QCOMPARE(summary->updatedAt, loaded->updatedAt);
        QCOMPARE(summary->createdAt, loaded->createdAt);
        QCOMPARE(summary->turns, loaded->turns.size());
        QCOMPARE(summary->notes, loaded->notes.size());
        QCOMPARE(summary->screenshots, loaded->screenshots.size());
    }

    void reasonsForSkipping()
    {
        ReaderFixture f;
        const QUuid unknown = QUuid::createUuid();
        QCOMPARE(f.outcome(unknown), "skipped: No saved session found for " + uuidText(unknown));

        const QUuid withoutImage = f.save(sample());
        QVERIFY(QFile::remove(f.folder(withoutImage) + "/screenshot-1.png"));
        QCOMPARE(f.outcome(withoutImage),
                 "skipped: Session " + uuidText(withoutImage) + " is missing screenshot-1.png");
        QVERIFY(QFile::link("/etc/passwd", f.folder(withoutImage) + "/screenshot-1.png"));
        QVERIFY(!f.reader.read(withoutImage));

        const QUuid other = f.save(sample());
        const QUuid foreign = f.saveDamaged(contentOf(f.description(other)));
        QCOMPARE(f.outcome(foreign), "skipped: it describes thread " + uuidText(other));
        QCOMPARE(f.outcome(f.saveDamaged("[1, 2]")), "skipped: not a JSON object");
        QVERIFY(f.outcome(f.saveDamaged("")).startsWith("skipped: "));

        const QUuid huge = f.save(sample());
        QVERIFY(QFile::resize(f.description(huge), ThreadSummaryReader::largestDescription + 1));
        QCOMPARE(f.outcome(huge), "skipped: the description is too large");

        const QUuid linked = f.save(sample());
        QVERIFY(QFile::rename(f.description(linked), f.folder(linked) + "/elsewhere"));
        QVERIFY(QFile::link(f.folder(linked) + "/elsewhere", f.description(linked)));
        QCOMPARE(f.outcome(linked), "skipped: not a regular file");

        // A pipe without a writer; the reader must not block on it.
        const QUuid piped = f.save(sample());
        QVERIFY(QFile::remove(f.description(piped)));
        QCOMPARE(::mkfifo(QFile::encodeName(f.description(piped)), 0600), 0);
        QCOMPARE(f.outcome(piped), "skipped: not a regular file");

        const QUuid nested = f.save(sample());
        QVERIFY(QFile::remove(f.folder(nested) + "/screenshot-0.png"));
        QVERIFY(QDir().mkdir(f.folder(nested) + "/screenshot-0.png"));
        QCOMPARE(f.outcome(nested),
                 "skipped: Session " + uuidText(nested) + " is missing screenshot-0.png");
        QVERIFY(QFile::remove(f.description(nested)));
        QVERIFY(QDir().mkdir(f.description(nested)));
        QCOMPARE(f.outcome(nested), "skipped: not a regular file");
        // The reader still works after these failures.
        QCOMPARE(f.outcome(other), "p");
    }

    void imagesAreNotRead()
    {
        // A sparse file of one tebibyte; reading it would take far too long.
        ReaderFixture f;
        const QUuid id = f.save(sample());
        const QString image = f.folder(id) + "/screenshot-0.png";
        QVERIFY(QFile::resize(image, qint64(1) << 40));
        QCOMPARE(f.reader.read(id)->screenshots, 2);
    }
};

QUELLORA_TEST(QCoreApplication, TestThreadSummaryReader)
#include "test_thread_summary_reader.moc"
