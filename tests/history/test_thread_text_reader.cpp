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
        const QUuid note = session.notes.first().id;
        const QUuid red = session.turns.first().id;
        const QUuid blue = session.turns.last().id;
        QCOMPARE(f.find(id, "GREEN"),
                 (ThreadHit{Place::Note, "Ask about green", 10, 5, "green", note}));
        QCOMPARE(f.find(id, "blue"),
                 (ThreadHit{Place::Question, "And blue?", 4, 4, "blue?", blue}));
        QCOMPARE(f.find(id, "Îron"),
                 (ThreadHit{Place::Answer, "Because of iron.", 11, 4, "iron.", red}));
        QCOMPARE(f.find(id, "\"oxide"),
                 (ThreadHit{Place::Answer, "Copper \"oxide\".", 7, 6, "\"oxide\".", blue}));
        QVERIFY(!f.find(id, "yellow"));
    }

    void findsVersionsThatAreNotOnShow_data()
    {
        QTest::addColumn<bool>("isStrict");
        QTest::newRow("as the program writes it") << false;
        QTest::newRow("as other programs may write it") << true;
    }

    void findsVersionsThatAreNotOnShow()
    {
        QFETCH(bool, isStrict);
        TextFixture f;
        CaptureSession session = CaptureSession::create(t0);
        session.addTurn("Why red?", "Because of iron.", t0, t0);
        const QUuid turn = session.turns.first().id;
        for (const char *answer : {"Because of copper.", "Because of iron oxide."})
            session.addVersion(turn, {"Why so red?", answer, t0}, true, t0);
        session.addTurn("And copper?", "It is green.", t0, t0);
        const QUuid later = session.turns.last().id;
        const auto found = [&](const QString &text) {
            const QUuid id = f.save(session);
            if (isStrict) {
                // Duplicate members are valid; the last one counts.
                QByteArray json = contentOf(f.description(id));
                json.replace("\"turns\": [", "\"turns\": 0, \"turns\": [");
                writeFile(f.description(id), json);
            }
            return f.find(id, text);
        };
        const auto hit = [&](const QString &text) {
            const auto result = found(text);
            return result ? std::pair(result->entry, result->version)
                          : std::pair(QUuid(), std::optional<qsizetype>());
        };
        using Version = std::optional<qsizetype>;
        const std::optional<qsizetype> onShow;
        // The third version is on show, and the thread's turns come one after the other.
        QCOMPARE(hit("why red"), std::pair(turn, Version(0)));
        QCOMPARE(hit("copper"), std::pair(turn, Version(1)));
        QCOMPARE(hit("iron"), std::pair(turn, onShow));
        QCOMPARE(hit("why so"), std::pair(turn, onShow));
        QCOMPARE(hit("and copper"), std::pair(later, onShow));
        QVERIFY(session.showVersion(turn, 1));
        QCOMPARE(hit("iron"), std::pair(turn, Version(0)));
        QCOMPARE(hit("oxide"), std::pair(turn, Version(2)));
        QCOMPARE(hit("why so"), std::pair(turn, onShow));
        QVERIFY(session.showVersion(turn, 0));
        QCOMPARE(hit("copper"), std::pair(turn, Version(1)));
        QCOMPARE(found("copper")->place, Place::Answer);
        QCOMPARE(found("why so")->place, Place::Question);
        QVERIFY(!found("blue"));
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
