#include "fakes/FakeThreadLibrary.h"
#include "history/HistorySearch.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

using Place = ThreadHit::Place;

const QUuid first = QUuid::createUuid();
const QUuid second = QUuid::createUuid();
const QUuid third = QUuid::createUuid();

ThreadQuery query(const QString &text, const QList<QUuid> &threads = {first, second})
{
    return {text, QLocale("en_US"), threads};
}

ThreadHit hit(const QString &text, const QString &part)
{
    return FakeThreadLibrary::hit(Place::Answer, text, part);
}

} // namespace

class TestHistorySearch : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_library = std::make_unique<FakeThreadLibrary>();
        m_library->holdsSearch = true;
        m_search = std::make_unique<HistorySearch>(*m_library);
        m_changed = std::make_unique<QSignalSpy>(m_search.get(), &HistorySearch::hitsChanged);
        m_running = std::make_unique<QSignalSpy>(m_search.get(), &HistorySearch::runningChanged);
    }

    void hitsArriveBatchByBatch()
    {
        QVERIFY(!m_search->isRunning());
        m_search->start(query("a"));
        QVERIFY(m_search->isRunning());
        deliver({{second, hit("bar", "a")}}, 1);
        QCOMPARE(changes(), QSet({second}));
        QVERIFY(!m_search->hitIn(first));
        QCOMPARE(m_search->hitIn(second), hit("bar", "a"));
        deliver({{first, hit("cat", "a")}}, 0);
        QCOMPARE(changes(), QSet({first}));
        QVERIFY(m_search->isRunning());
        finish();
        QVERIFY(!m_search->isRunning());
        QCOMPARE(m_running->size(), 2);
        QCOMPARE(changes(), QSet<QUuid>());
    }

    void nextLetterCancelsTheSearch()
    {
        m_search->start(query("a"));
        const auto before = m_library->heldSearch;
        m_search->start(query("ab"));
        QVERIFY(before->isCanceled());
        before->addResult(ThreadHits{{first, hit("a", "a")}});
        before->finish();
        QCoreApplication::processEvents();
        QVERIFY(!m_search->hitIn(first));
        QVERIFY(m_search->isRunning());
        QCOMPARE(m_running->size(), 1);
    }

    void hitsThatStillMatchStayUntilConfirmed()
    {
        m_search->start(query("ex", {first, second, third}));
        deliver({{first, hit("the Éxport", "Éx")},
                 {second, hit("an example", "ex")},
                 {third, hit("Exports", "Ex")}},
                0);
        finish();
        m_search->start(query("exp", {first, second}));
        QCOMPARE(m_search->hitIn(first), hit("the Éxport", "Éxp"));
        QVERIFY(!m_search->hitIn(second));
        m_changed->clear();
        deliver({{first, hit("the Éxport", "Éxp")}}, 0);
        QCOMPARE(m_changed->size(), 0);
        finish();
        QVERIFY(m_search->hitIn(first));
        // It was not searched this time.
        QVERIFY(!m_search->hitIn(third));
        m_search->start(query("expo", {}));
        QVERIFY(!m_search->hitIn(first));
    }

    void hitsThatAreNotConfirmedAreDropped()
    {
        m_search->start(query("ex"));
        deliver({{first, hit("export", "ex")}, {second, hit("exports", "ex")}}, 0);
        finish();
        m_search->start(query("exp"));
        deliver({{second, hit("exports", "exp")}}, 0);
        m_changed->clear();
        finish();
        QVERIFY(!m_search->hitIn(first));
        QCOMPARE(changes(), QSet({first}));
    }

    void addedThreadsAreSearchedTogether()
    {
        m_search->start(query("a", {first}));
        finish();
        m_running->clear();
        m_search->add({second});
        m_search->add({third});
        QVERIFY(m_search->isRunning());
        QCOMPARE(m_library->searches.size(), 1);
        QCoreApplication::processEvents();
        QCOMPARE(m_library->searches.size(), 2);
        QCOMPARE(m_library->searches.at(1).threads, QList({second, third}));
        QCOMPARE(m_library->searches.at(1).text, QString("a"));
        deliver({{third, hit("a", "a")}}, 0);
        finish();
        QVERIFY(m_search->hitIn(third));
        QCOMPARE(m_running->size(), 2);
    }

    void threadSearchedAgainMayLoseItsHit()
    {
        m_search->start(query("a", {first}));
        deliver({{first, hit("a", "a")}}, 0);
        finish();
        m_search->add({first});
        QCoreApplication::processEvents();
        QVERIFY(m_search->hitIn(first));
        finish();
        QVERIFY(!m_search->hitIn(first));
    }

    void stoppingForgetsEverything()
    {
        m_search->start(query("a"));
        deliver({{first, hit("a", "a")}}, 0);
        m_search->add({third});
        m_search->stop();
        QVERIFY(!m_search->isRunning());
        QVERIFY(!m_search->hitIn(first));
        QCoreApplication::processEvents();
        QCOMPARE(m_library->searches.size(), 1);
        QVERIFY(m_library->heldSearch->isCanceled());
        m_search->stop();
        QCOMPARE(m_running->size(), 2);
    }

    void searchingNothingIsOver()
    {
        m_search->start(query("a", {}));
        QVERIFY(!m_search->isRunning());
        m_search->add({});
        QVERIFY(!m_search->isRunning());
        QCOMPARE(m_library->searches.size(), 0);
        QCOMPARE(m_running->size(), 0);
    }

    void destructionCancelsTheSearch()
    {
        m_search->start(query("a"));
        m_search.reset();
        QVERIFY(m_library->heldSearch->isCanceled());
    }

private:
    void deliver(const ThreadHits &hits, int index)
    {
        m_library->heldSearch->addResult(hits, index);
        QCoreApplication::processEvents();
    }
    void finish()
    {
        m_library->heldSearch->finish();
        QCoreApplication::processEvents();
    }
    QSet<QUuid> changes()
    {
        QSet<QUuid> threads;
        for (const auto &arguments :
             std::exchange(static_cast<QList<QVariantList> &>(*m_changed), {}))
            threads.unite(arguments.first().value<QSet<QUuid>>());
        return threads;
    }

    std::unique_ptr<FakeThreadLibrary> m_library;
    std::unique_ptr<HistorySearch> m_search;
    std::unique_ptr<QSignalSpy> m_changed;
    std::unique_ptr<QSignalSpy> m_running;
};

QUELLORA_TEST(QCoreApplication, TestHistorySearch)
#include "test_history_search.moc"
