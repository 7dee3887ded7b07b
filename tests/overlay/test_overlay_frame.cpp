#include "OverlayDriver.h"
#include "support/TestProgram.h"

#include <QGuiApplication>

using namespace quellora;

/// Menu, status strip, scrollbar, opacity, window buttons and rendering when idle.
class TestOverlayFrame : public OverlayDriver
{
    Q_OBJECT
private Q_SLOTS:
    // Menu

    void menuKeyboardNavigation()
    {
        showActive();
        QSignalSpy account(&f().menu, &HamburgerMenuModel::accountRequested);
        f().find("menuButton")->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QVERIFY(f().overlay.isMenuOpen());
        QCOMPARE(focusName(), QStringLiteral("Account"));
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QCOMPARE(focusName(), QStringLiteral("Upgrade"));
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QCOMPARE(focusName(), QStringLiteral("Sign Out"));
        QTest::keyClick(&f().panel, Qt::Key_Tab);
        QCOMPARE(focusName(), QStringLiteral("Account"));
        QTest::keyClick(&f().panel, Qt::Key_End);
        QCOMPARE(focusName(), QStringLiteral("Sign Out"));
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QVERIFY(!f().overlay.isMenuOpen());
        QCOMPARE(focusName(), QStringLiteral("Menu"));
        QCOMPARE(account.size(), 0);
    }

    void menuRowsTriggerActionAndClose()
    {
        showActive();
        QSignalSpy account(&f().menu, &HamburgerMenuModel::accountRequested);
        QSignalSpy upgrade(&f().menu, &HamburgerMenuModel::upgradeRequested);
        click("menuButton");
        click("menuAccount");
        QCOMPARE(account.size(), 1);
        QVERIFY(!f().overlay.isMenuOpen());
        click("menuButton");
        QTest::keyClick(&f().panel, Qt::Key_Up);
        QTest::keyClick(&f().panel, Qt::Key_Up);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(upgrade.size(), 1);
        QVERIFY(!f().overlay.isMenuOpen());
        QSignalSpy signOut(&f().menu, &HamburgerMenuModel::signOutRequested);
        click("menuButton");
        click("menuSignOut");
        QCOMPARE(signOut.size(), 1);
        QVERIFY(!f().overlay.isMenuOpen());
    }

    void menuLeadsToConnectingAModelOnlyWhenNoneAnswers()
    {
        showActive();
        QVERIFY(!f().find("menuConnectModel")->isVisible());
        f().menu.setConnectAvailable(true);
        QSignalSpy connectModel(&f().menu, &HamburgerMenuModel::connectRequested);
        f().find("menuButton")->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QCOMPARE(focusName(), QStringLiteral("Connect a model"));
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(connectModel.size(), 1);
        QVERIFY(!f().overlay.isMenuOpen());
        click("menuButton");
        click("menuConnectModel");
        QCOMPARE(connectModel.size(), 2);
        f().menu.setConnectAvailable(false);
        f().overlay.setMenuOpen(true);
        QTRY_VERIFY(!f().find("menuConnectModel")->isVisible());
    }

    void unavailableMenuRowsAreHidden()
    {
        show();
        f().overlay.setMenuOpen(true);
        QVERIFY(!f().find("menuHistory")->isVisible());
        QVERIFY(!f().find("menuSettings")->isVisible());
        QCOMPARE(f().find("hamburgerMenu")->height(), 194.0);
        f().menu.setHistoryAvailable(true);
        f().menu.setSettingsAvailable(true);
        QTRY_COMPARE(f().find("hamburgerMenu")->height(), 262.0);
        QSignalSpy history(&f().menu, &HamburgerMenuModel::historyRequested);
        click("menuHistory");
        QCOMPARE(history.size(), 1);
    }

