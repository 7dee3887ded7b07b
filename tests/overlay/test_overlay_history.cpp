#include "fakes/FakePlatform.h"
#include "fakes/FakeThreadLibrary.h"
#include "overlay/FindModel.h"
#include "overlay/NonFocusPanel.h"
#include "overlay/OverlayHistory.h"
#include "overlay/OverlayModel.h"
#include "panels/HamburgerMenuModel.h"
#include "query/OrchestratorFixture.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QSignalSpy>

using namespace quellora;

namespace {

/// The sidebar and a query orchestrator with fake collaborators.
struct Fixture : OrchestratorFixture
{
    Fixture()
    {
        overlay.setWindowSize(QSizeF(624, 744));
        history.attach(panel, overlay, menu, orchestrator, find);
        stored = library.add("stored", now);
    }

    /// Opens the sidebar again, whose list has been read then.
    void openAgain()
    {
        history.historyButtonClicked();
        QTRY_VERIFY(!history.controller().isLoading());
    }

    /// Opens the stored thread and asks a question in it.
    void askInStored()
    {
        history.historyButtonClicked();
        history.controller().loadSession(stored.id);
        QTRY_VERIFY(threads.currentSession());
        orchestrator.sendPromptOnly("question");
    }

    FakeThreadLibrary library;
    CaptureSession stored;
    OverlayModel overlay;
    HamburgerMenuModel menu;
    FindModel find;
    PendingRemovals removals;
    OverlayHistory history{library, threads, removals, Vocabulary::linuxDesktop()};
    FakePanelWindow window;
    NonFocusPanel panel{window};
};

} // namespace

