#include "OverlayFixture.h"

#include <QAccessible>
#include <QSignalSpy>
#include <QTest>

using namespace quellora;

/// The real panel with its views, driven by pointer and keys as a user would.
class TestOverlayPanel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        initializeUi();
        QGuiApplication::setQuitOnLastWindowClosed(false);
    }

    void init()
    {
        m_fixture = std::make_unique<OverlayFixture>();
        // The owner's part of opening and closing the menu.
        connect(&f().overlay, &OverlayModel::menuToggled, &f().overlay,
                [this] { f().overlay.setMenuOpen(!f().overlay.isMenuOpen()); });
        connect(&f().menu, &HamburgerMenuModel::closeRequested, &f().overlay,
                [this] { f().overlay.setMenuOpen(false); });
    }
    void cleanup() { m_fixture.reset(); }

    // The window

    void windowNeverTakesTheFocusByItself()
    {
        const Qt::WindowFlags flags = f().panel.flags();
        QVERIFY(flags.testFlag(Qt::FramelessWindowHint));
        QVERIFY(flags.testFlag(Qt::WindowStaysOnTopHint));
        QVERIFY(flags.testFlag(Qt::NoDropShadowWindowHint));
        QVERIFY(flags.testFlag(Qt::WindowDoesNotAcceptFocus));
        QCOMPARE(flags & Qt::WindowType_Mask, Qt::WindowFlags(Qt::Tool));
        QCOMPARE(f().panel.property("_q_showWithoutActivating").toBool(), true);
        QCOMPARE(f().panel.minimumSize(), QSize(320, 280));
        QCOMPARE(f().panel.color(), QColor(Qt::transparent));
        QCOMPARE(f().panel.format().alphaBufferSize(), 8);
    }

    void aPressOnTheTextAsksForTheKeyboard()
    {
        show();
        click("promptInput");
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 1);
        QCOMPARE(f().platform.keyWindow.data(), static_cast<QWindow *>(&f().panel));
    }

    void otherPressesLeaveTheKeyboardAlone()
    {
        show();
        f().panels.setPromptText(QStringLiteral("text"));
        for (const char *name : {"addNote", "captureAndSend", "menuButton", "menuScrim",
                                 "saveThread", "opacitySlider"})
            click(name);
        press({300, 50}); // the strip's free area
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, {300, 50});
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 0);
    }

    void anOpenMenuCoversTheText()
    {
        show();
        f().overlay.setMenuOpen(true);
        click("promptInput");
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 0);
        QVERIFY(!f().overlay.isMenuOpen());
    }

    void draggingAFreeAreaMovesThePanel_data()
    {
        QTest::addColumn<QPoint>("start");
        QTest::newRow("control bar") << QPoint(300, 17);
        QTest::newRow("strip") << QPoint(300, 50);
        QTest::newRow("answer") << QPoint(300, 300);
        QTest::newRow("between the thread controls") << QPoint(300, 722);
    }
    void draggingAFreeAreaMovesThePanel()
    {
        QFETCH(QPoint, start);
        show();
        f().panel.setPosition(100, 100);
        press(start);
        QCOMPARE(f().panel.dragStart(), QPointF(start));
        moveTo(start + QPoint(25, -10));
        QCOMPARE(f().panel.position(), QPoint(125, 90));
        // The pointer stands at the same place of the panel again, so nothing more moves.
        moveTo(start);
        QCOMPARE(f().panel.position(), QPoint(125, 90));
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, start);
        QVERIFY(!f().panel.dragStart());
        QTest::mouseMove(&f().panel, start + QPoint(50, 50));
        QCOMPARE(f().panel.position(), QPoint(125, 90));
    }

    void draggingAControlDoesNotMoveThePanel()
    {
        show();
        f().panel.setPosition(100, 100);
        f().scrollbar.updatePosition(0, 2000, 500);
        for (const char *name : {"captureAndSend", "menuButton", "promptInput", "scrollbarArea"}) {
            const QPoint at = centre(name);
            press(at);
            moveTo(at + QPoint(40, 40));
            QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, at + QPoint(40, 40));
            QCOMPARE(f().panel.position(), QPoint(100, 100));
        }
    }

    void hidingEndsADrag()
    {
        show();
        press({300, 50});
        f().panel.hide();
        QVERIFY(!f().panel.dragStart());
    }

    void edgesResize_data()
    {
        QTest::addColumn<QPoint>("start");
        QTest::addColumn<QPoint>("delta");
        QTest::addColumn<QRect>("geometry");
        QTest::newRow("right") << QPoint(621, 400) << QPoint(30, 9) << QRect(100, 100, 654, 744);
        QTest::newRow("left") << QPoint(2, 400) << QPoint(20, 9) << QRect(120, 100, 604, 744);
        QTest::newRow("top") << QPoint(300, 2) << QPoint(9, -20) << QRect(100, 80, 624, 764);
        QTest::newRow("bottom") << QPoint(300, 741) << QPoint(9, 10) << QRect(100, 100, 624, 754);
        QTest::newRow("corner") << QPoint(621, 741) << QPoint(10, 20) << QRect(100, 100, 634, 764);
        QTest::newRow("not below the least size")
            << QPoint(621, 741) << QPoint(-600, -700) << QRect(100, 100, 320, 280);
    }
    void edgesResize()
    {
        QFETCH(QPoint, start);
        QFETCH(QPoint, delta);
        QFETCH(QRect, geometry);
        show();
        f().panel.setPosition(100, 100);
        press(start);
        moveTo(start + delta);
        QTRY_COMPARE(f().panel.geometry(), geometry);
        const QPoint pointer = QPoint(100, 100) + start + delta;
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, f().panel.mapFromGlobal(pointer));
        QCOMPARE(f().panel.geometry(), geometry);
        QCOMPARE(f().overlay.isCompact(), geometry.width() < 440);
        QCOMPARE(f().panel.overlayItem()->size(), QSizeF(geometry.size()));
    }

    void closingFromOutsideCountsAsTheCloseButton()
    {
        show();
        QSignalSpy closed(&f().overlay, &OverlayModel::closeRequested);
        static_cast<QWindow &>(f().panel).close();
        QTRY_COMPARE(closed.size(), 1);
        QCoreApplication::processEvents();
        QCOMPARE(closed.size(), 1);
        f().panel.show();
        f().panel.close();
        QCoreApplication::processEvents();
        QCOMPARE(closed.size(), 1);
    }

    void compositingIsFollowed()
    {
        f().overlay.setCurrentAlpha(0);
        show();
        QVERIFY(f().overlay.isCompositing());
        f().platform.setCompositing(false);
        QVERIFY(!f().overlay.isCompositing());
        const QImage picture = f().panel.grabWindow();
        QVERIFY(picture.pixelColor(0, 0) != QColor(Qt::black));
        QCOMPARE(picture.pixelColor(300, 300), QColor(0x1c, 0x1e, 0x24));
    }

    void cornersAreRoundAndTheAnswerTranslucent()
    {
        f().overlay.setAppliedTheme(AppTheme::Light);
        f().overlay.setCurrentAlpha(0.5);
        show();
        // Off screen everything lies over black.
        const QImage picture = f().panel.grabWindow();
        QCOMPARE(picture.pixelColor(0, 0), QColor(Qt::black));
        QCOMPARE(picture.pixelColor(623, 743), QColor(Qt::black));
        QVERIFY(picture.pixelColor(300, 15).blue() > 20);
        // Two layers of 0.93 x 0.5 each.
        const int expected = qRound(0xf7 * (1 - (1 - 0.465) * (1 - 0.465)));
        QVERIFY(qAbs(picture.pixelColor(300, 300).red() - expected) <= 2);
    }

    // Keys

    void returnSendsAndShiftReturnAddsALine()
    {
        showActive();
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        type(QStringLiteral("ab"));
        QTest::keyClick(&f().panel, Qt::Key_Return, Qt::ShiftModifier);
        type(QStringLiteral("c"));
        QCOMPARE(f().panels.promptText(), QStringLiteral("ab\nc"));
        QCOMPARE(sent.size(), 0);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent.first().first().toString(), QStringLiteral("ab\nc"));
        QCOMPARE(f().panels.promptText(), QStringLiteral("ab\nc"));
        QTest::keyClick(&f().panel, Qt::Key_Enter, Qt::KeypadModifier);
        QCOMPARE(sent.size(), 2);
    }

    void returnInAnEmptyBoxDoesNothing()
    {
        showActive();
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        type(QStringLiteral("  "));
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(sent.size(), 0);
        QCOMPARE(f().panels.promptText(), QStringLiteral("  "));
    }

    void theBoxFollowsTheStore()
    {
        showActive();
        type(QStringLiteral("question"));
        f().defaults.setString(QLatin1String(DefaultsKey::userPrompt), QString());
        QCOMPARE(f().find("promptInput")->property("text").toString(), QString());
        type(QStringLiteral("next"));
        QCOMPARE(f().panels.promptText(), QStringLiteral("next"));
    }

    void showingTheBoxStoresNothing()
    {
        f().defaults.remove(QLatin1String(DefaultsKey::userPrompt));
        show();
        QVERIFY(!f().defaults.stringValue(QLatin1String(DefaultsKey::userPrompt)));
        QVERIFY(f().find("promptInput")
                    ->property("text")
                    .toString()
                    .startsWith(QStringLiteral("You are a silent")));
    }

    void escapeAloneChangesNothing()
    {
        showActive();
        type(QStringLiteral("text"));
        f().overlay.setActivity(OverlayModel::Activity::Streaming);
        QSignalSpy stopped(&f().overlay, &OverlayModel::stopRequested);
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QVERIFY(f().panel.isVisible());
        QCOMPARE(f().panels.promptText(), QStringLiteral("text"));
        QCOMPARE(stopped.size(), 0);
        QVERIFY(f().find("promptInput")->hasActiveFocus());
    }

    void stopShortcut()
    {
        showActive();
        QSignalSpy stopped(&f().overlay, &OverlayModel::stopRequested);
        QTest::keyClick(&f().panel, Qt::Key_Period, Qt::MetaModifier);
        QCOMPARE(stopped.size(), 0);
        f().overlay.setActivity(OverlayModel::Activity::Waiting);
        QTest::keyClick(&f().panel, Qt::Key_Period, Qt::MetaModifier);
        QCOMPARE(stopped.size(), 1);
    }

    void f6CyclesPromptAndStrip()
    {
        showActive();
        f().overlay.setTitle(QStringLiteral("Thread"));
        f().overlay.setHasAnswer(true);
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QCOMPARE(focusName(), QStringLiteral("Copy answer"));
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QCOMPARE(focusName(), QStringLiteral("Write a message"));
        QTest::keyClick(&f().panel, Qt::Key_F6, Qt::ShiftModifier);
        QCOMPARE(focusName(), QStringLiteral("Copy answer"));
        f().overlay.setHasAnswer(false);
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QCOMPARE(focusName(), QStringLiteral("Write a message"));
    }

    void f6ReachesTheAnswer()
    {
        f().responseView = QUrl(QStringLiteral("data:text/plain,import%20QtQuick%0AItem%20%7B%20"
                                               "property%20QtObject%20host%20%7D"));
        showActive();
        QTRY_VERIFY(f().find("responseLoader")->property("item").value<QObject *>());
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QVERIFY(f().find("responseLoader")->hasActiveFocus());
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QCOMPARE(focusName(), QStringLiteral("Write a message"));
    }

    void tabOrder()
    {
        f().panels.setAdminMessage(OverlayFixture::message(
            QStringLiteral("INFORMATIONAL"), QStringLiteral("News"), QStringLiteral("Body")));
        f().panels.setStagedScreenshotData(OverlayFixture::screenshot());
        f().panels.setPromptText(QStringLiteral("text"));
        f().overlay.setUsage(90);
        f().overlay.setActivity(OverlayModel::Activity::Streaming);
        f().scrollbar.updatePosition(0, 2000, 500);
        showActive();
        QStringList names{focusName()};
        do {
            QTest::keyClick(&f().panel, Qt::Key_Tab);
            names.append(focusName());
        } while (names.size() < 40 && names.last() != names.first());
        QCOMPARE(names, QStringList({QStringLiteral("Write a message"),
                                     QStringLiteral("Model"),
                                     QStringLiteral("Add note"),
                                     QStringLiteral("Capture without sending"),
                                     QStringLiteral("Capture and send"),
                                     QStringLiteral("Send"),
                                     QStringLiteral("Save thread"),
                                     QStringLiteral("New thread"),
                                     QStringLiteral("Close"),
                                     QStringLiteral("Minimize"),
                                     QStringLiteral("Zoom"),
                                     QStringLiteral("Opacity"),
                                     QStringLiteral("Menu"),
                                     QStringLiteral("Usage 90%"),
                                     QStringLiteral("Stop"),
                                     QStringLiteral("Scroll up"),
                                     QStringLiteral("Response scroll position"),
                                     QStringLiteral("Scroll down"),
                                     QStringLiteral("Collapse message"),
                                     QStringLiteral("Remove screenshot"),
                                     QStringLiteral("Write a message")}));
        QTest::keyClick(&f().panel, Qt::Key_Backtab, Qt::ShiftModifier);
        QCOMPARE(focusName(), QStringLiteral("Remove screenshot"));
    }

    void focusRingOnlyForTheKeyboard()
    {
        showActive();
        QTest::keyClick(&f().panel, Qt::Key_Tab);
        QVERIFY(f().find("modelPicker")->property("visualFocus").toBool());
        click("promptInput");
        click("captureAndSend");
        QVERIFY(!f().find("captureAndSend")->property("visualFocus").toBool());
        QVERIFY(f().find("promptInput")->hasActiveFocus());
    }

    // The menu

    void menuOpensOnItsFirstRowAndReturns()
    {
        showActive();
        QSignalSpy account(&f().menu, &HamburgerMenuModel::accountRequested);
        f().find("menuButton")->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QVERIFY(f().overlay.isMenuOpen());
        QCOMPARE(focusName(), QStringLiteral("Account"));
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QCOMPARE(focusName(), QStringLiteral("Upgrade"));
        QTest::keyClick(&f().panel, Qt::Key_Tab);
        QCOMPARE(focusName(), QStringLiteral("Account"));
        QTest::keyClick(&f().panel, Qt::Key_End);
        QCOMPARE(focusName(), QStringLiteral("Upgrade"));
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QVERIFY(!f().overlay.isMenuOpen());
        QCOMPARE(focusName(), QStringLiteral("Menu"));
        QCOMPARE(account.size(), 0);
    }

    void menuRowsRunAndClose()
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
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(upgrade.size(), 1);
        QVERIFY(!f().overlay.isMenuOpen());
    }

    void unavailableRowsAreNotThere()
    {
        show();
        f().overlay.setMenuOpen(true);
        QVERIFY(!f().find("menuHistory")->isVisible());
        QVERIFY(!f().find("menuSettings")->isVisible());
        QCOMPARE(f().find("hamburgerMenu")->height(), 160.0);
        f().menu.setHistoryAvailable(true);
        f().menu.setSettingsAvailable(true);
        QTRY_COMPARE(f().find("hamburgerMenu")->height(), 228.0);
        QSignalSpy history(&f().menu, &HamburgerMenuModel::historyRequested);
        click("menuHistory");
        QCOMPARE(history.size(), 1);
    }

    void aPressOutsideClosesTheMenu()
    {
        show();
        click("menuButton");
        QVERIFY(f().overlay.isMenuOpen());
        press({200, 400});
        QVERIFY(!f().overlay.isMenuOpen());
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, {200, 400});
        QVERIFY(!f().panel.dragStart());
        click("menuButton");
        click("menuButton");
        QVERIFY(!f().overlay.isMenuOpen());
    }

    void usageBadgeOpensTheMenu()
    {
        show();
        f().overlay.setUsage(96);
        QSignalSpy clicked(&f().overlay, &OverlayModel::usageClicked);
        click("usageBadge");
        QCOMPARE(clicked.size(), 1);
    }

    // The strip

    void stripShowsOneState()
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
        QVERIFY(!f().find("stop")->isVisible());
        QVERIFY(f().find("status")->isVisible());
        QVERIFY(f().find("threadTitle")->isVisible());
        f().panel.resize(320, 280);
        QTRY_VERIFY(!f().find("threadTitle")->isVisible());
        f().overlay.setActivity(OverlayModel::Activity::Idle);
        QVERIFY(f().find("threadTitle")->isVisible());
    }

    void stripFitsTheSmallestWindow()
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
    }

    void copySaysThatItCopied()
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

    // The scrollbar

    void scrollbarByPointer()
    {
        show();
        QCOMPARE(f().scrollbar.trackRect().height(), 532.0 - 60);
        f().scrollbar.updatePosition(0, 1064, 532);
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
        // A mouse whose driver adds pixel distances is still a wheel.
        wheel("scrollbarArea", {0, -15}, {0, -120});
        QCOMPARE(pixels.takeFirst().first().toDouble(), 40.0);
        QPointingDevice pad(QStringLiteral("pad"), 77, QInputDevice::DeviceType::TouchPad,
                            QPointingDevice::PointerType::Finger,
                            QInputDevice::Capability::PixelScroll, 2, 0);
        wheel("scrollbarArea", {0, -10}, {0, -20}, &pad);
        QCOMPARE(pixels.takeFirst().first().toDouble(), 10.0);
    }

    void scrollbarByKeys()
    {
        showActive();
        f().scrollbar.updatePosition(0, 1064, 532);
        QSignalSpy down(&f().scrollbar, &ResponseScrollbarModel::scrollDown);
        QSignalSpy fraction(&f().scrollbar, &ResponseScrollbarModel::thumbFractionChanged);
        f().find("scrollThumb")->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QTest::keyClick(&f().panel, Qt::Key_End);
        QCOMPARE(down.size(), 1);
        QCOMPARE(fraction.takeFirst().first().toDouble(), 1.0);
    }

    void disabledScrollbarTakesNoPress()
    {
        show();
        f().scrollbar.updatePosition(0, 100, 532);
        QSignalSpy up(&f().scrollbar, &ResponseScrollbarModel::scrollUp);
        click("scrollUp");
        QCOMPARE(up.size(), 0);
        QVERIFY(!f().find("scrollUp")->isEnabled());
    }

    // Opacity

    void opacityOfTheLayersFollows()
    {
        show();
        f().overlay.setCurrentAlpha(0.35);
        QCOMPARE(f().find("responseBackdrop")->opacity(), 0.35);
        QCOMPARE(f().find("responseBackground")->opacity(), 0.35);
        QCOMPARE(f().find("opacitySlider")->property("value").toDouble(), 0.35);
        QCOMPARE(f().find("controlBar")->opacity(), 1.0);
    }

    void sliderByKeys()
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

    // Rest

    void nothingIsDrawnAtRest()
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

    void theAnswerIsCreatedAfterTheFirstFrame()
    {
        f().responseView = QUrl(QStringLiteral("data:text/plain,import%20QtQuick%0AItem%20%7B%20"
                                               "property%20QtObject%20host%20%7D"));
        f().panel.setContent(f().engine, {f().overlay, f().panels, f().menu, f().scrollbar,
                                          f().responseView, nullptr});
        QVERIFY(!f().panel.overlayItem()->property("isResponseActive").toBool());
        f().panel.show();
        QTRY_VERIFY(f().panel.overlayItem()->property("isResponseActive").toBool());
    }