    void secondPageOfTheMenu()
    {
        show();
        click("menuButton");
        QVERIFY(!f().find("menuExport")->isVisible());
        f().menu.setExportAvailable(true);
        QSignalSpy requested(&f().menu, &HamburgerMenuModel::exportRequested);
        click("menuExport");
        QCOMPARE(requested.size(), 1);
        QVERIFY(f().overlay.isMenuOpen());

        f().menu.showExport(QStringLiteral("A thread"), true);
        QVERIFY(!f().find("menuExport")->isVisible());
        QVERIFY(!f().find("menuUsage")->isVisible());
        QVERIFY(f().find("copyAnswerRichText")->isVisible());
        QCOMPARE(f().find("exportTitle")->property("text").toString(), QStringLiteral("A thread"));
        QVERIFY(f().find("exportMarkdownFile")->hasActiveFocus());
        QTRY_COMPARE(f().find("hamburgerMenu")->height(), 258.0);
        QSignalSpy chosen(&f().menu, &HamburgerMenuModel::exportChosen);
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(chosen.size(), 1);
        QCOMPARE(chosen.last().first().value<HamburgerMenuModel::ExportChoice>(),
                 HamburgerMenuModel::ExportChoice::Pdf);
        QVERIFY(!f().overlay.isMenuOpen());

        f().menu.showMain();
        f().menu.showExport(QStringLiteral("Another"), false);
        f().overlay.setMenuOpen(true);
        QVERIFY(!f().find("copyAnswerRichText")->isVisible());
        const std::pair<const char *, HamburgerMenuModel::ExportChoice> rows[]{
            {"exportMarkdownFile", HamburgerMenuModel::ExportChoice::MarkdownFile},
            {"exportWebPage", HamburgerMenuModel::ExportChoice::WebPage},
            {"copyMarkdown", HamburgerMenuModel::ExportChoice::CopyMarkdown},
            {"copyRichText", HamburgerMenuModel::ExportChoice::CopyRichText}};
        for (const auto &[row, choice] : rows) {
            f().overlay.setMenuOpen(true);
            click(row);
            QCOMPARE(chosen.last().first().value<HamburgerMenuModel::ExportChoice>(), choice);
        }
    }

    void secondPageFitsSmallestWindow()
    {
        f().panel.resize(320, 280);
        show();
        f().menu.showExport(QStringLiteral("A thread with a long title that is elided"), true);
        f().overlay.setMenuOpen(true);
        const QQuickItem *card = f().find("hamburgerMenu");
        QTRY_COMPARE(card->y(), 36.0);
        QVERIFY(card->y() + card->height() <= 276);
        QVERIFY(f().find("copyAnswerRichText")->height() >= 28);
    }

    void menuCaptures()
    {
        show();
        f().menu.setHistoryAvailable(true);
        f().menu.setSettingsAvailable(true);
        f().overlay.setMenuOpen(true);
        QVERIFY(!f().find("menuCaptureWindow")->isVisible());
        QVERIFY(!f().find("menuCaptureRegion")->isVisible());
        f().menu.setCapturesAvailable(true);
        QTRY_COMPARE(f().find("hamburgerMenu")->height(), 330.0);
        QSignalSpy window(&f().menu, &HamburgerMenuModel::captureWindowRequested);
        click("menuCaptureWindow");
        QCOMPARE(window.size(), 1);
        QVERIFY(!f().overlay.isMenuOpen());
        QSignalSpy region(&f().menu, &HamburgerMenuModel::captureRegionRequested);
        f().overlay.setMenuOpen(true);
        click("menuCaptureRegion");
        QCOMPARE(region.size(), 1);
        QVERIFY(!f().overlay.isMenuOpen());
    }

    void menuFitsSmallestWindow()
    {
        f().panel.resize(320, 280);
        f().menu.setHistoryAvailable(true);
        f().menu.setSettingsAvailable(true);
        show();
        f().overlay.setMenuOpen(true);
        const QQuickItem *card = f().find("hamburgerMenu");
        QTRY_COMPARE(card->y(), 36.0);
        QVERIFY(card->y() + card->height() <= 276);
        QVERIFY(f().find("menuSignOut")->height() >= 28);
        QSignalSpy signOut(&f().menu, &HamburgerMenuModel::signOutRequested);
        click("menuSignOut");
        QCOMPARE(signOut.size(), 1);
    }