/// Effects of the sidebar on the overlay and the displayed answer.
class TestOverlayHistory : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void menuTogglesSidebar()
    {
        Fixture f;
        QVERIFY(f.menu.historyAvailable());
        QVERIFY(!f.overlay.clickThroughRect().isEmpty());
        QSignalSpy aboutToOpen(&f.history, &OverlayHistory::aboutToOpen);
        Q_EMIT f.menu.historyRequested();
        QCOMPARE(aboutToOpen.size(), 1);
        QVERIFY(f.history.model().isOpen());
        // No click-through while the sidebar covers the answer.
        QVERIFY(f.overlay.clickThroughRect().isEmpty());
        Q_EMIT f.menu.historyRequested();
        QCOMPARE(aboutToOpen.size(), 1);
        QVERIFY(!f.history.model().isOpen());
        QVERIFY(!f.overlay.clickThroughRect().isEmpty());
    }

    void sidebarHasKeyboardWhileOpen()
    {
        Fixture f;
        f.history.historyButtonClicked();
        QCOMPARE(f.window.count(QStringLiteral("makeKey")), 1);
        QCOMPARE(f.window.count(QStringLiteral("resignKey")), 0);
        f.history.close();
        QCOMPARE(f.window.count(QStringLiteral("resignKey")), 1);
    }

    void openedThreadIsShown()
    {
        Fixture f;
        f.history.historyButtonClicked();
        f.history.controller().loadSession(f.stored.id);
        QTRY_COMPARE(f.display.rendered.size(), 1);
        QCOMPARE(f.display.rendered.last().id, f.stored.id);
        QVERIFY(!f.history.model().isOpen());
    }

    void openedHitIsFoundInTheThread()
    {
        Fixture f;
        QSignalSpy requested(&f.find, &FindModel::findInNextPageRequested);
        const QUuid turn = f.stored.turns.first().id;
        f.history.controller().loadSession(f.stored.id, FoundText{"needle", turn, {}});
        QTRY_COMPARE(f.display.rendered.size(), 1);
        QVERIFY(f.find.isOpen());
        QCOMPARE(f.find.text(), QString("needle"));
        QCOMPARE(requested.takeLast(), QVariantList({"needle", turn}));
        // Without a hit, the bar stays as it is.
        f.find.close();
        f.history.controller().loadSession(f.stored.id);
        QVERIFY(!f.find.isOpen());
    }

    void versionOfTheOpenedHitIsShown()
    {
        Fixture f;
        const QUuid turn = f.stored.turns.first().id;
        f.stored.addVersion(turn, {"stored", "other", f.now}, true, f.now);
        f.library.sessions[f.stored.id] = f.stored;
        f.history.controller().loadSession(f.stored.id, FoundText{"needle", turn, 0});
        QTRY_VERIFY(f.threads.currentSession());
        QCOMPARE(f.threads.currentSession()->turns.first().shownVersion, 0);
        QCOMPARE(f.display.rendered.last().turns.first().shownVersion, 0);
        QVERIFY(f.find.isOpen());
        // The current thread is not loaded again, and what its file said need not hold any more.
        f.find.close();
        f.history.controller().loadSession(f.stored.id, FoundText{"needle", turn, 7});
        QCOMPARE(f.threads.currentSession()->turns.first().shownVersion, 0);
        QVERIFY(f.find.isOpen());
    }

    void pendingAnswerStaysWithItsThread()
    {
        Fixture f;
        f.settings.setKeepAIHistoryEnabled(true);
        f.orchestrator.sendPromptOnly("question");
        f.transfer()->answer("half ");
        const QUuid asked = f.threads.currentSession()->id;
        f.history.historyButtonClicked();
        f.history.controller().loadSession(f.stored.id);
        QTRY_COMPARE(f.threads.currentSession()->id, f.stored.id);
        f.transfer()->answer("an answer");
        f.transfer()->finish(done());
        QCOMPARE(f.threads.currentSession()->turns.size(), 1);
        QCOMPARE(f.saver.saved.value(asked).turns.first().response,
                 QStringLiteral("half an answer"));
    }

    void deletingCurrentThreadCancelsItsAnswer()
    {
        Fixture f;
        f.askInStored();
        const QPointer<FakeTransfer> transfer = f.transfer();
        transfer->answer("half");
        QSignalSpy deleted(&f.history, &OverlayHistory::currentThreadDeleted);
        f.openAgain();
        f.history.controller().deleteSession(f.stored.id);
        QCOMPARE(deleted.size(), 1);
        // While it can be undone, the answer goes on unseen.
        QVERIFY(transfer && !transfer->cancelled);
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Idle);
        f.removals.commitAll();
        QTRY_VERIFY(!transfer || transfer->cancelled);
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Idle);
        QVERIFY(!f.threads.currentSession());
    }

    void undoneDeletionShowsTheAnswerThatGoesOn()
    {
        Fixture f;
        f.askInStored();
        f.transfer()->answer("half");
        f.openAgain();
        f.history.controller().deleteSession(f.stored.id);
        f.transfer()->answer(" an answer");
        f.display.streamed.clear();
        f.removals.undo();
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Streaming);
        QCOMPARE(f.display.streamed, "half an answer");
        f.transfer()->finish(done());
        QCOMPARE(f.threads.currentSession()->turns.last().response, "half an answer");
    }

    void answerThatEndsMeanwhileComesBackWithItsThread()
    {
        Fixture f;
        f.askInStored();
        f.openAgain();
        f.history.controller().deleteSession(f.stored.id);
        f.transfer()->answer("whole");
        f.transfer()->finish(done());
        f.removals.undo();
        QCOMPARE(f.threads.currentSession()->turns.last().response, "whole");
        QCOMPARE(f.display.rendered.last().turns.last().response, "whole");
    }

    void failedDeletionKeepsAnswer()
    {
        Fixture f;
        f.askInStored();
        const QPointer<FakeTransfer> transfer = f.transfer();
        transfer->answer("half");
        f.library.failure = StoreError{StoreError::Kind::File, f.stored.id, 0, "not permitted"};
        f.openAgain();
        f.history.controller().deleteSession(f.stored.id);
        f.removals.commitAll();
        QTRY_VERIFY(!f.history.controller().notice().isEmpty());
        QVERIFY(!transfer->cancelled);
        QCOMPARE(f.orchestrator.activity(), QueryOrchestrator::Activity::Streaming);
        transfer->finish(done());
        QCOMPARE(f.threads.currentSession()->turns.last().response, "half");
    }
};

QUELLORA_TEST(QGuiApplication, TestOverlayHistory)
#include "test_overlay_history.moc"
