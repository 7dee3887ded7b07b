#include "base/Settings.h"
#include "fakes/FakeThreadLibrary.h"
#include "fakes/LogCapture.h"
#include "history/ThreadController.h"
#include "sheets/history/HistoryModel.h"
#include "support/TestProgram.h"

#include <QAbstractItemModelTester>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

namespace {

const QDateTime noon(QDate(2026, 3, 1), QTime(12, 0));

} // namespace

class TestHistoryModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_library = std::make_unique<FakeThreadLibrary>();
        m_defaults = std::make_unique<JsonUserDefaults>();
        m_settings = std::make_unique<Settings>(*m_defaults);
        m_threads = std::make_unique<ThreadController>(*m_settings, nullptr);
        m_removals = std::make_unique<PendingRemovals>();
        m_history = std::make_unique<HistoryController>(*m_library, *m_threads, *m_removals);
        m_model = std::make_unique<HistoryModel>(*m_history, *m_threads, Vocabulary::macOS(),
                                                 QLocale("en_US"), [] { return noon; });
        m_tester = std::make_unique<QAbstractItemModelTester>(
            m_model.get(), QAbstractItemModelTester::FailureReportingMode::Fatal);
        m_log = std::make_unique<LogCapture>();
    }
    void cleanup()
    {
        m_log.reset();
        m_tester.reset();
        m_model.reset();
        m_history.reset();
    }

    void rowsExposeThreadSummary()
    {
        CaptureSession session = CaptureSession::create(noon);
        session.addTurn("Budget for March\nsecond line", "a", noon, noon.addSecs(-3600));
        session.addNote("n", noon.addSecs(-3600));
        session.addNote("m", noon.addSecs(-3600));
        m_library->sessions.insert(session.id, session);
        open();
        QCOMPARE(m_model->rowCount(), 1);
        QCOMPARE(value(0, HistoryModel::TitleRole).toString(), QStringLiteral("Budget for March"));
        QCOMPARE(value(0, HistoryModel::TimeRole).toString(),
                 QLocale("en_US").toString(QTime(11, 0), QLocale::ShortFormat));
        QCOMPARE(value(0, HistoryModel::TurnsRole).toInt(), 1);
        QCOMPARE(value(0, HistoryModel::NotesRole).toInt(), 2);
        QCOMPARE(value(0, HistoryModel::DayRole).toString(), QStringLiteral("Today"));
        QVERIFY(!value(0, HistoryModel::IsCurrentRole).toBool());
    }

    void timesOmitSeconds()
    {
        m_library->add("thread", noon);
        open();
        const HistoryModel plain(*m_history, *m_threads, Vocabulary::macOS(), QLocale::c(),
                                 [] { return noon; });
        QCOMPARE(plain.data(plain.index(0), HistoryModel::TimeRole).toString(),
                 QStringLiteral("12:00"));
    }

    void threadsAreGroupedByDay()
    {
        m_library->add("a", noon.addDays(-9));
        m_library->add("b", noon.addSecs(-60));
        m_library->add("c", noon.addDays(-1));
        m_library->add("d", noon.addSecs(-120));
        open();
        QCOMPARE(column(HistoryModel::DayRole),
                 QStringList({"Today", "Today", "Yesterday", "Feb 20, 2026"}));
        QCOMPARE(titles(), QStringList({"b", "d", "c", "a"}));
    }

    void searchIgnoresCase()
    {
        m_library->add("Nightly EXPORT rows", noon);
        m_library->add("Unrelated", noon.addDays(-1));
        open();
        m_model->setSearchText("  export ");
        QCOMPARE(titles(), QStringList("Nightly EXPORT rows"));
        QCOMPARE(value(0, HistoryModel::MatchStartRole).toInt(), 8);
        QCOMPARE(value(0, HistoryModel::MatchLengthRole).toInt(), 6);
        m_model->setSearchText("nothing");
        QCOMPARE(m_model->rowCount(), 0);
        QVERIFY(m_model->hasThreads());
        m_model->setSearchText("   ");
        QCOMPARE(m_model->rowCount(), 2);
        QCOMPARE(value(0, HistoryModel::MatchStartRole).toInt(), -1);
    }

    void searchIgnoresAccents()
    {
        m_library->add(QString::fromUtf8("Le résumé\nsecond line"), noon);
        open();
        m_model->setSearchText("RESUME");
        QCOMPARE(m_model->rowCount(), 1);
        QCOMPARE(value(0, HistoryModel::MatchStartRole).toInt(), 3);
        QCOMPARE(value(0, HistoryModel::MatchLengthRole).toInt(), 6);
    }

    void textsAreSearchedInTheBackground()
    {
        const CaptureSession inAnswer = m_library->add("Blue", noon);
        const CaptureSession inNote = m_library->add("Green", noon.addSecs(-60));
        m_library->add("Title with needle", noon.addSecs(-120));
        open();
        m_library->holdsSearch = true;
        QSignalSpy searching(m_model.get(), &HistoryModel::searchingChanged);
        m_model->setSearchText(" needle ");
        // Titles are found at once.
        QCOMPARE(titles(), QStringList("Title with needle"));
        QCOMPARE(value(0, HistoryModel::SnippetRole).toString(), QString());
        QVERIFY(m_model->isSearching());
        QCOMPARE(m_library->searches.size(), 1);
        QCOMPARE(m_library->searches.first().threads.size(), 3);
        m_library->heldSearch->addResult(ThreadHits{
            {inNote.id, {ThreadHit::Place::Note, "with a needle", 7, 6}},
            {inAnswer.id, {ThreadHit::Place::Answer, "the needle", 4, 6}},
            {QUuid::createUuid(), {ThreadHit::Place::Answer, "of a thread not listed", 0, 2}}});
        QCoreApplication::processEvents();
        QCOMPARE(titles(), QStringList({"Blue", "Green", "Title with needle"}));
        QCOMPARE(value(0, HistoryModel::MatchStartRole).toInt(), -1);
        QCOMPARE(value(0, HistoryModel::SnippetRole).toString(), QString("the needle"));
        QCOMPARE(value(0, HistoryModel::SnippetStartRole).toInt(), 4);
        QCOMPARE(value(0, HistoryModel::SnippetLengthRole).toInt(), 6);
        QCOMPARE(column(HistoryModel::SnippetPlaceRole), QStringList({"Answer", "Note", ""}));
        m_library->heldSearch->finish();
        QCoreApplication::processEvents();
        QVERIFY(!m_model->isSearching());
        QCOMPARE(searching.size(), 2);
        m_model->setSearchText("");
        QCOMPARE(m_model->rowCount(), 3);
        QCOMPARE(value(0, HistoryModel::SnippetRole).toString(), QString());
    }

    void hitInTheTitleShowsNoSnippet()
    {
        const CaptureSession session = m_library->add("A needle", noon);
        open();
        m_model->setSearchText("needle");
        QVERIFY(m_history->search().isRunning());
        QTRY_VERIFY(!m_history->search().isRunning());
        QVERIFY(m_history->search().hitIn(session.id));
        QCOMPARE(value(0, HistoryModel::MatchStartRole).toInt(), 2);
        QCOMPARE(value(0, HistoryModel::SnippetRole).toString(), QString());
        // Without it in the title, the question is shown.
        m_model->rename(0, "Other");
        QCOMPARE(titles(), QStringList("Other"));
        QCOMPARE(value(0, HistoryModel::SnippetPlaceRole).toString(), QString("Question"));
    }

    void rowsThatFillAViewComeInPortions()
    {
        QStringList all;
        for (int i = 0; i < 50; ++i) {
            all.append(QStringLiteral("match %1").arg(i));
            m_library->add(all.last(), noon.addSecs(-i));
        }
        open();
        m_library->holdsSearch = true;
        QList<int> portions;
        connect(
            m_model.get(), &HistoryModel::rowsInserted, this,
            [&](const QModelIndex &, int first, int last) { portions.append(last - first + 1); });
        m_model->setSearchText("match");
        QCOMPARE(titles(), all.mid(0, 4));
        QTRY_COMPARE(m_model->rowCount(), 50);
        QCOMPARE(titles(), all);
        QCOMPARE(portions, QList<int>({4, 4, 4, 34}));
        // A text that only some have leaves nothing of the others behind.
        m_model->setSearchText("match 1");
        m_model->setSearchText("match 49");
        QTest::qWait(0);
        QTRY_COMPARE(titles(), QStringList("match 49"));
    }

    void hitsThatFillAViewComeInPortions()
    {
        ThreadHits hits;
        QStringList all;
        for (int i = 0; i < 30; ++i) {
            all.append(QString::number(i));
            hits.insert(m_library->add(all.last(), noon.addSecs(-i)).id,
                        {ThreadHit::Place::Answer, "x", 0, 1});
        }
        open();
        m_library->holdsSearch = true;
        m_model->setSearchText("x");
        m_library->heldSearch->addResult(hits);
        QTRY_COMPARE(m_model->rowCount(), 4);
        QTRY_COMPARE(titles(), all);
    }

    void openedRowTellsItsHit()
    {
        const CaptureSession session = m_library->add("Blue", noon);
        open();
        QSignalSpy opened(m_history.get(), &HistoryController::hitOpened);
        m_library->holdsSearch = true;
        m_model->setSearchText("needle");
        const QUuid turn = QUuid::createUuid();
        m_library->heldSearch->addResult(
            ThreadHits{{session.id, {ThreadHit::Place::Answer, "the needle", 4, 6, {}, turn, 1}}});
        QTRY_COMPARE(m_model->rowCount(), 1);
        QCOMPARE(value(0, HistoryModel::SnippetPlaceRole).toString(), QString("Version 2"));
        m_model->open(0);
        QTRY_COMPARE(opened.size(), 1);
        QCOMPARE(opened.first().first().value<FoundText>(), (FoundText{"needle", turn, 1}));
        // Without a search there is no hit.
        open();
        m_model->open(0);
        QTRY_VERIFY(!m_history->isHistorySidebarOpen());
        QCOMPARE(opened.size(), 1);
    }

    void hitsOfTheNextLetterReplaceRows()
    {
        const CaptureSession stays = m_library->add("Blue", noon);
        const CaptureSession goes = m_library->add("Green", noon.addSecs(-60));
        open();
        m_library->holdsSearch = true;
        m_model->setSearchText("e");
        m_library->heldSearch->addResult(
            ThreadHits{{stays.id, FakeThreadLibrary::hit(ThreadHit::Place::Answer, "export", "e")},
                       {goes.id, FakeThreadLibrary::hit(ThreadHit::Place::Answer, "extra", "e")}});
        m_library->heldSearch->finish();
        QCoreApplication::processEvents();
        m_model->setSearchText("exp");
        QCOMPARE(titles(), QStringList("Blue"));
        QCOMPARE(value(0, HistoryModel::SnippetLengthRole).toInt(), 3);
        // The file has changed meanwhile.
        m_library->heldSearch->finish();
        QCoreApplication::processEvents();
        QCOMPARE(m_model->rowCount(), 0);
        QVERIFY(m_model->hasThreads());
    }

    void manyHitsBecomeRowsInOrder()
    {
        QList<CaptureSession> sessions;
        for (int i = 0; i < 50; ++i)
            sessions.append(
                m_library->add(i % 7 == 3 ? "the x" : QString::number(i), noon.addSecs(-i)));
        open();
        m_library->holdsSearch = true;
        m_model->setSearchText("x");
        for (const int part : {1, 0, 2}) {
            ThreadHits hits;
            for (int i = part; i < 50; i += 3) {
                if (i % 5 != 0)
                    hits.insert(sessions.at(i).id, {ThreadHit::Place::Answer, "x", 0, 1});
            }
            m_library->heldSearch->addResult(hits, part);
            QCoreApplication::processEvents();
        }
        QStringList expected;
        for (int i = 0; i < 50; ++i) {
            if (i % 7 == 3 || i % 5 != 0)
                expected.append(i % 7 == 3 ? "the x" : QString::number(i));
        }
        QTRY_COMPARE(titles(), expected);
    }

    void threadsReadDuringASearchAreSearched()
    {
        m_library->holdsList = true;
        m_history->historyButtonClicked();
        m_model->setSearchText("answer");
        const CaptureSession session = m_library->add("Late", noon);
        ThreadBatch batch;
        batch.threads = {FakeThreadLibrary::summary(session)};
        batch.total = 1;
        m_library->held->addResult(batch);
        QTRY_COMPARE(titles(), QStringList("Late"));
        QCOMPARE(value(0, HistoryModel::SnippetRole).toString(), QString("An answer."));
        // A thread that is deleted leaves the list, though its hit is known.
        m_history->deleteSession(session.id);
        QTRY_COMPARE(m_model->rowCount(), 0);
    }

    void closingStopsTheSearch()
    {
        m_library->add("Blue", noon);
        open();
        m_library->holdsSearch = true;
        m_model->setSearchText("needle");
        m_model->close();
        QVERIFY(!m_model->isSearching());
        QVERIFY(m_library->heldSearch->isCanceled());
        QCOMPARE(m_model->searchText(), QString());
    }

    void searchUsesLocaleCaseRules()
    {
        m_library->add(QString::fromUtf8("ISPARTA raporu"), noon);
        open();
        HistoryModel turkish(*m_history, *m_threads, Vocabulary::macOS(), QLocale("tr_TR"),
                             [] { return noon; });
        turkish.setSearchText(QString::fromUtf8("ısparta"));
        QCOMPARE(turkish.rowCount(), 1);
        m_model->setSearchText("isparta");
        QCOMPARE(m_model->rowCount(), 1);
    }

    void searchFindsCustomTitles()
    {
        m_library->add("derived", noon);
        open();
        m_model->rename(0, "Custom words");
        m_model->setSearchText("custom");
        QCOMPARE(titles(), QStringList("Custom words"));
        m_model->setSearchText("derived");
        QCOMPARE(m_model->rowCount(), 0);
    }

    void searchAppliesToLaterBatches()
    {
        m_library->holdsList = true;
        m_history->historyButtonClicked();
        m_model->setSearchText("b");
        deliver({"ab", "c"}, 0);
        deliver({"bb", "d"}, -1);
        deliver({"newest b"}, 1);
        QCOMPARE(titles(), QStringList({"newest b", "ab", "bb"}));
        QCOMPARE(m_model->progressText(), QStringLiteral("Reading threads… 5 of 2,000"));
        QCOMPARE(m_model->progress(), 5.0 / 2000);
    }

    void batchesInsertRowsInAnyOrder()
    {
        m_library->holdsList = true;
        m_history->historyButtonClicked();
        m_model->setSearchText("b");
        deliver({"b2", "c"}, 0);
        QSignalSpy reset(m_model.get(), &QAbstractItemModel::modelReset);
        QSignalSpy inserted(m_model.get(), &QAbstractItemModel::rowsInserted);
        const QPersistentModelIndex kept = m_model->index(0);
        deliver({"b1", "c"}, 1);
        deliver({"b3", "c"}, -1);
        deliver({"c"}, 2);
        QCOMPARE(titles(), QStringList({"b1", "b2", "b3"}));
        QCOMPARE(kept.data(HistoryModel::TitleRole).toString(), QStringLiteral("b2"));
        QCOMPARE(inserted.size(), 2);
        QVERIFY(reset.isEmpty());
    }

    void reloadingKeepsRows()
    {
        m_library->add("a", noon);
        const auto gone = m_library->add("b", noon.addDays(-1));
        m_library->add("c", noon.addDays(-2));
        open();
        m_history->historyButtonClicked();
        const QPersistentModelIndex kept = m_model->index(2);
        QSignalSpy reset(m_model.get(), &QAbstractItemModel::modelReset);
        QSignalSpy deleted(m_model.get(), &HistoryModel::rowDeleted);
        m_library->sessions.remove(gone.id);
        m_library->add("d", noon.addSecs(-1));
        open();
        QCOMPARE(titles(), QStringList({"a", "d", "c"}));
        QCOMPARE(kept.data(HistoryModel::TitleRole).toString(), QStringLiteral("c"));
        QVERIFY(reset.isEmpty());
        // Not emitted for threads that were not deleted by the user.
        QVERIFY(deleted.isEmpty());
    }

    void renamingDuringSearchKeepsOtherRows()
    {
        m_library->add("one apple", noon);
        m_library->add("two apples", noon.addDays(-1));
        m_library->add("pear", noon.addDays(-2));
        open();
        m_model->setSearchText("apple");
        QSignalSpy reset(m_model.get(), &QAbstractItemModel::modelReset);
        const QPersistentModelIndex kept = m_model->index(1);
        m_model->rename(0, "plum");
        QCOMPARE(titles(), QStringList("two apples"));
        QCOMPARE(kept.row(), 0);
        m_history->renameSession(m_history->historySessions().at(2).id, "green apple");
        QCOMPARE(titles(), QStringList({"two apples", "green apple"}));
        QVERIFY(reset.isEmpty());
    }

    void deletionEmitsRowDeleted()
    {
        m_library->add("apple", noon);
        m_library->add("pear", noon.addDays(-1));
        open();
        QSignalSpy deleted(m_model.get(), &HistoryModel::rowDeleted);
        m_model->setSearchText("pear");
        m_model->requestDelete(0);
        m_model->confirmDelete();
        QTRY_COMPARE(deleted.size(), 1);
        QCOMPARE(deleted.first().first().toInt(), 0);
        // A thread hidden by the search has no row.
        m_history->deleteSession(m_history->historySessions().at(0).id);
        QTRY_VERIFY(m_history->historySessions().isEmpty());
        QCOMPARE(deleted.size(), 1);
    }

    void undoneDeletionIsFilteredLikeAnyThread()
    {
        m_library->add("apple", noon);
        m_library->add("pear", noon.addDays(-1));
        open();
        QSignalSpy restored(m_model.get(), &HistoryModel::rowRestored);
        m_model->setSearchText("pear");
        m_model->requestDelete(0);
        m_model->confirmDelete();
        QCOMPARE(m_model->rowCount(), 0);
        // Under another search it comes back without a row, but is found later.
        m_model->setSearchText("apple");
        m_removals->undo();
        QCOMPARE(titles(), QStringList("apple"));
        QVERIFY(restored.isEmpty());
        QTRY_VERIFY(!m_history->isLoading());
        m_model->setSearchText("pear");
        QCOMPARE(titles(), QStringList("pear"));
        m_model->requestDelete(0);
        m_model->confirmDelete();
        m_removals->undo();
        QCOMPARE(restored.size(), 1);
        QCOMPARE(titles(), QStringList("pear"));
    }

    void closingClearsSearch()
    {
        m_library->add("thread", noon);
        open();
        m_model->setSearchText("nothing");
        m_model->close();
        QVERIFY(m_model->searchText().isEmpty());
        QCOMPARE(m_model->rowCount(), 1);
    }

    void renamingAndDeletingDuringSearch()
    {
        m_library->add("one apple", noon);
        m_library->add("pear", noon.addDays(-1));
        m_library->add("two apples", noon.addDays(-2));
        open();
        m_model->setSearchText("apple");
        m_model->rename(1, "two plums");
        QCOMPARE(titles(), QStringList("one apple"));
        m_model->setSearchText("");
        QCOMPARE(titles(), QStringList({"one apple", "pear", "two plums"}));
        m_model->setSearchText("p");
        m_model->requestDelete(1);
        m_model->confirmDelete();
        QTRY_COMPARE(titles(), QStringList({"one apple", "two plums"}));
        QCOMPARE(value(1, HistoryModel::TitleRole).toString(), QStringLiteral("two plums"));
        // Deleting a thread hidden by the search must not affect the visible rows.
        m_model->setSearchText("plums");
        m_history->deleteSession(m_history->historySessions().at(0).id);
        QTRY_COMPARE(m_history->historySessions().size(), 1);
        QCOMPARE(titles(), QStringList("two plums"));
    }

    void unchangedTitleIsNotRenamed()
    {
        const auto thread = m_library->add("question", noon);
        open();
        m_model->setRenaming(true);
        QVERIFY(m_history->isRenamingHistoryRow());
        m_model->rename(0, "question");
        m_model->setRenaming(false);
        QVERIFY(!m_history->isRenamingHistoryRow());
        QVERIFY(m_library->calls.isEmpty());
        m_model->rename(0, "   ");
        QCOMPARE(m_library->calls, QStringList("updateTitle"));
        QVERIFY(!m_library->sessions[thread.id].customTitle);
    }

    void deleteTextIsPlatformSpecific()
    {
        m_library->add("thread", noon);
        open();
        HistoryModel linuxModel(*m_history, *m_threads, Vocabulary::linuxDesktop());
        linuxModel.requestDelete(0);
        QCOMPARE(linuxModel.deleteText(),
                 QStringLiteral("\"thread\" will be permanently removed from this computer."));
    }

    void deletionRequiresConfirmation()
    {
        const auto thread = m_library->add("Tax \"2025\"", noon);
        open();
        m_model->requestDelete(0);
        QVERIFY(m_model->isDeletePending());
        QCOMPARE(m_model->deleteText(),
                 QStringLiteral("\"Tax \"2025\"\" will be permanently removed from your Mac."));
        m_model->cancelDelete();
        m_model->confirmDelete();
        QVERIFY(m_library->calls.isEmpty());
        m_model->requestDelete(0);
        // Closing the sheet cancels the pending deletion; reopening it changes the rows.
        m_library->add("newer", noon.addDays(1));
        m_history->historyButtonClicked();
        QVERIFY(!m_model->isDeletePending());
        open();
        m_model->requestDelete(1);
        m_model->confirmDelete();
        QCOMPARE(titles(), QStringList("newer"));
        QVERIFY(m_library->sessions.contains(thread.id));
        m_removals->commitAll();
        QVERIFY(!m_library->sessions.contains(thread.id));
    }

    void currentThreadIsMarked()
    {
        m_library->add("other", noon);
        const auto thread = m_library->add("mine", noon.addDays(-1));
        open();
        QCOMPARE(m_model->currentRow(), -1);
        m_model->open(1);
        QTRY_VERIFY(m_threads->currentSession());
        open();
        QCOMPARE(m_model->currentRow(), 1);
        QCOMPARE(column(HistoryModel::IsCurrentRole), QStringList({"false", "true"}));
        QSignalSpy changed(m_model.get(), &QAbstractItemModel::dataChanged);
        m_threads->startNewThread();
        QVERIFY(!changed.isEmpty());
        QCOMPARE(m_model->currentRow(), -1);
    }

    void invalidRowsAreIgnored()
    {
        open();
        m_model->open(0);
        m_model->rename(3, "x");
        m_model->requestDelete(-1);
        QVERIFY(!m_model->isDeletePending());
        QVERIFY(m_library->calls.isEmpty());
    }

    void lineBreaksInTitleAreReplaced()
    {
        auto session = m_library->add("question", noon);
        m_library->sessions[session.id].customTitle = QStringLiteral("two\nlines");
        open();
        QCOMPARE(titles(), QStringList("two lines"));
    }

