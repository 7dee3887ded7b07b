#include "history/StoreFixture.h"
#include "history/ThreadTextReader.h"
#include "support/TestProgram.h"

#include <QTest>

using namespace quellora;

namespace {

using Place = ThreadHit::Place;

struct TextFixture : StoreFixture
{
    QUuid save(CaptureSession session) const
    {
        session.resumeTurnPersistingFromDisk();
        session.beginPersistingNotes();
        if (!store.save(session))
            qFatal("The thread could not be stored");
        return session.id;
    }
    QUuid saveTurn(const QString &prompt, const QString &response) const
    {
        CaptureSession session = CaptureSession::create(t0);
        session.addTurn(prompt, response, t0, t0);
        return save(session);
    }
    QUuid saveDamaged(const QByteArray &json) const
    {
        const QUuid id = save(sample());
        writeFile(description(id), json);
        return id;
    }
    std::optional<ThreadHit> find(const QUuid &id, const QString &text) const
    {
        return ThreadTextReader(support.filePath("Quellora/sessions"), text, QLocale("en_US"))
            .find(id);
    }
    /// The snippet with the occurrence in brackets; empty without one.
    QString snippet(const QUuid &id, const QString &text) const
    {
        auto hit = find(id, text);
        if (!hit)
            return {};
        return hit->snippet.insert(hit->start + hit->length, ']').insert(hit->start, '[');
    }
};

} // namespace

