#include "history/ListedThreads.h"
#include "support/TestProgram.h"

#include <QTest>

#include <algorithm>
#include <random>

using namespace quellora;

namespace {

using Change = ListedThreads::Change;
using Kind = Change::Kind;

const QDateTime noon(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);

ThreadSummary stored(int number, int changed, const QString &title = {})
{
    ThreadSummary summary;
    summary.id = QUuid::createUuidV5(QUuid(), QByteArray::number(number));
    summary.createdAt = noon;
    summary.updatedAt = noon.addSecs(changed);
    summary.previewText = title.isEmpty() ? QString::number(number) : title;
    return summary;
}

/// Applies a change to @p view, like a view that only follows change notifications.
void applyToView(QList<ThreadSummary> &view, const Change &change, const QList<ThreadSummary> &now)
{
    switch (change.kind) {
    case Kind::Inserted:
        for (qsizetype i = change.first; i < change.first + change.count; ++i)
            view.insert(i, now.at(i));
        break;
    case Kind::Removed:
        view.remove(change.first, change.count);
        break;
    case Kind::Changed:
        view[change.first] = now.at(change.first);
        break;
    }
}

QList<Change> applyAll(ListedThreads &listed)
{
    QList<Change> changes;
    while (const auto change = listed.applyNext())
        changes.append(*change);
    return changes;
}

QStringList titles(const ListedThreads &listed)
{
    QStringList texts;
    for (const ThreadSummary &summary : listed.threads())
        texts.append(summary.title());
    return texts;
}

void readAll(ListedThreads &listed, const QList<ThreadSummary> &threads)
{
    listed.beginReading();
    listed.add(threads);
    listed.endReading();
    applyAll(listed);
}

} // namespace

