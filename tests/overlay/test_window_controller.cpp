#include "ControllerFixture.h"
#include "platform/PanelProperties.h"
#include "support/TestProgram.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QQuickItem>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <QVariantAnimation>

using namespace quellora;

namespace {

const QString prefix = QStringLiteral("[OverlayWindowController] ");

using Fixture = ControllerFixture;

AppConfigResponse account(const QString &model = "m1")
{
    AppConfigResponse config;
    config.model = model;
    config.availableModels = {{"m1", "One", "d"}, {"m2", "Two", "d"}};
    config.tokenCap = 1000;
    return config;
}

} // namespace

class TestWindowController : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void answersAreAnnouncedWhileHidden()
    {
        ControllerFixture f;
        f.settings.setNotifyWhenAnswerReady(true);
        f.overlay->show();
        Q_EMIT f.overlay->orchestrator().answerEnded(true);
        QVERIFY(f.platform.systemNotifications.titles.isEmpty());
        f.overlay->toggleVisibility();
        Q_EMIT f.overlay->orchestrator().answerEnded(true);
        QCOMPARE(f.platform.systemNotifications.titles.size(), 1);
        QVERIFY(f.platform.systemNotifications.isShown);
        f.platform.systemNotifications.choose();
        QVERIFY(f.overlay->isVisible());
        QVERIFY(!f.platform.systemNotifications.isShown);
    }

    void thePanelStartsWhereItWasLeft()
    {
        ControllerFixture f;
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        const QRect frame(area.x() + 60, area.y() + 70, 400, 450);
        f.overlay->panel().setGeometry(frame);
        Q_EMIT f.overlay->panel().dragFinished(frame);
        f.overlay->adjustOpacity(-0.5);
        f.make();
        QCOMPARE(f.overlay->panel().geometry(), frame);
        QCOMPARE(f.overlay->overlayModel().currentAlpha(), 0.38);
        QVERIFY(f.log.lines.contains(prefix + QStringLiteral("Panel placed where it was left at "
                                                             "(%1, %2), 400x450")
                                                  .arg(frame.x())
                                                  .arg(frame.y())));
        // Zooming is not remembered, the frame before it is.
        f.overlay->sliderChanged(0.25);
        Q_EMIT f.overlay->overlayModel().zoomRequested();
        f.overlay->sliderChanged(0.5);
        f.make();
        QCOMPARE(f.overlay->panel().geometry(), frame);
        QCOMPARE(f.overlay->overlayModel().currentAlpha(), 0.5);
    }

    void thePanelStartsAsConfiguredIfWanted()
    {
        ControllerFixture f;
        const QRect configured = f.overlay->panel().geometry();
        const QRect frame = configured.adjusted(0, 0, -50, -60);
        f.settings.setStartsWhereLeft(false);
        Q_EMIT f.overlay->panel().dragFinished(frame);
        f.overlay->adjustOpacity(-0.5);
        QVERIFY(!f.defaults.stringDictionary("panelPlaces"));
        // Switching it on remembers the present place.
        f.settings.setStartsWhereLeft(true);
        QCOMPARE(f.defaults.stringDictionary("panelPlaces")->size(), 1);
        f.settings.setStartsWhereLeft(false);
        f.make();
        QCOMPARE(f.overlay->panel().geometry(), configured);
        QCOMPARE(f.overlay->overlayModel().currentAlpha(), 0.88);
        // The present place is the one that counts from now on.
        f.settings.setStartsWhereLeft(true);
        f.make();
        QCOMPARE(f.overlay->panel().geometry(), configured);
    }

    void aPlaceThatFitsNoLongerIsBroughtBack()
    {
        ControllerFixture f;
        PanelMemory(f.defaults).remember({QRect(50000, 50000, 9000, 400), 0.3});
        f.make();
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        const QRect frame = f.overlay->panel().geometry();
        QVERIFY(frame.width() <= std::max(area.width(), 320));
        QVERIFY(area.contains(frame.topLeft()));
        QCOMPARE(f.overlay->overlayModel().currentAlpha(), 0.3);
    }

    void theAnswersTextSizeIsRemembered()
    {
        ControllerFixture f;
        OverlayModel &overlay = f.overlay->overlayModel();
        QCOMPARE(overlay.answerTextScale(), 1.0);
        overlay.changeAnswerText(1);
        QCOMPARE(overlay.answerTextScale(), 1.1);
        QCOMPARE(overlay.notice(), "Answer text 110%");
        overlay.changeAnswerText(1);
        f.make();
        QCOMPARE(f.overlay->overlayModel().answerTextScale(), 1.25);
        f.overlay->overlayModel().changeAnswerText(-1);
        f.overlay->overlayModel().changeAnswerText(0);
        QCOMPARE(f.overlay->overlayModel().answerTextScale(), 1.0);
        // The last size says so, too.
        for (int i = 0; i < 20; ++i)
            f.overlay->overlayModel().changeAnswerText(-1);
        QCOMPARE(f.overlay->overlayModel().notice(), "Answer text 50%");
    }

    void lockedSessionIsNotCaptured()
    {
        ControllerFixture f;
        f.platform.session.setLocked(true);
        f.overlay->triggerCaptureAndSend(CaptureTarget::Screen);
        f.overlay->captureNoSend();
        QVERIFY(!f.overlay->orchestrator().isCapturing());
    }

    void connectingAModelOpensTheAccountPage()
    {
        ControllerFixture f;
        AppConfigResponse config = account();
        f.overlay->applyConfigAtStart(config);
        QVERIFY(!f.overlay->menuModel().connectAvailable());
        config.connectModel = true;
        Q_EMIT f.notifications.configDidUpdate(config);
        QVERIFY(f.overlay->menuModel().connectAvailable());
        f.log.lines.clear();
        Q_EMIT f.overlay->menuModel().connectRequested();
        QCOMPARE(f.log.lines, QStringList{prefix + "Connect a model clicked"});
        QCOMPARE(f.platform.systemWorkspace.urls, QList<QUrl>{QUrl("http://host/account")});
        // Another backend says nothing about it.
        config.connectModel = false;
        Q_EMIT f.notifications.configDidUpdate(config);
        QVERIFY(!f.overlay->menuModel().connectAvailable());
    }

    void hostsOfModelsAreSeenFromTheUser()
    {
        ControllerFixture f;
        AppConfigResponse config = account();
        config.availableModels = {{"m1", "One", "d", "127.0.0.1"}};
        f.overlay->applyConfigAtStart(config);
        const QModelIndex row = f.overlay->panelsModel().models()->index(0, 0);
        QCOMPARE(row.data(ModelListModel::DestinationRole).toString(), "host");
    }

    void noticeIsOfferedIfSupported()
    {
        ControllerFixture f;
        QVERIFY(f.overlay->settings().model().isNoticeOffered());
        f.platform.systemNotifications.answer = Capability::unsupported("none");
        f.make();
        QVERIFY(!f.overlay->settings().model().isNoticeOffered());
    }

    void constructionSequence()
    {
        VantiroConfig config;
        config.overlay = {10, 20, 500, 400, 0.5};
        Fixture f(config);
        QCOMPARE(f.log.lines.at(0), prefix + "init");
        QCOMPARE(f.log.lines.at(1), prefix + "NonFocusPanel created (500.0x400.0)");
        QVERIFY(f.log.lines.at(2).startsWith(prefix + "Positioned at ("));
        QCOMPARE(f.log.lines.at(3),
                 prefix + "Building content view (bounds: (0.0, 0.0, 500.0, 400.0))");
        QVERIFY(f.log.contains(
            prefix + "Content view built and attached (WebView + control bar + bottom panels)"));
        QCOMPARE(f.log.lines.last(), prefix + "init complete");

        const NonFocusPanel &panel = f.overlay->panel();
        QCOMPARE(panel.size(), QSize(500, 400));
        QCOMPARE(panel.minimumSize(), QSize(320, 280));
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        QCOMPARE(panel.geometry().left(), area.left() + 10);
        QCOMPARE(panel.geometry().bottom(), area.bottom() - 20);
        QCOMPARE(f.overlay->overlayModel().currentAlpha(), 0.5);
        QVERIFY(!panel.isVisible());
        QVERIFY(!f.overlay->isVisible());
        QCOMPARE(f.platform.panel.calls.first(), "excludeFromCapture");
        QVERIFY(f.platform.panel.calls.contains("applyPanelTraits"));
        QVERIFY(!f.platform.panel.shownBeforeExclusion);
    }

    void missingExclusionIsLoggedOnce()
    {
        Fixture f;
        f.platform.panel.exclusionAnswer = Capability::unsupported("cannot be prevented here");
        f.log.clear();
        f.make();
        f.overlay->show();
        QCOMPARE(f.log.lines.filter("cannot be prevented here"),
                 QStringList{prefix + "WARNING: cannot be prevented here"});
    }

    void showAndToggle()
    {
        Fixture f;
        f.log.clear();
        f.overlay->toggleVisibility();
        QCOMPARE(f.log.lines, (QStringList{prefix + "Toggling visibility (currently hidden)",
                                           prefix + "Window shown"}));
        QVERIFY(f.overlay->isVisible() && f.overlay->panel().isVisible());
        QCOMPARE(f.platform.panel.count("orderFront"), 1);
        f.log.clear();
        f.overlay->toggleVisibility();
        QCOMPARE(f.log.lines, (QStringList{prefix + "Toggling visibility (currently visible)",
                                           prefix + "Window hidden"}));
        QVERIFY(!f.overlay->isVisible() && !f.overlay->panel().isVisible());
    }

    void minimizeHidesUntilToggled()
    {
        Fixture f;
        f.overlay->show();
        f.overlay->overlayModel().minimize();
        QVERIFY(!f.overlay->isVisible());
        f.overlay->overlayModel().minimize();
        QVERIFY(!f.overlay->isVisible());
        f.overlay->toggleVisibility();
        QVERIFY(f.overlay->isVisible());
    }

    void opacityIsClamped()
    {
        VantiroConfig config;
        config.overlay.defaultOpacity = 0.88;
        Fixture f(config);
        f.log.clear();
        f.overlay->adjustOpacity(0.1);
        QCOMPARE(f.log.lines, QStringList{prefix + "Opacity adjusted by +0.1 -> 0.98"});
        f.overlay->adjustOpacity(0.1);
        QCOMPARE(f.overlay->overlayModel().currentAlpha(), 1.0);
        f.overlay->sliderChanged(0.05);
        QCOMPARE(f.log.lines.last(), prefix + "Opacity set via slider: 0.05");
        f.overlay->adjustOpacity(-0.1);
        QCOMPARE(f.overlay->overlayModel().currentAlpha(), 0.0);
        QCOMPARE(f.log.lines.last(), prefix + "Opacity adjusted by -0.1 -> 0.00");
    }

    void zoomGrowsAndRestores()
    {
        Fixture f;
        const QRect before = f.overlay->panel().geometry();
        f.log.clear();
        Q_EMIT f.overlay->overlayModel().zoomRequested();
        QCOMPARE(f.overlay->panel().geometry(), f.overlay->panel().screen()->availableGeometry());
        Q_EMIT f.overlay->overlayModel().zoomRequested();
        QCOMPARE(f.overlay->panel().geometry(), before);
        QCOMPARE(f.log.lines,
                 (QStringList{
                     prefix + QString::fromUtf8("Zoom button — grew to fill the current screen's "
                                                "visible frame"),
                     prefix + QString::fromUtf8("Zoom button — restored to prior frame")}));
    }

    void zoomOfVisiblePanelIsAnimated()
    {
        Fixture f;
        f.overlay->show();
        const QRect target = f.overlay->panel().screen()->availableGeometry();
        Q_EMIT f.overlay->overlayModel().zoomRequested();
        QTRY_COMPARE(f.overlay->panel().geometry(), target);
    }

    void closeButtonQuits()
    {
        Fixture f;
        f.overlay->overlayModel().close();
        QCOMPARE(f.quits, 1);
        QCOMPARE(f.log.lines.last(), prefix + "Close button clicked, quitting application");
    }

    void clickThroughEndsWhileMenuIsOpen()
    {
        Fixture f;
        f.overlay->show();
        QTRY_VERIFY(f.overlay->overlayModel().bottomPanelsHeight() > 0);
        const QRect area = f.platform.panel.clickThroughRects.last();
        QCOMPARE(area.x(), 0);
        QCOMPARE(area.y(), 72);
        QCOMPARE(area.width(), 624 - 28);
        QCOMPARE(area.height(),
                 qRound(744 - 34 - 38 - f.overlay->overlayModel().bottomPanelsHeight()));
        f.log.clear();
        f.overlay->toggleHamburgerMenu();
        QVERIFY(f.platform.panel.clickThroughRects.last().isEmpty());
        f.overlay->toggleHamburgerMenu();
        QCOMPARE(f.platform.panel.clickThroughRects.last(), area);
        QCOMPARE(f.log.lines,
                 (QStringList{
                     prefix + QString::fromUtf8("Hamburger button clicked — menu open=true"),
                     prefix + QString::fromUtf8("Hamburger button clicked — menu open=false")}));
    }

    void clicksReachTheAnswerUntilThePanelIsHidden()
    {
        Fixture f;
        f.overlay->show();
        QTRY_VERIFY(f.overlay->overlayModel().bottomPanelsHeight() > 0);
        const QRect area = f.platform.panel.clickThroughRects.last();
        f.log.clear();
        f.overlay->overlayModel().toggleClicks();
        QVERIFY(f.platform.panel.clickThroughRects.last().isEmpty());
        f.overlay->toggleClicks();
        QCOMPARE(f.platform.panel.clickThroughRects.last(), area);
        QCOMPARE(f.log.lines, (QStringList{prefix + "Clicks go to the answer",
                                           prefix + "Clicks go through the answer"}));
        f.overlay->toggleClicks();
        f.overlay->toggleVisibility();
        QVERIFY(!f.overlay->overlayModel().takesClicks());
        QCOMPARE(f.platform.panel.clickThroughRects.last(), area);
        f.overlay->show();
        QVERIFY(!f.overlay->overlayModel().takesClicks());
        QCOMPARE(f.platform.panel.clickThroughRects.last(), area);
    }

    void clicksOfAHiddenPanelShowIt()
    {
        Fixture f;
        f.overlay->toggleClicks();
        QVERIFY(f.overlay->isVisible());
        QVERIFY(f.overlay->overlayModel().takesClicks());
        QVERIFY(f.platform.panel.clickThroughRects.last().isEmpty());
    }

    void clicksAreOfferedForMoreThanTheHint()
    {
        Fixture f;
        QVERIFY(!f.overlay->overlayModel().areClicksOffered());
        f.overlay->threads().addNote("note");
        f.overlay->orchestrator().showCurrentThread();
        QVERIFY(f.overlay->overlayModel().areClicksOffered());
        f.overlay->clearContent();
        QVERIFY(!f.overlay->overlayModel().areClicksOffered());
    }

    void menuLinksOpenPages()
    {
        Fixture f;
        f.log.clear();
        Q_EMIT f.overlay->menuModel().accountRequested();
        Q_EMIT f.overlay->menuModel().upgradeRequested();
        QCOMPARE(f.log.lines, (QStringList{prefix + "Account link clicked",
                                           prefix + "Usage row Upgrade link clicked"}));
        QCOMPARE(f.platform.systemWorkspace.urls,
                 (QList<QUrl>{QUrl("http://host/account"), QUrl("http://host/pricing")}));
    }

    void openFailureShowsNotice_data()
    {
        QTest::addColumn<std::function<void(Fixture &)>>("press");
        const auto row = [](const char *name, std::function<void(Fixture &)> press) {
            QTest::newRow(name) << press;
        };
        row("account", [](Fixture &f) { Q_EMIT f.overlay->menuModel().accountRequested(); });
        row("upgrade", [](Fixture &f) { Q_EMIT f.overlay->menuModel().upgradeRequested(); });
        row("help", [](Fixture &f) { Q_EMIT f.overlay->settings().model().helpRequested(); });
        row("card", [](Fixture &f) {
            f.overlay->messages().handleServerMessage("no");
            f.overlay->panelsModel().performMessageAction();
        });
        row("link", [](Fixture &f) { Q_EMIT f.surface->linkActivated("https://example.org/"); });
    }

    void openFailureShowsNotice()
    {
        using Press = std::function<void(Fixture &)>;
        QFETCH(Press, press);
        Fixture f;
        f.platform.systemWorkspace.answer.reset();
        press(f);
        QCOMPARE(f.platform.systemWorkspace.urls.size(), 1);
        QVERIFY(f.overlay->overlayModel().notice().isEmpty());
        f.platform.systemWorkspace.finish(FakeWorkspace::failure());
        QTRY_COMPARE(f.overlay->overlayModel().notice(),
                     "Could not open the browser: nobody answers");
        f.overlay->overlayModel().showNotice(QString());
        press(f);
        f.platform.systemWorkspace.finish(FakeWorkspace::opened());
        QCoreApplication::processEvents();
        QVERIFY(f.overlay->overlayModel().notice().isEmpty());
    }

    void showNoticeRaisesPanel()
    {
        Fixture f;
        QVERIFY(!f.overlay->isVisible());
        f.overlay->showNotice("Could not open the browser: nobody answers");
        QVERIFY(f.overlay->isVisible());
        QCOMPARE(f.overlay->overlayModel().notice(), "Could not open the browser: nobody answers");
    }

    void menuSignOutEndsSession()
    {
        Fixture f;
        f.auth.setSession("token", account());
        QSignalSpy ended(&f.notifications, &NotificationCenter::sessionDidEnd);
        QSignalSpy expired(&f.notifications, &NotificationCenter::sessionExpired);
        connect(&f.notifications, &NotificationCenter::sessionExpired, this,
                [&] { QCOMPARE(ended.size(), 1); });
        f.log.clear();
        Q_EMIT f.overlay->menuModel().signOutRequested();
        QCOMPARE(f.log.lines.first(), prefix + "Sign Out clicked");
        QVERIFY(!f.auth.sessionToken());
        QCOMPARE(ended.size(), 1);
        QCOMPARE(expired.size(), 1);
    }

    void clearKeepsThreadAndNewThreadReplacesIt()
    {
        Fixture f;
        f.overlay->threads().addNote("note");
        const QUuid id = f.overlay->threads().currentSession()->id;
        f.log.clear();
        f.overlay->clearContent();
        QCOMPARE(f.log.lines.first(), prefix + "Content cleared");
        QCOMPARE(f.overlay->threads().currentSession()->id, id);
        f.log.clear();
        f.overlay->startNewThread();
        QCOMPARE(f.log.lines.first(), prefix + "Content cleared");
        QCOMPARE(f.log.lines.last(), prefix + "New thread started");
        QVERIFY(f.overlay->threads().currentSession()->id != id);
        QVERIFY(f.overlay->threads().currentSession()->notes.isEmpty());
    }

    void announcementsReachThePort()
    {
        Fixture f;
        struct Watch : QObject
        {
            bool eventFilter(QObject *watched, QEvent *event) override
            {
                if (event->type() == QEvent::DynamicPropertyChange)
                    texts << watched->property(announcementProperty).toString();
                return false;
            }
            QStringList texts;
        } watch;
        f.overlay->panel().installEventFilter(&watch);
        // The same text counts twice.
        Q_EMIT f.overlay->overlayModel().announced("Done.");
        Q_EMIT f.overlay->overlayModel().announced("Done.");
        watch.texts.removeAll(QString());
        QCOMPARE(watch.texts, QStringList({"Done.", "Done."}));
    }

    void removedNoteCanBeBroughtBack()
    {
        Fixture f;
        OverlayModel &overlay = f.overlay->overlayModel();
        ThreadController &threads = f.overlay->threads();
        threads.addNote("first note");
        threads.addNote("second note");
        f.overlay->orchestrator().showCurrentThread();
        QTRY_VERIFY(f.surface->page().contains("second note"));
        const auto notes = threads.currentSession()->notes;
        f.surface->post(QStringLiteral("noteDelete"),
                        notes.at(0).id.toString(QUuid::WithoutBraces));
        QCOMPARE(threads.currentSession()->notes.size(), 1);
        QCOMPARE(overlay.undoText(), "Deleted a note");
        QTRY_VERIFY(!f.surface->page().contains("first note"));
        // A second press on a page that has not been replaced yet.
        f.surface->post(QStringLiteral("noteDelete"),
                        notes.at(0).id.toString(QUuid::WithoutBraces));
        overlay.undo();
        QCOMPARE(threads.currentSession()->notes, notes);
        QCOMPARE(overlay.undoText(), QString());
        QTRY_VERIFY(f.surface->page().contains("first note"));
        overlay.undo();
        QCOMPARE(threads.currentSession()->notes, notes);
    }

    void removalsAreForGoodAtTheEnd_data()
    {
        QTest::addColumn<int>("end");
        QTest::newRow("sign out") << 0;
        QTest::newRow("display lost") << 1;
        QTest::newRow("quit") << 2;
    }
    void removalsAreForGoodAtTheEnd()
    {
        QFETCH(const int, end);
        Fixture f;
        const QUuid id = f.library.add("gone", QDateTime::currentDateTime()).id;
        HistoryController &history = f.overlay->history()->controller();
        history.historyButtonClicked();
        QTRY_COMPARE(history.historySessions().size(), 1);
        history.deleteSession(id);
        QCOMPARE(f.overlay->overlayModel().undoText(), "Deleted “gone”");
        QVERIFY(f.library.sessions.contains(id));
        if (end == 0)
            f.overlay->closeWindow();
        else if (end == 1)
            f.overlay->finishAtOnce();
        else
            f.overlay.reset();
        QVERIFY(!f.library.sessions.contains(id));
    }

    void deletedThreadOnShowCanBeBroughtBack()
    {
        Fixture f;
        const QUuid id = f.library.add("question", QDateTime::currentDateTime()).id;
        HistoryController &history = f.overlay->history()->controller();
        history.historyButtonClicked();
        QTRY_COMPARE(history.historySessions().size(), 1);
        history.loadSession(id);
        QTRY_VERIFY(f.surface->page().contains("An answer."));
        history.historyButtonClicked();
        history.deleteSession(id);
        QTRY_VERIFY(!f.surface->page().contains("An answer."));
        f.overlay->overlayModel().undo();
        QTRY_VERIFY(f.surface->page().contains("An answer."));
        QCOMPARE(f.overlay->threads().currentSession()->id, id);
    }

    void failedDeletionIsToldWhereTheUserIs()
    {
        Fixture f;
        const QUuid id = f.library.add("stays", QDateTime::currentDateTime()).id;
        HistoryController &history = f.overlay->history()->controller();
        history.historyButtonClicked();
        QTRY_COMPARE(history.historySessions().size(), 1);
        history.deleteSession(id);
        history.close();
        f.library.failure = StoreError{StoreError::Kind::File, id, 0, "not permitted"};
        f.overlay->finishAtOnce();
        QTRY_COMPARE(f.overlay->overlayModel().notice(), "This thread can't be deleted.");
    }

    void lastQuestionIsOffered()
    {
        Fixture f;
        OverlayModel &overlay = f.overlay->overlayModel();
        BottomPanelsModel &panels = f.overlay->panelsModel();
        f.overlay->retry();
        QCOMPARE(overlay.notice(), "There is no question to ask again.");
        QVERIFY(!overlay.canAskAgain());

        CaptureSession session = CaptureSession::create();
        session.addTurn("q", "one", QDateTime::currentDateTime());
        session.addVersion(session.turns[0].id, {"q2", "two", QDateTime::currentDateTime()}, true);
        f.overlay->threads().setCurrentSession(session);
        QVERIFY(overlay.canAskAgain());
        QCOMPARE(overlay.versionCount(), 2);
        QCOMPARE(overlay.shownVersion(), 1);
        overlay.showVersion(0);
        QCOMPARE(overlay.shownVersion(), 0);
        QCOMPARE(f.overlay->threads().currentSession()->turns[0].response, "one");

        f.settings.setUserPrompt("draft");
        QSignalSpy focused(&panels, &BottomPanelsModel::promptFocusRequested);
        overlay.editQuestion();
        QVERIFY(panels.isEditing() && !panels.isScreenshotKept());
        QCOMPARE(panels.promptText(), "q");
        QCOMPARE(focused.size(), 1);
        QVERIFY(!overlay.canAskAgain());
        panels.cancelEditing();
        QVERIFY(!panels.isEditing());
        QCOMPARE(panels.promptText(), "draft");
        QVERIFY(overlay.canAskAgain());

        f.overlay->clearContent();
        QVERIFY(!overlay.canAskAgain());
        QCOMPARE(overlay.versionCount(), 1);
        f.overlay->startNewThread();
        QVERIFY(!overlay.canAskAgain());
    }

    void modelSelectionFallsBack()
    {
        Fixture f;
        ModelListModel &models = *f.overlay->panelsModel().models();
        f.overlay->applyConfigAtStart(account());
        QCOMPARE(models.selectedId(), "m1");
        QVERIFY(!f.defaults.stringValue("selectedModelId"));
        models.choose("m2");
        QCOMPARE(f.defaults.stringValue("selectedModelId"), "m2");
        f.overlay->applyConfigAtStart(account());
        QCOMPARE(models.selectedId(), "m2");
        AppConfigResponse other = account("x");
        other.availableModels = {{"m3", "Three", "d"}};
        f.overlay->applyConfigAtStart(other);
        QCOMPARE(models.selectedId(), QString());
        QCOMPARE(f.defaults.stringValue("selectedModelId"), "m2");
    }

    void configurationUpdatesAreApplied()
    {
        Fixture f;
        AppConfigResponse config = account();
        config.tokensUsed = 850;
        config.adminMessage = AdminMessagePayload{"server", "INFORMATIONAL", "h", "b", {}, {}, {}};
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(f.overlay->messages().tokensUsed(), 850);
        QVERIFY(f.overlay->overlayModel().isUsageShown());
        QCOMPARE(f.overlay->messages().currentAdminMessage()->id, "server");
        config.adminMessage.reset();
        Q_EMIT f.notifications.configDidUpdate(config);
        QVERIFY(!f.overlay->messages().currentAdminMessage());
        f.overlay->messages().handleProtectedContentCapture();
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(f.overlay->messages().currentAdminMessage()->id, "local_protected_content");
    }

    void startupMessageYieldsToServerMessage()
    {
        Fixture f;
        f.permissions.setProblem("capture", "a hot key");
        const auto shown = [&f] {
            const auto &message = f.overlay->messages().currentAdminMessage();
            return message ? message->id : QString();
        };
        QCOMPARE(shown(), "startup-permission-issues");
        AppConfigResponse config = account();
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(shown(), "startup-permission-issues");
        config.adminMessage = AdminMessagePayload{"server", "BLOCKING", "h", "b", {}, {}, {}};
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(shown(), "server");
        QVERIFY(f.overlay->messages().isBlocked());
        // A further local problem does not replace the server's message.
        f.permissions.setProblem("clear", "another hot key");
        QCOMPARE(shown(), "server");
        config.adminMessage.reset();
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(shown(), "startup-permission-issues");
        QCOMPARE(f.overlay->panelsModel().messageHeader(), "Startup issues");
        // A local refusal is not dismissed by a configuration without a message.
        f.overlay->messages().handleProtectedContentCapture();
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(shown(), "local_protected_content");
    }

    void startupMessageIsRemovedOnceGranted()
    {
        Fixture f;
        f.platform.systemPermissions.accessibility = false;
        f.platform.systemPermissions.screenRecording = false;
        f.permissions.checkAccessibility();
        f.permissions.checkScreenRecording();
        AppConfigResponse config = account();
        config.adminMessage = AdminMessagePayload{"server", "INFORMATIONAL", "h", "b", {}, {}, {}};
        f.auth.setSession("token", config);
        f.overlay->messages().setCurrentAdminMessage(f.permissions.pendingAdminMessage());
        const auto activate = [] {
            Q_EMIT qGuiApp->applicationStateChanged(Qt::ApplicationInactive);
            Q_EMIT qGuiApp->applicationStateChanged(Qt::ApplicationActive);
        };
        activate();
        QCOMPARE(f.overlay->panelsModel().messageHeader(), "Startup issues");
        f.platform.systemPermissions.accessibility = true;
        activate();
        QCOMPARE(f.overlay->panelsModel().messageHeader(), "Startup issue");
        f.platform.systemPermissions.screenRecording = true;
        activate();
        // The server's message reappears.
        QCOMPARE(f.overlay->messages().currentAdminMessage()->id, "server");
        QVERIFY(!f.permissions.pendingAdminMessage());

        config.adminMessage.reset();
        f.auth.setSession("token", config);
        Q_EMIT f.notifications.configDidUpdate(config);
        QVERIFY(!f.overlay->messages().currentAdminMessage());
    }

    void localProblemTakesPrecedenceAtSignIn()
    {
        AppConfigResponse config = account();
        config.adminMessage = AdminMessagePayload{"server", "BLOCKING", "h", "b", {}, {}, {}};
        Fixture f;
        f.overlay->applyConfigAtStart(config);
        QCOMPARE(f.overlay->messages().currentAdminMessage()->id, "server");
        f.platform.systemPermissions.accessibility = false;
        f.permissions.checkAccessibility();
        f.overlay->applyConfigAtStart(config);
        QCOMPARE(f.overlay->messages().currentAdminMessage()->id, "startup-permission-issues");
    }

    void activationKeepsOtherMessages()
    {
        Fixture f;
        f.platform.systemPermissions.accessibility = false;
        f.permissions.checkAccessibility();
        f.overlay->messages().setCurrentAdminMessage(
            AdminMessagePayload{"server", "INFORMATIONAL", "h", "b", {}, {}, {}});
        f.platform.systemPermissions.accessibility = true;
        Q_EMIT qGuiApp->applicationStateChanged(Qt::ApplicationActive);
        QCOMPARE(f.overlay->messages().currentAdminMessage()->id, "server");
        Q_EMIT f.notifications.configDidUpdate(account());
        QVERIFY(!f.overlay->messages().currentAdminMessage());
    }

    void refreshKeepsUserState()
    {
        Fixture f;
        f.overlay->applyConfigAtStart(account());
        f.overlay->show();
        f.overlay->panelsModel().setPromptText("half a ques");
        f.overlay->panelsModel().setPromptFocused(true);
        f.overlay->toggleHamburgerMenu();
        AppConfigResponse config = account();
        config.adminMessage = AdminMessagePayload{"note", "INFORMATIONAL", "News", "b", {}, {}, {}};
        Q_EMIT f.notifications.configDidUpdate(config);
        f.overlay->panelsModel().toggleMessageCollapsed();
        QVERIFY(f.overlay->panelsModel().isMessageCollapsed());

        QSignalSpy text(&f.overlay->panelsModel(), &BottomPanelsModel::promptTextChanged);
        QSignalSpy message(&f.overlay->panelsModel(), &BottomPanelsModel::messageChanged);
        config.tokensUsed = 400;
        config.availableModels = {{"m2", "Two", "d"}, {"m3", "Three", "d"}};
        config.model = "m2";
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(text.count(), 0);
        QCOMPARE(message.count(), 0);
        QCOMPARE(f.overlay->panelsModel().promptText(), "half a ques");
        QVERIFY(f.overlay->panelsModel().isPromptFocused());
        QVERIFY(f.overlay->panelsModel().isMessageCollapsed());
        QVERIFY(f.overlay->overlayModel().isMenuOpen());
        // The selected model is no longer offered, so the server's default is used.
        QCOMPARE(f.overlay->panelsModel().models()->selectedName(), "Two");
        QCOMPARE(f.overlay->panelsModel().models()->selectedId(), "m2");
        // A message with another ID is new and is shown expanded.
        config.adminMessage->id = "other";
        Q_EMIT f.notifications.configDidUpdate(config);
        QVERIFY(!f.overlay->panelsModel().isMessageCollapsed());
    }

    void refreshKeepsForcedUpdateCountdown()
    {
        Fixture f;
        AppConfigResponse config = account();
        config.adminMessage = AdminMessagePayload{"up", "BLOCKING", "Update", "Do it.", {}, {}, 5};
        Q_EMIT f.notifications.configDidUpdate(config);
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(f.log.lines.count(prefix + "Forced update countdown started: 5min, message id up"),
                 1);
        QVERIFY(f.overlay->messages().displayedAdminMessage()->bodyMarkdown.endsWith(
            "You have **5 minutes** before access is restricted."));
        config.adminMessage.reset();
        Q_EMIT f.notifications.configDidUpdate(config);
        QVERIFY(!f.overlay->messages().isBlocked());
    }

    void outOfCreditsKeepsPendingAnswer()
    {
        Fixture f;
        f.auth.setSession("token", account());
        f.overlay->messages().updateUsage(1, 1000);
        f.overlay->panelsModel().setPromptText("question");
        f.overlay->panelsModel().send();
        QCOMPARE(f.overlay->orchestrator().activity(), QueryOrchestrator::Activity::Waiting);
        // Showing the out-of-credits page also shows the window.
        const auto pagesShown = [&f] { return f.log.lines.count(prefix + "Window shown"); };
        const auto before = pagesShown();
        AppConfigResponse config = account();
        config.tokensUsed = 1000;
        Q_EMIT f.notifications.configDidUpdate(config);
        QVERIFY(f.overlay->messages().isBlocked());
        QCOMPARE(pagesShown(), before);
        f.overlay->orchestrator().stop();
        // Without a pending answer, the page is shown.
        config.tokensUsed = 1;
        Q_EMIT f.notifications.configDidUpdate(config);
        config.tokensUsed = 1000;
        Q_EMIT f.notifications.configDidUpdate(config);
        QCOMPARE(pagesShown(), before + 1);
        QTRY_VERIFY(f.surface->page().contains("Out of Credits"));
    }

    void repeatedCreationDoesNotLeak()
    {
        Fixture f;
        const auto processEvents = [] {
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            QCoreApplication::processEvents();
        };
        const auto cycle = [&] {
            f.make();
            f.overlay->messages().updateUsage(1, 1000);
            f.overlay->show();
            processEvents();
            f.overlay->closeWindow();
            f.overlay.reset();
            processEvents();
        };
        for (int i = 0; i < 3; ++i)
            cycle();
        const auto windows = QGuiApplication::allWindows().size();
        const auto children = qApp->findChildren<QObject *>().size();
        const auto defaultsChildren = f.defaults.children().size();
        for (int i = 0; i < 100; ++i)
            cycle();
        QCOMPARE(QGuiApplication::allWindows().size(), windows);
        QCOMPARE(qApp->findChildren<QObject *>().size(), children);
        QCOMPARE(f.defaults.children().size(), defaultsChildren);
    }

    void blockingIsShownInPanelsAndStrip()
    {
        Fixture f;
        f.overlay->messages().updateUsage(1, 1000);
        QVERIFY(!f.overlay->panelsModel().isBlocked());
        f.overlay->messages().handleServerMessage("no");
        QVERIFY(f.overlay->panelsModel().isBlocked());
        QCOMPARE(f.overlay->panelsModel().messageHeader(), "Credit Limit Reached");
        QCOMPARE(f.overlay->overlayModel().status(), OverlayModel::Status::Blocked);
        f.overlay->panelsModel().performMessageAction();
        QCOMPARE(f.platform.systemWorkspace.urls.last(), QUrl("http://host/account/billing"));
    }

    void themeFollowsPreference()
    {
        Fixture f;
        f.defaults.setString("com.quellora.app.appearance", "light");
        f.make();
        QCOMPARE(f.overlay->overlayModel().appliedTheme(), AppTheme::Light);
        f.defaults.setString("com.quellora.app.appearance", "Dark");
        f.platform.systemAppearance.dark = true;
        f.make();
        QCOMPARE(f.overlay->overlayModel().appliedTheme(), AppTheme::Dark);
        f.platform.systemAppearance.setDark(false);
        QCOMPARE(f.overlay->overlayModel().appliedTheme(), AppTheme::Light);
    }

    void removedAttachmentIsNotSent()
    {
        Fixture f;
        f.overlay->threads().stageScreenshot("jpeg");
        QVERIFY(f.overlay->panelsModel().hasAttachedScreenshot());
        f.overlay->panelsModel().removeAttachment();
        QVERIFY(!f.overlay->threads().hasAttachedScreenshot());
        QVERIFY(!f.overlay->panelsModel().hasAttachedScreenshot());
    }

    void copyUsesLastAnswer()
    {
        Fixture f;
        CaptureSession session = CaptureSession::create();
        session.addTurn("q", "**first**", session.createdAt);
        session.addTurn("q", "**last**", session.createdAt);
        f.overlay->threads().setCurrentSession(session);
        f.overlay->overlayModel().copyAnswer();
        QCOMPARE(QGuiApplication::clipboard()->text(), "**last**");
    }

    void captureDisablesButtons()
    {
        Fixture f;
        f.overlay->messages().updateUsage(0, 1000);
        f.capture.start();
        f.overlay->orchestrator().captureNoSend();
        QVERIFY(f.overlay->panelsModel().isCapturing());
        QCOMPARE(f.overlay->overlayModel().status(), OverlayModel::Status::Capturing);
        f.capture.addResult(ScreenshotCapture::Result{"jpeg", 1});
        f.capture.finish();
        QTRY_VERIFY(!f.overlay->panelsModel().isCapturing());
        QVERIFY(f.overlay->panelsModel().hasAttachedScreenshot());
        QVERIFY(f.settings.hasLaunchedBefore());
    }

    void pageUpdatesPauseDuringThumbDrag()
    {
        Fixture f;
        f.overlay->toggleVisibility();
        NonFocusPanel &panel = f.overlay->panel();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        f.surface->post(
            "scrollPosition",
            QVariantMap{{"scrollTop", 300.0}, {"scrollHeight", 2000.0}, {"clientHeight", 400.0}});
        auto *thumb = panel.contentItem()->findChild<QQuickItem *>("scrollThumb");
        QVERIFY(thumb);
        const QPoint center =
            thumb->mapToScene(QPointF(thumb->width() / 2, thumb->height() / 2)).toPoint();
        const auto render = [] { return QString("render"); };
        const auto runs = [&f] { return f.surface->scripts.count("render"); };
        QTest::mousePress(&panel, Qt::LeftButton, {}, center);
        f.surface->evaluatePaced(render);
        QTest::mouseMove(&panel, center + QPoint(0, 5));
        f.surface->evaluatePaced(render);
        QCOMPARE(runs(), 0);
        // Scrolling caused by the drag is not paused.
        QVERIFY(f.surface->scripts.last().contains("extent"));
        QTest::mouseRelease(&panel, Qt::LeftButton, {}, center + QPoint(0, 5));
        QCOMPARE(runs(), 1);
    }

    void stopCancelsCaptureAndEnablesButtons()
    {
        Fixture f;
        f.overlay->messages().updateUsage(0, 1000);
        f.capture.start();
        f.overlay->orchestrator().captureNoSend();
        QVERIFY(f.overlay->overlayModel().canStop());
        f.overlay->overlayModel().stop();
        QVERIFY(f.capture.isCanceled());
        QVERIFY(!f.overlay->panelsModel().isCapturing());
        QCOMPARE(f.overlay->overlayModel().status(), OverlayModel::Status::Stopped);
        QVERIFY(!f.overlay->overlayModel().canStop());
        f.capture.finish();
    }

    void refusalShowsHiddenPanel()
    {
        Fixture f;
        f.overlay->messages().updateUsage(1000, 1000);
        f.overlay->show();
        f.overlay->toggleVisibility();
        f.log.clear();
        f.overlay->orchestrator().triggerCaptureAndSend();
        QVERIFY(f.overlay->isVisible() && f.overlay->panel().isVisible());
        QCOMPARE(f.log.lines.last(), prefix + "Window shown");
        QCOMPARE(f.overlay->panelsModel().messageHeader(), "Credit Limit Reached");
        // A visible panel is not shown again.
        f.log.clear();
        f.overlay->orchestrator().triggerCaptureAndSend();
        QVERIFY(!f.log.lines.contains(prefix + "Window shown"));
    }

    void failedCaptureShowsHiddenPanel()
    {
        Fixture f;
        f.overlay->messages().updateUsage(0, 1000);
        f.capture.start();
        f.overlay->orchestrator().captureNoSend();
        f.capture.addResult(tl::unexpected(ScreenshotCapture::CaptureError{
            ScreenshotCapture::CaptureError::Kind::ProtectedContent, {}, 0}));
        f.capture.finish();
        QTRY_VERIFY(f.overlay->isVisible());
        QCOMPARE(f.overlay->panelsModel().messageHeader(), "Couldn't Capture Screen");
    }

    void initialFrameFitsScreen()
    {
        // A position and size for a much larger screen.
        VantiroConfig config;
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        config.overlay.x = area.width() + 500;
        config.overlay.y = area.height();
        config.overlay.width = area.width() + 100;
        Fixture f(config);
        const QRect frame = f.overlay->panel().geometry();
        QCOMPARE(frame, QRect(area.x(), area.y(), area.width(), 744));
    }

    void panelReturnsWhenDraggedOffScreen()
    {
        Fixture f;
        f.overlay->show();
        NonFocusPanel &panel = f.overlay->panel();
        const QRect area = panel.screen()->availableGeometry();
        const auto drop = [&](const QPoint &position) {
            panel.mouseDown({5, 5});
            QTest::mouseMove(&panel, position - panel.position() + QPoint(5, 5));
            QTest::mouseRelease(&panel, Qt::LeftButton, {}, {5, 5});
        };
        // A panel moved off the screen while hidden is moved back when shown.
        f.overlay->toggleVisibility();
        const QPoint before = panel.position();
        panel.setPosition(area.topLeft() + QPoint(-3000, 0));
        f.overlay->toggleVisibility();
        QCOMPARE(panel.position(), before);

        drop(area.topLeft() + QPoint(-300, -20));
        QTRY_COMPARE(panel.position(), area.topLeft());
        // Only the control bar must stay on the screen.
        drop(area.bottomLeft() + QPoint(10, -100));
        QTRY_COMPARE(panel.position(), area.bottomLeft() + QPoint(10, -100));
        drop(area.bottomLeft() + QPoint(10, 300));
        QTRY_COMPARE(panel.position(), area.bottomLeft() + QPoint(10, 1 - 34));
    }

    void panelFollowsThePointerWhileItReturns()
    {
        Fixture f;
        f.overlay->show();
        NonFocusPanel &panel = f.overlay->panel();
        const QRect area = panel.screen()->availableGeometry();
        const auto dragTo = [&](const QPoint &position) {
            panel.mouseDown({5, 5});
            QTest::mouseMove(&panel, position - panel.position() + QPoint(5, 5));
        };
        const auto drop = [&] { QTest::mouseRelease(&panel, Qt::LeftButton, {}, {5, 5}); };
        dragTo(area.topLeft() + QPoint(-300, -20));
        drop();
        QVERIFY(panel.position() != area.topLeft());

        const QPoint wanted = area.topLeft() + QPoint(50, 60);
        dragTo(wanted);
        // It would have returned by then.
        QVariantAnimation returning;
        returning.setDuration(300);
        returning.setStartValue(0);
        returning.setEndValue(1);
        returning.start();
        QTRY_COMPARE(returning.state(), QAbstractAnimation::Stopped);
        QCOMPARE(panel.position(), wanted);
        drop();
        QCOMPARE(panel.position(), wanted);
    }

    void unzoomRestoresUserFrame()
    {
        Fixture f;
        f.overlay->show();
        NonFocusPanel &panel = f.overlay->panel();
        const QRect area = panel.screen()->availableGeometry();
        const QRect before = panel.geometry();
        QTest::mousePress(&panel, Qt::LeftButton, {}, {before.width() - 2, before.height() / 2});
        QTest::mouseMove(&panel, {before.width() - 102, before.height() / 2});
        QTest::mouseRelease(&panel, Qt::LeftButton, {}, {498, before.height() / 2});
        const QRect placed = panel.geometry();
        QVERIFY(placed.width() < before.width());
        Q_EMIT f.overlay->overlayModel().zoomRequested();
        QTRY_COMPARE(panel.geometry(), area);
        Q_EMIT f.overlay->overlayModel().zoomRequested();
        QTRY_COMPARE(panel.geometry(), placed);
    }

    void captureAfterDestructionIsIgnored()
    {
        Fixture f;
        f.overlay->messages().updateUsage(0, 1000);
        f.capture.start();
        f.overlay->orchestrator().triggerCaptureAndSend();
        f.overlay.reset();
        f.capture.addResult(ScreenshotCapture::Result{"jpeg", 1});
        f.capture.finish();
        QCoreApplication::processEvents();
        QVERIFY(!f.log.lines.last().contains("ERROR"));
    }
};

QUELLORA_TEST(QGuiApplication, TestWindowController)
#include "test_window_controller.moc"