    void pressOutsideClosesMenu()
    {
        show();
        click("menuButton");
        QVERIFY(f().overlay.isMenuOpen());
        press({300, 50}); // an empty area of the strip
        QVERIFY(!f().overlay.isMenuOpen());
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, {300, 50});
        QVERIFY(!f().panel.dragStart());
        click("menuButton");
        click("menuButton");
        QVERIFY(!f().overlay.isMenuOpen());
    }

    void usageBadgeReportsClick()
    {
        show();
        f().overlay.setUsage(96);
        QSignalSpy clicked(&f().overlay, &OverlayModel::usageClicked);
        click("usageBadge");
        QCOMPARE(clicked.size(), 1);
    }

    // Strip

    void stripShowsOneStatus()
    {
        show();
        QCOMPARE(text("threadTitle"), QStringLiteral("Ready"));
        QVERIFY(!f().find("stop")->isVisible());
        QVERIFY(!f().find("copyAnswer")->isVisible());
        f().overlay.setTitle(QStringLiteral("A thread"));
        f().overlay.setHasAnswer(true);
        QCOMPARE(text("threadTitle"), QStringLiteral("A thread"));
        QVERIFY(f().find("copyAnswer")->isVisible());
        f().overlay.setActivity(OverlayModel::Activity::Waiting);
        QVERIFY(f().find("stop")->isVisible());
        QVERIFY(!f().find("copyAnswer")->isVisible());
        f().overlay.setActivity(OverlayModel::Activity::Capturing);
        QVERIFY(f().find("stop")->isVisible());
        QVERIFY(f().find("status")->isVisible());
        QVERIFY(f().find("threadTitle")->isVisible());
        f().panel.resize(320, 280);
        QTRY_VERIFY(!f().find("threadTitle")->isVisible());
        f().overlay.setActivity(OverlayModel::Activity::Idle);
        QVERIFY(f().find("threadTitle")->isVisible());
        QVERIFY(!f().find("stop")->isVisible());
    }

    void noticeReplacesOnlyTitle()
    {
        show();
        f().overlay.setTitle(QStringLiteral("A thread"));
        f().overlay.setActivity(OverlayModel::Activity::Waiting);
        centre("stop");
        const QRectF stop = f().find("stop")->mapRectToScene(f().find("stop")->boundingRect());
        f().overlay.showNotice(QStringLiteral("The browser could not be opened"));
        QVERIFY(f().find("notice")->isVisible());
        QVERIFY(!f().find("threadTitle")->isVisible());
        centre("stop");
        QCOMPARE(f().find("stop")->mapRectToScene(f().find("stop")->boundingRect()), stop);
        QVERIFY(!f().find("noticeWords")->property("truncated").toBool());
        QSignalSpy stopped(&f().overlay, &OverlayModel::stopRequested);
        click("stop");
        QCOMPARE(stopped.size(), 1);
        f().overlay.showNotice(QString());
        QVERIFY(!f().find("notice")->isVisible());
        QVERIFY(f().find("threadTitle")->isVisible());
    }

    void noticeFitsSmallestWindow()
    {
        f().panel.resize(320, 280);
        f().overlay.setUsage(100);
        f().overlay.setActivity(OverlayModel::Activity::Waiting);
        show();
        f().overlay.showNotice(QStringLiteral("The browser could not be opened"));
        centre("stop");
        const QQuickItem *notice = f().find("notice");
        const QQuickItem *stop = f().find("stop");
        QVERIFY(stop->isVisible());
        QVERIFY(stop->mapToScene({stop->width(), 0}).x() <= 314);
        QVERIFY2(!f().find("noticeWords")->property("truncated").toBool(),
                 qPrintable(QString::number(notice->width())));
        QVERIFY(notice->mapToScene({notice->width(), 0}).x() <= stop->mapToScene({}).x());
        f().overlay.showNotice(QString());
        QVERIFY(f().find("status")->isVisible());
        QVERIFY(f().find("usageBadge")->isVisible());
    }

    void stripFitsSmallestWindow()
    {
        f().panel.resize(320, 280);
        f().overlay.setUsage(100);
        f().overlay.setTitle(QStringLiteral("A rather long title of a thread"));
        f().overlay.setActivity(OverlayModel::Activity::Waiting);
        show();
        centre("usageBadge");
        const QQuickItem *badge = f().find("usageBadge");
        QVERIFY(badge->mapToScene({}).x() >= 6);
        const QQuickItem *stop = f().find("stop");
        QVERIFY(stop->mapToScene({stop->width(), 0}).x() <= 314);
        f().overlay.setActivity(OverlayModel::Activity::Capturing);
        QTRY_VERIFY(badge->mapToScene({}).x() >= 6);
        QVERIFY(stop->mapToScene({stop->width(), 0}).x() <= 314);
    }

    void backToThreadButton()
    {
        show();
        f().overlay.setTitle(QStringLiteral("A thread"));
        f().overlay.setHasAnswer(true);
        QVERIFY(!f().find("backToThread")->isVisible());
        f().overlay.setThreadCovered(true);
        QVERIFY(f().find("copyAnswer")->isVisible());
        QSignalSpy back(&f().overlay, &OverlayModel::backToThreadRequested);
        click("backToThread");
        QCOMPARE(back.size(), 1);
        f().overlay.setThreadCovered(false);
        QVERIFY(!f().find("backToThread")->isVisible());
    }

    void latestButton()
    {
        show();
        f().overlay.setTitle(QStringLiteral("A thread"));
        f().overlay.setActivity(OverlayModel::Activity::Streaming);
        QVERIFY(!f().find("latest")->isVisible());
        f().overlay.setEndVisible(false);
        QVERIFY(f().find("latest")->isVisible());
        QVERIFY(f().find("stop")->isVisible());
        QSignalSpy requested(&f().overlay, &OverlayModel::latestRequested);
        click("latest");
        QCOMPARE(requested.size(), 1);
        f().overlay.setEndVisible(true);
        QVERIFY(!f().find("latest")->isVisible());
    }

    void clicksSwitch()
    {
        show();
        f().overlay.setTitle(QStringLiteral("A thread"));
        f().overlay.setHasAnswer(true);
        const QQuickItem *clicks = f().find("clicks");
        QVERIFY(!clicks->isVisible());
        f().overlay.setPageClickable(true);
        QVERIFY(clicks->isVisible());
        QCOMPARE(clicks->property("name").toString(), QStringLiteral("Clicks: through"));
        QCOMPARE(clicks->width(), 28.0);
        QSignalSpy toggled(&f().overlay, &OverlayModel::clicksToggled);
        click("clicks");
        QCOMPARE(toggled.size(), 1);
        f().overlay.setTakesClicks(true);
        QCOMPARE(clicks->property("name").toString(), QStringLiteral("Clicks: answer"));
        QCOMPARE(clicks->property("iconName").toString(), QStringLiteral("mouse-pointer-click"));
        // In words where there is room for them.
        QVERIFY(clicks->width() > 100);
        f().overlay.setActivity(OverlayModel::Activity::Streaming);
        QCOMPARE(clicks->width(), 28.0);
        f().overlay.setActivity(OverlayModel::Activity::Idle);
        f().panel.resize(320, 280);
        QTRY_COMPARE(clicks->width(), 28.0);
        // It stays on offer while it is on.
        f().overlay.setPageClickable(false);
        QVERIFY(clicks->isVisible());
        f().overlay.setTakesClicks(false);
        QVERIFY(!clicks->isVisible());
    }

    void clicksSwitchNamesItsHotkey()
    {
        show();
        f().overlay.setPageClickable(true);
        QCOMPARE(f().find("clicks")->property("shortcutText").toString(), QString());
        f().panels.setHotkeys({{QStringLiteral("toggle_clicks"), QStringLiteral("Super+J")}});
        QCOMPARE(f().find("clicks")->property("shortcutText").toString(),
                 QStringLiteral("Super+J"));
    }

    void questionButtons()
    {
        f().overlay.setTitle(QStringLiteral("What does this chart show?"));
        f().overlay.setHasAnswer(true);
        f().panels.setHotkeys({{QStringLiteral("retry"), QStringLiteral("Ctrl+R")}});
        showActive();
        for (const char *name : {"retry", "editQuestion", "versions"})
            QVERIFY(!f().find(name)->isVisible());
        f().overlay.setQuestionKnown(true);
        QSignalSpy retried(&f().overlay, &OverlayModel::retryRequested);
        QSignalSpy edited(&f().overlay, &OverlayModel::editRequested);
        click("retry");
        click("editQuestion");
        QCOMPARE(retried.size(), 1);
        QCOMPARE(edited.size(), 1);
        f().find("retry")->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(retried.size(), 2);
        QCOMPARE(f().find("retry")->property("shortcutText").toString(), QStringLiteral("Ctrl+R"));
    }

    void versionButtons()
    {
        f().overlay.setQuestionKnown(true);
        f().overlay.setVersions(1, 3);
        connect(&f().overlay, &OverlayModel::versionRequested, &f().overlay,
                [this](int position) { f().overlay.setVersions(position, 3); });
        showActive();
        QCOMPARE(text("versionWords"), QStringLiteral("2 of 3"));
        click("earlierVersion");
        QCOMPARE(text("versionWords"), QStringLiteral("1 of 3"));
        click("earlierVersion");
        QCOMPARE(text("versionWords"), QStringLiteral("1 of 3"));
        f().find("laterVersion")->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(text("versionWords"), QStringLiteral("3 of 3"));
        // At the end the focus goes to the button that leads back.
        QVERIFY(f().find("earlierVersion")->hasActiveFocus());
        QTest::keyClick(&f().panel, Qt::Key_Space);
        QCOMPARE(text("versionWords"), QStringLiteral("2 of 3"));
        f().overlay.setActivity(OverlayModel::Activity::Waiting);
        QVERIFY(!f().find("versions")->isVisible());
        QVERIFY(!f().find("retry")->isVisible());
    }

    void questionControlsFitSmallestWindow()
    {
        f().overlay.setTitle(QStringLiteral("What does this chart show?"));
        f().overlay.setHasAnswer(true);
        f().overlay.setQuestionKnown(true);
        f().overlay.setVersions(9, 10);
        f().overlay.setPageClickable(true);
        f().panel.resize(320, 280);
        show();
        QTRY_COMPARE(text("versionWords"), QStringLiteral("10/10"));
        f().panel.grabWindow();
        const auto scene = [this](const char *name) {
            const QQuickItem *item = f().find(name);
            return item->mapRectToScene(QRectF(0, 0, item->width(), item->height()));
        };
        QVERIFY(scene("threadTitle").width() >= 60);
        QVERIFY(scene("threadTitle").right() <= scene("versions").left());
        QVERIFY(scene("versions").right() <= scene("editQuestion").left());
        QVERIFY(scene("editQuestion").right() <= scene("retry").left());
        QVERIFY(scene("retry").right() <= scene("copyAnswer").left());
        QVERIFY(scene("copyAnswer").right() <= scene("clicks").left());
        QVERIFY(scene("clicks").right() <= 320);
    }

    void saveStateIndicator()
    {
        using SaveState = OverlayModel::SaveState;
        show();
        f().overlay.setTitle(QStringLiteral("A thread"));
        QVERIFY(!f().find("drive")->isVisible() && !f().find("notSaved")->isVisible());
        const qreal xWithoutIcon = f().find("threadTitle")->x();
        f().overlay.setSaveState(SaveState::Saving);
        QVERIFY(f().find("drive")->isVisible() && !f().find("notSaved")->isVisible());
        const qreal xWithIcon = f().find("threadTitle")->x();
        QVERIFY(xWithIcon > xWithoutIcon);
        f().overlay.setSaveState(SaveState::Saved);
        QVERIFY(f().find("drive")->isVisible());
        QCOMPARE(f().find("threadTitle")->x(), xWithIcon);
        f().overlay.setSaveState(SaveState::Failed, QStringLiteral("No space left on device"));
        QVERIFY(!f().find("drive")->isVisible() && f().find("notSaved")->isVisible());
        const QQuickItem *label = f().find("notSavedWords");
        QVERIFY(label->isVisible());
        QVERIFY(f().find("threadTitle")->x() >= label->x() + label->width());
        QCOMPARE(f().find("notSaved")->property("name").toString(),
                 QStringLiteral("Not saved: No space left on device. Press to try again."));
        QSignalSpy retried(&f().overlay, &OverlayModel::retrySavingRequested);
        click("notSaved");
        QCOMPARE(retried.size(), 1);
        // Also shown without a title and beside a notice.
        f().overlay.setTitle(QString());
        QVERIFY(f().find("notSaved")->isVisible());
        f().overlay.showNotice(QStringLiteral("The note can't be deleted"));
        QVERIFY(f().find("notice")->x() >= label->x() + label->width());
    }

    void allIndicatorsFitSmallestWindow()
    {
        f().panel.resize(320, 280);
        f().overlay.setUsage(100);
        f().overlay.setTitle(QStringLiteral("A rather long title of a thread"));
        f().overlay.setActivity(OverlayModel::Activity::Waiting);
        f().overlay.setSaveState(OverlayModel::SaveState::Failed, QStringLiteral("no"));
        f().overlay.setThreadCovered(true);
        f().overlay.setActivity(OverlayModel::Activity::Streaming);
        f().overlay.setEndVisible(false);
        f().overlay.setPageClickable(true);
        show();
        centre("stop");
        QVERIFY(!f().find("notSavedWords")->isVisible());
        const auto scene = [this](const char *name) {
            const QQuickItem *item = f().find(name);
            return item->mapRectToScene(item->boundingRect());
        };
        QVERIFY(scene("notSaved").right() <= scene("usageBadge").left());
        QVERIFY(scene("usageBadge").right() <= scene("backToThread").left());
        QVERIFY(scene("backToThread").right() <= scene("status").left());
        QVERIFY(scene("status").right() <= scene("latest").left());
        QVERIFY(scene("latest").right() <= scene("stop").left());
        QVERIFY(scene("stop").right() <= scene("clicks").left());
        QVERIFY(scene("clicks").right() <= 314);
    }

    void copyButtonConfirms()
    {
        show();
        f().overlay.setHasAnswer(true);
        QSignalSpy copied(&f().overlay, &OverlayModel::copyAnswerRequested);
        click("copyAnswer");
        QCOMPARE(copied.size(), 1);
        QCOMPARE(f().find("copyAnswer")->property("iconName").toString(), QStringLiteral("check"));
        QTRY_COMPARE(f().find("copyAnswer")->property("iconName").toString(),
                     QStringLiteral("copy"));
    }

    // Scrollbar

    void scrollbarWithMouse()
    {
        show();
        QCOMPARE(f().scrollbar.trackRect().height(), 532.0 - 60);
        reportPosition(f().scrollbar, 0, 1064, 532);
        QSignalSpy fraction(&f().scrollbar, &ResponseScrollbarModel::thumbFractionChanged);
        QSignalSpy pixels(&f().scrollbar, &ResponseScrollbarModel::scrollByPixels);
        QSignalSpy up(&f().scrollbar, &ResponseScrollbarModel::scrollUp);
        const QPoint thumb = centre("scrollThumb");
        press(thumb);
        moveTo(thumb + QPoint(0, 59));
        QCOMPARE(fraction.last().first().toDouble(), 0.25);
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, thumb + QPoint(0, 59));
        QVERIFY(!f().scrollbar.isDragging());
        click("scrollUp");
        QCOMPARE(up.size(), 1);
        wheel("scrollbarArea", {}, {0, -120});
        QCOMPARE(pixels.takeFirst().first().toDouble(), 40.0);
        // Pixel deltas are ignored for a mouse wheel.
        wheel("scrollbarArea", {0, -15}, {0, -120});
        QCOMPARE(pixels.takeFirst().first().toDouble(), 40.0);
        QPointingDevice touchpad(QStringLiteral("pad"), 77, QInputDevice::DeviceType::TouchPad,
                                 QPointingDevice::PointerType::Finger,
                                 QInputDevice::Capability::PixelScroll, 2, 0);
        wheel("scrollbarArea", {0, -10}, {0, -20}, &touchpad);
        QCOMPARE(pixels.takeFirst().first().toDouble(), 10.0);
    }

    void scrollbarWithKeyboard()
    {
        showActive();
        reportPosition(f().scrollbar, 0, 1064, 532);
        QSignalSpy down(&f().scrollbar, &ResponseScrollbarModel::scrollDown);
        QSignalSpy fraction(&f().scrollbar, &ResponseScrollbarModel::thumbFractionChanged);
        f().find("scrollThumb")->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QTest::keyClick(&f().panel, Qt::Key_End);
        QCOMPARE(down.size(), 1);
        QCOMPARE(fraction.takeFirst().first().toDouble(), 1.0);
    }

    void disabledScrollbarIgnoresPresses()
    {
        show();
        reportPosition(f().scrollbar, 0, 100, 532);
        QSignalSpy up(&f().scrollbar, &ResponseScrollbarModel::scrollUp);
        click("scrollUp");
        QCOMPARE(up.size(), 0);
        QVERIFY(!f().find("scrollUp")->isEnabled());
    }

    // Opacity

    void opacityAppliesToLayers()
    {
        show();
        f().overlay.setCurrentAlpha(0.35);
        QCOMPARE(f().find("responseBackdrop")->opacity(), 0.35);
        QCOMPARE(f().find("responseBackground")->opacity(), 0.35);
        QCOMPARE(f().find("opacitySlider")->property("value").toDouble(), 0.35);
        QCOMPARE(f().find("controlBar")->opacity(), 1.0);
    }

    void sliderWithKeyboard()
    {
        showActive();
        QSignalSpy moved(&f().overlay, &OverlayModel::sliderMoved);
        connect(&f().overlay, &OverlayModel::sliderMoved, &f().overlay,
                &OverlayModel::setCurrentAlpha);
        f().find("opacitySlider")->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(&f().panel, Qt::Key_Left);
        QCOMPARE(qRound(f().overlay.currentAlpha() * 100), 87);
        QTest::keyClick(&f().panel, Qt::Key_Right, Qt::ShiftModifier);
        QCOMPARE(qRound(f().overlay.currentAlpha() * 100), 97);
        QTest::keyClick(&f().panel, Qt::Key_Right, Qt::ShiftModifier);
        QCOMPARE(f().overlay.currentAlpha(), 1.0);
        QCOMPARE(moved.size(), 3);
    }

    void windowButtons()
    {
        show();
        QSignalSpy closed(&f().overlay, &OverlayModel::closeRequested);
        QSignalSpy minimized(&f().overlay, &OverlayModel::minimizeRequested);
        QSignalSpy zoomed(&f().overlay, &OverlayModel::zoomRequested);
        click("closeButton");
        click("minimizeButton");
        click("zoomButton");
        QCOMPARE(closed.size(), 1);
        QCOMPARE(minimized.size(), 1);
        QCOMPARE(zoomed.size(), 1);
    }

    // Rendering

    void noFramesWhenIdle()
    {
        show();
        f().overlay.setTitle(QStringLiteral("Thread"));
        f().overlay.setHasAnswer(true);
        QVERIFY(isStill());
        f().overlay.setActivity(OverlayModel::Activity::Waiting);
        QVERIFY(!isStill());
        f().overlay.setActivity(OverlayModel::Activity::Idle);
        QVERIFY(isStill());
    }

    void answerIsCreatedAfterFirstFrame()
    {
        f().responseView = OverlayFixture::emptyResponse();
        f().panel.setContent(f().engine, {f().overlay, f().panels, f().menu, f().scrollbar,
                                          f().responseView, nullptr});
        QVERIFY(!f().panel.overlayItem()->property("isResponseActive").toBool());
        f().panel.show();
        QTRY_VERIFY(f().panel.overlayItem()->property("isResponseActive").toBool());
    }
};

QUELLORA_TEST(QGuiApplication, TestOverlayFrame)
#include "test_overlay_frame.moc"