private:
    OverlayFixture &f() { return *m_fixture; }

    void show()
    {
        f().show();
        QVERIFY(QTest::qWaitForWindowExposed(&f().panel));
    }
    void showActive()
    {
        f().panel.setFlag(Qt::WindowDoesNotAcceptFocus, false);
        show();
        f().panel.requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(&f().panel));
        QVERIFY(f().find("promptInput")->hasActiveFocus());
    }

    QPoint centre(const char *name)
    {
        f().panel.grabWindow(); // brings every position up to date
        const QQuickItem *item = f().find(name);
        if (!item) {
            QTest::qFail(name, __FILE__, __LINE__);
            return {};
        }
        return item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint();
    }
    void press(const QPoint &at) { QTest::mousePress(&f().panel, Qt::LeftButton, {}, at); }
    void moveTo(const QPoint &at)
    {
        QMouseEvent event(QEvent::MouseMove, at, f().panel.mapToGlobal(at), Qt::NoButton,
                          Qt::LeftButton, {});
        QCoreApplication::sendEvent(&f().panel, &event);
    }
    void click(const char *name)
    {
        QTest::mouseClick(&f().panel, Qt::LeftButton, {}, centre(name));
    }
    void wheel(const char *name, const QPoint &pixels, const QPoint &angle,
               const QPointingDevice *device = QPointingDevice::primaryPointingDevice())
    {
        const QPoint at = centre(name);
        QWheelEvent event(at, f().panel.mapToGlobal(at), pixels, angle, {}, {}, Qt::NoScrollPhase,
                          false, Qt::MouseEventNotSynthesized, device);
        QCoreApplication::sendEvent(&f().panel, &event);
    }
    void type(const QString &text)
    {
        for (const QChar character : text)
            QTest::keyClick(&f().panel, character.toLatin1());
    }
    QString text(const char *name) { return f().find(name)->property("text").toString(); }
    QString focusName()
    {
        QQuickItem *item = f().panel.activeFocusItem();
        QAccessibleInterface *face = item ? QAccessible::queryAccessibleInterface(item) : nullptr;
        return face ? face->text(QAccessible::Name) : QString();
    }
    /// Whether there is a while without a frame, as there is between two blinks of the caret but
    /// not while anything moves.
    bool isStill()
    {
        QSignalSpy frames(&f().panel, &QQuickWindow::frameSwapped);
        const auto isQuiet = [&frames] {
            frames.clear();
            QTest::qWait(250);
            return frames.isEmpty();
        };
        for (int attempt = 0; attempt < 8; ++attempt) {
            if (isQuiet())
                return true;
        }
        return false;
    }

    std::unique_ptr<OverlayFixture> m_fixture;
};

QTEST_MAIN(TestOverlayPanel)
#include "test_ui_overlay_panel.moc"