class TestListedThreads : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void orderedBatchIsOneChange()
    {
        ListedThreads listed;
        listed.beginReading();
        listed.add({stored(1, 9), stored(2, 8)});
        QCOMPARE(applyAll(listed), QList<Change>({{Kind::Inserted, 0, 2}}));
        listed.add({stored(3, 7), stored(4, 6)});
        QCOMPARE(applyAll(listed), QList<Change>({{Kind::Inserted, 2, 2}}));
        listed.endReading();
        QVERIFY(applyAll(listed).isEmpty());
        QCOMPARE(titles(listed), QStringList({"1", "2", "3", "4"}));
    }

    void unchangedReloadChangesNothing()
    {
        ListedThreads listed;
        const QList<ThreadSummary> all{stored(1, 9), stored(2, 9), stored(3, 1)};
        readAll(listed, all);
        listed.beginReading();
        listed.add(all);
        QVERIFY(applyAll(listed).isEmpty());
        listed.endReading();
        QVERIFY(applyAll(listed).isEmpty());
        QCOMPARE(listed.threads().size(), 3);
    }

    void onlyChangedRowsChange()
    {
        ListedThreads listed;
        readAll(listed, {stored(1, 9), stored(2, 8), stored(3, 7), stored(4, 6)});
        listed.beginReading();
        // One thread has moved up, one has a new title, one is missing.
        listed.add({stored(3, 10), stored(1, 9), stored(4, 6, "new")});
        QCOMPARE(
            applyAll(listed),
            QList<Change>({{Kind::Removed, 2, 1}, {Kind::Inserted, 0, 1}, {Kind::Changed, 3, 1}}));
        listed.endReading();
        QCOMPARE(applyAll(listed), QList<Change>({{Kind::Removed, 2, 1}}));
        QCOMPARE(titles(listed), QStringList({"3", "1", "new"}));
    }

    void adjacentRemovalsAreMerged()
    {
        ListedThreads listed;
        QList<ThreadSummary> all;
        for (int i = 0; i < 10; ++i)
            all.append(stored(i, -i));
        readAll(listed, all);
        listed.beginReading();
        listed.add({all.at(2), all.at(6)});
        listed.endReading();
        QCOMPARE(
            applyAll(listed),
            QList<Change>({{Kind::Removed, 7, 3}, {Kind::Removed, 3, 3}, {Kind::Removed, 0, 2}}));
        QCOMPARE(titles(listed), QStringList({"2", "6"}));
    }

    void abandonedReloadRemovesNothing()
    {
        ListedThreads listed;
        readAll(listed, {stored(1, 9), stored(2, 8)});
        listed.beginReading();
        listed.add({stored(3, 10)});
        listed.abandonReading();
        QVERIFY(applyAll(listed).isEmpty());
        QCOMPARE(titles(listed), QStringList({"1", "2"}));
    }

    void userChangesOverrideReload()
    {
        ListedThreads listed;
        readAll(listed, {stored(1, 9), stored(2, 8)});
        listed.beginReading();
        listed.add({stored(1, 9), stored(2, 8), stored(3, 7), stored(4, 6)});
        QCOMPARE(listed.hide({stored(1, 9).id}), 0);
        QCOMPARE(listed.hide({stored(3, 7).id}), -1);
        listed.forgetHidden({stored(1, 9).id, stored(3, 7).id});
        QCOMPARE(listed.setTitle(stored(2, 8).id, "mine"), 0);
        QCOMPARE(listed.setTitle(stored(4, 6).id, "too"), -1);
        QCOMPARE(applyAll(listed), QList<Change>({{Kind::Inserted, 1, 1}}));
        QCOMPARE(titles(listed), QStringList({"mine", "too"}));
        // The next reload takes over the state on disk.
        readAll(listed, {stored(3, 7), stored(2, 8, "disk")});
        QCOMPARE(titles(listed), QStringList({"disk", "3"}));
    }

    void removesDuringSweep()
    {
        ListedThreads listed;
        readAll(listed, {stored(1, 9), stored(2, 8), stored(3, 7), stored(4, 6), stored(5, 5)});
        listed.beginReading();
        listed.add({stored(2, 8), stored(4, 6)});
        listed.endReading();
        QCOMPARE(*listed.applyNext(), (Change{Kind::Removed, 4, 1}));
        QCOMPARE(listed.hide({stored(2, 8).id}), 1);
        QCOMPARE(applyAll(listed), QList<Change>({{Kind::Removed, 0, 2}}));
        QCOMPARE(titles(listed), QStringList("4"));
    }

    void hiddenThreadsStayOutOfReloads()
    {
        ListedThreads listed;
        readAll(listed, {stored(1, 9), stored(2, 8), stored(3, 7)});
        QCOMPARE(listed.hide({stored(2, 8).id}), 1);
        QVERIFY(listed.isHidden(stored(2, 8).id));
        readAll(listed, {stored(1, 9), stored(2, 8), stored(3, 7)});
        readAll(listed, {stored(1, 9), stored(2, 8), stored(3, 7)});
        QCOMPARE(titles(listed), QStringList({"1", "3"}));
        QCOMPARE(listed.show(stored(2, 8)), 1);
        QCOMPARE(titles(listed), QStringList({"1", "2", "3"}));
        readAll(listed, {stored(1, 9), stored(2, 8), stored(3, 7)});
        QCOMPARE(titles(listed), QStringList({"1", "2", "3"}));
    }

    void threadShownDuringAReloadIsListedOnce()
    {
        ListedThreads listed;
        readAll(listed, {stored(1, 9), stored(2, 8), stored(3, 7)});
        listed.hide({stored(2, 8).id});
        listed.beginReading();
        listed.add({stored(1, 9), stored(2, 8), stored(3, 7)});
        applyAll(listed);
        // The reload has passed it; another process changed it before the next one.
        listed.show(stored(2, 8));
        readAll(listed, {stored(2, 10), stored(1, 9), stored(3, 7)});
        QCOMPARE(titles(listed), QStringList({"2", "1", "3"}));
    }

    void severalAreHiddenAtOnce()
    {
        ListedThreads listed;
        readAll(listed, {stored(1, 9), stored(2, 8), stored(3, 7), stored(4, 6)});
        const QList<QUuid> ids{stored(1, 9).id, stored(3, 7).id, stored(4, 6).id};
        QCOMPARE(listed.hide(ids), -1);
        QCOMPARE(titles(listed), QStringList("2"));
        listed.show(ids);
        QCOMPARE(titles(listed), QStringList("2"));
        readAll(listed, {stored(1, 9), stored(2, 8), stored(3, 7), stored(4, 6)});
        QCOMPARE(titles(listed), QStringList({"1", "2", "3", "4"}));
    }

    void duplicateIsListedOnce()
    {
        ListedThreads listed;
        readAll(listed, {stored(1, 9), stored(1, 9), stored(2, 8)});
        QCOMPARE(titles(listed), QStringList({"1", "2"}));
    }

    void randomReloadsConverge()
    {
        // The same threads each time.
        std::mt19937 random(7); // NOLINT(cert-msc51-cpp)
        const auto upTo = [&random](unsigned limit) { return int(random() % limit); };
        ListedThreads listed;
        QList<ThreadSummary> view;
        for (int reading = 0; reading < 60; ++reading) {
            QList<ThreadSummary> disk;
            for (int number = 0; number < 80; ++number) {
                if (upTo(3) > 0)
                    disk.append(stored(number, upTo(20), QString::number(upTo(3))));
            }
            std::shuffle(disk.begin(), disk.end(), random);
            listed.beginReading();
            for (qsizetype at = 0; at < disk.size(); at += 16) {
                QList<ThreadSummary> batch = disk.mid(at, 16);
                std::sort(batch.begin(), batch.end(), isNewer);
                listed.add(batch);
                for (int i = upTo(40); i > 0; --i) {
                    if (const auto change = listed.applyNext())
                        applyToView(view, *change, listed.threads());
                    QCOMPARE(view, listed.threads());
                }
            }
            // Some reloads are abandoned.
            if (upTo(4) == 0)
                continue;
            listed.endReading();
            while (const auto change = listed.applyNext())
                applyToView(view, *change, listed.threads());
            std::sort(disk.begin(), disk.end(), isNewer);
            QCOMPARE(listed.threads(), disk);
            QCOMPARE(view, disk);
        }
    }
};

QUELLORA_TEST(void, TestListedThreads)
#include "test_listed_threads.moc"