private:
    void open()
    {
        m_history->historyButtonClicked();
        QTRY_VERIFY(!m_history->isLoading());
        QVERIFY(m_model->isOpen());
    }
    QVariant value(int row, int role) const { return m_model->data(m_model->index(row), role); }
    QStringList column(int role) const
    {
        QStringList values;
        for (int row = 0; row < m_model->rowCount(); ++row)
            values.append(value(row, role).toString());
        return values;
    }
    QStringList titles() const { return column(HistoryModel::TitleRole); }
    void deliver(const QStringList &titles, int days)
    {
        ThreadBatch batch;
        for (const QString &title : titles)
            batch.threads.append(FakeThreadLibrary::summary(title, noon.addDays(days)));
        batch.total = 2000;
        QSignalSpy progress(m_history.get(), &HistoryController::progressChanged);
        m_library->held->addResult(batch);
        QTRY_VERIFY(!progress.isEmpty());
    }

    std::unique_ptr<FakeThreadLibrary> m_library;
    std::unique_ptr<PendingRemovals> m_removals;
    std::unique_ptr<JsonUserDefaults> m_defaults;
    std::unique_ptr<Settings> m_settings;
    std::unique_ptr<ThreadController> m_threads;
    std::unique_ptr<HistoryController> m_history;
    std::unique_ptr<HistoryModel> m_model;
    std::unique_ptr<QAbstractItemModelTester> m_tester;
    std::unique_ptr<LogCapture> m_log;
};

QUELLORA_TEST(QGuiApplication, TestHistoryModel)
#include "test_history_model.moc"