class TestThreadTextReader : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void findsEveryKindOfText()
    {
        TextFixture f;
        CaptureSession session = CaptureSession::create(t0);
        session.addTurn("Why red?", "Because of iron.", t0, t0);
        session.addTurn("And blue?", "Copper \"oxide\".", t0, t0);
        session.addNote("Ask about green", t0);
        const QUuid id = f.save(session);
        QCOMPARE(f.find(id, "GREEN"), (ThreadHit{Place::Note, "Ask about green", 10, 5, "green"}));
        QCOMPARE(f.find(id, "blue"), (ThreadHit{Place::Question, "And blue?", 4, 4, "blue?"}));
        QCOMPARE(f.find(id, "Îron"),
                 (ThreadHit{Place::Answer, "Because of iron.", 11, 4, "iron."}));
        QCOMPARE(f.find(id, "\"oxide"),
                 (ThreadHit{Place::Answer, "Copper \"oxide\".", 7, 6, "\"oxide\"."}));
        QVERIFY(!f.find(id, "yellow"));
    }

    void looksOnlyAtTexts()
    {
        TextFixture f;
        CaptureSession session = sample();
        session.customTitle = "Plan";
        const QUuid id = f.save(session);
        for (const char *text : {"createdAt", "prompt", "2026", "jpeg", "Plan"})
            QVERIFY2(!f.find(id, text), text);
    }

    void snippetIsOneLineAroundTheOccurrence()
    {
        TextFixture f;
        const QString long200 = QString("word ").repeated(40);
        QCOMPARE(f.snippet(f.saveTurn("short", "first\n\n  second\tthird"), "second"),
                 "first [second] third");
        QCOMPARE(f.snippet(f.saveTurn("q", long200 + "needle"), "needle"),
                 "…word word word word [needle]");
        QCOMPARE(f.snippet(f.saveTurn("q", "needle " + long200 + long200), "needle"),
                 "[needle] " + QString("word ").repeated(39) + "word…");
        // A word longer than the part before the occurrence, in characters of several bytes.
        QCOMPARE(f.snippet(f.saveTurn("q", QString("ü").repeated(99) + "needle"), "needle"),
                 "…" + QString("ü").repeated(10) + "[needle]");
        QCOMPARE(
            f.snippet(f.saveTurn("q", QString("x\U0001F600").repeated(9) + "needle"), "needle"),
            "…" + QString("x\U0001F600").repeated(4) + "[needle]");
        QCOMPARE(f.snippet(f.saveTurn("q", "needle" + QString("😀").repeated(99)), "needle"),
                 "[needle]" + QString("😀").repeated(50) + "…");
        QCOMPARE(f.snippet(f.saveTurn("q", "one\n\ntwo"), "one two"), "[one two]");
    }

    void readsEscapesAsOtherProgramsWriteThem()
    {
        TextFixture f;
        const QUuid id = f.saveTurn("Zurich", "r");
        QByteArray json = contentOf(f.description(id));
        json.replace("Zurich", "Z\\u00fcrich\\nLake");
        writeFile(f.description(id), json);
        QCOMPARE(f.snippet(id, "zurich lake"), "[Zürich Lake]");
    }

    void unknownFieldsAreSkipped()
    {
        TextFixture f;
        const QUuid id = f.saveTurn("p", "needle");
        QByteArray json = contentOf(f.description(id));
        json.replace("\"prompt\"", "\"later\": {\"prompt\": [\"needles\"]}, \"prompt\"");
        json.replace("\"turns\"", "\"newer\": [{\"text\": \"needles\"}], \"turns\"");
        writeFile(f.description(id), json);
        QCOMPARE(f.snippet(id, "needle"), "[needle]");
        QVERIFY(!f.find(id, "needles"));
    }

    void formsThatOnlyLoadingReadsAreSearched()
    {
        TextFixture f;
        const QUuid id = f.saveTurn("p", "needle");
        QByteArray json = contentOf(f.description(id));
        // Half a surrogate pair, which the fast parser refuses.
        json.replace("needle", "\\ud800 needle");
        writeFile(f.description(id), json);
        QVERIFY(f.store.load(id));
        QVERIFY(f.snippet(id, "needle").endsWith("[needle]"));
    }

    void damagedFilesHaveNoHits_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("not JSON") << QByteArray("needle");
        QTest::newRow("cut off") << QByteArray(
            "{\"turns\": [{\"prompt\": \"p\", \"response\": \"need");
        QTest::newRow("array") << QByteArray("[\"needle\"]");
        QTest::newRow("turns of another type") << QByteArray("{\"turns\": \"needle\"}");
        QTest::newRow("turn of another type") << QByteArray("{\"turns\": [\"needle\"]}");
        QTest::newRow("text of another type")
            << QByteArray("{\"turns\": [{\"prompt\": [\"needle\"]}]}");
        QTest::newRow("not UTF-8") << QByteArray("{\"turns\": [{\"prompt\": \"\xff needle\"}]}");
        QTest::newRow("deep") << QByteArray("{\"turns\": ") + QByteArray(5000, '[');
    }
    void damagedFilesHaveNoHits()
    {
        QFETCH(QByteArray, json);
        TextFixture f;
        QVERIFY(!f.find(f.saveDamaged(json), "needle"));
    }

    void whatIsNoFileHasNoHits()
    {
        TextFixture f;
        QVERIFY(!f.find(QUuid::createUuid(), "p"));
        const QUuid linked = f.save(sample());
        QVERIFY(f.find(linked, "p"));
        QFile::rename(f.description(linked), f.support.filePath("elsewhere.json"));
        QVERIFY(QFile::link(f.support.filePath("elsewhere.json"), f.description(linked)));
        QVERIFY(!f.find(linked, "p"));
        const QUuid folder = f.save(sample());
        QFile::remove(f.description(folder));
        QVERIFY(QDir().mkpath(f.description(folder)));
        QVERIFY(!f.find(folder, "p"));
    }

    void readerIsReusable()
    {
        TextFixture f;
        const QUuid longer = f.saveTurn("p", QString("x").repeated(100000) + "needle");
        const QUuid shorter = f.saveTurn("p", "nothing here");
        ThreadTextReader reader(f.support.filePath("Quellora/sessions"), "needle", QLocale::c());
        QVERIFY(reader.find(longer));
        QVERIFY(!reader.find(shorter));
        QVERIFY(reader.find(longer));
    }
};

QUELLORA_TEST(void, TestThreadTextReader)
#include "test_thread_text_reader.moc"
