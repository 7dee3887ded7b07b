#include "OverlayDriver.h"
#include "platform/PanelProperties.h"
#include "support/TestProgram.h"

#include <QClipboard>
#include <QGuiApplication>

#include <algorithm>
#include <ctime>

using namespace quellora;

namespace {

/// CPU time used by this thread, in seconds.
double threadCpuSeconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

} // namespace

/// Window behaviour of the panel and keyboard handling inside it.
class TestOverlayPanel : public OverlayDriver
{
    Q_OBJECT
    /// Shows the panel with an answer that accepts presses, as the page does.
    void showPressableAnswer()
    {
        const char *item = "import QtQuick\nMouseArea { property QtObject host; "
                           "property bool reducedMotion; property real textScale; "
                           "onPressed: forceActiveFocus() }";
        f().responseView = QUrl(QStringLiteral("data:text/plain,") +
                                QString::fromLatin1(QByteArray(item).toPercentEncoding()));
        showActive();
        QTRY_VERIFY(f().find("responseLoader")->property("item").value<QObject *>());
    }
    void pressAnswer() { QTest::mouseClick(&f().panel, Qt::LeftButton, {}, {200, 300}); }

private Q_SLOTS:
    // Window

    void windowDoesNotTakeFocus()
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

    void pressOnTextInputRequestsKeyboard()
    {
        show();
        click("promptInput");
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 1);
        QCOMPARE(f().platform.keyWindow.data(), static_cast<QWindow *>(&f().panel));
    }

    void otherPressesDoNotRequestKeyboard()
    {
        show();
        f().panels.setPromptText(QStringLiteral("text"));
        for (const char *name : {"addNote", "captureAndSend", "menuButton", "menuScrim",
                                 "saveThread", "opacitySlider"})
            click(name);
        press({300, 50}); // an empty area of the strip
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, {300, 50});
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 0);
    }

    void menuCoversTextInput()
    {
        show();
        f().overlay.setMenuOpen(true);
        click("promptInput");
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 0);
        QVERIFY(!f().overlay.isMenuOpen());
    }

    void menuPassesPressesToAnswer()
    {
        show();
        f().overlay.setMenuOpen(true);
        QTRY_COMPARE(f().find("hamburgerMenu")->opacity(), 1.0);
        // Without a page, the press reaches the drag area below.
        press({200, 400});
        QCOMPARE(f().panel.dragStart(), QPointF(200, 400));
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, {200, 400});
        QVERIFY(f().overlay.isMenuOpen());
        // Just inside the answer's edges.
        const QRectF answer = f().overlay.responseRect();
        const int right = int(answer.right());
        const int bottom = int(answer.bottom());
        for (const QPoint &at : {QPoint(20, 72), QPoint(right - 1, 400), QPoint(20, bottom - 1)}) {
            press(at);
            QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, at);
            QVERIFY(f().overlay.isMenuOpen());
        }
    }

    void pressBesideAnswerClosesMenu_data()
    {
        QTest::addColumn<QPoint>("at");
        QTest::newRow("strip") << QPoint(20, 71);
        QTest::newRow("scrollbar") << QPoint(596, 400);
        QTest::newRow("bottom panels") << QPoint(20, 604);
    }
    void pressBesideAnswerClosesMenu()
    {
        QFETCH(QPoint, at);
        show();
        f().overlay.setMenuOpen(true);
        QTRY_COMPARE(f().find("hamburgerMenu")->opacity(), 1.0);
        QVERIFY(!f().overlay.responseRect().contains(at) ||
                at.x() == int(f().overlay.responseRect().right()) ||
                at.y() == int(f().overlay.responseRect().bottom()));
        press(at);
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, at);
        QVERIFY(!f().overlay.isMenuOpen());
    }

    void menuCardBlocksPresses()
    {
        show();
        f().overlay.setMenuOpen(true);
        QTRY_COMPARE(f().find("hamburgerMenu")->opacity(), 1.0);
        const QPoint at = centre("menuUsage");
        QVERIFY(f().overlay.responseRect().contains(at));
        for (const Qt::MouseButton button : {Qt::LeftButton, Qt::RightButton, Qt::MiddleButton})
            QTest::mouseClick(&f().panel, button, {}, at);
        QVERIFY(!f().panel.dragStart());
        QVERIFY(f().overlay.isMenuOpen());
    }

    void hidingEndsScrollbarDrag()
    {
        show();
        reportPosition(f().scrollbar, 0, 2000, 500);
        const QPoint at = centre("scrollThumb");
        press(at);
        QVERIFY(f().scrollbar.isDragging());
        f().panel.hide();
        QVERIFY(!f().scrollbar.isDragging());
        f().panel.show();
        const double fraction = f().scrollbar.fraction();
        moveTo(at + QPoint(0, 80));
        QCOMPARE(f().scrollbar.fraction(), fraction);
    }

    void draggingEmptyAreaMovesPanel_data()
    {
        QTest::addColumn<QPoint>("start");
        QTest::newRow("control bar") << QPoint(300, 17);
        QTest::newRow("strip") << QPoint(300, 50);
        QTest::newRow("answer") << QPoint(300, 300);
        QTest::newRow("between the thread controls") << QPoint(300, 722);
    }
    void draggingEmptyAreaMovesPanel()
    {
        QFETCH(QPoint, start);
        show();
        f().panel.setPosition(100, 100);
        press(start);
        QCOMPARE(f().panel.dragStart(), QPointF(start));
        moveTo(start + QPoint(25, -10));
        QCOMPARE(f().panel.position(), QPoint(125, 90));
        // The pointer is at the same position in the panel again, so the panel must not move.
        moveTo(start);
        QCOMPARE(f().panel.position(), QPoint(125, 90));
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, start);
        QVERIFY(!f().panel.dragStart());
        QTest::mouseMove(&f().panel, start + QPoint(50, 50));
        QCOMPARE(f().panel.position(), QPoint(125, 90));
    }

    void dragFollowsTheReportedPointer()
    {
        show();
        f().platform.followAnswer = Capability::applied();
        f().panel.setPosition(100, 100);
        QSignalSpy finished(&f().panel, &NonFocusPanel::dragFinished);
        press({300, 50});
        QVERIFY(f().platform.pointerHandler);
        f().platform.pointerHandler({25, -10});
        QCOMPARE(f().panel.position(), QPoint(125, 90));
        // The position in the event belongs to an earlier place of the window.
        moveTo({340, 90});
        QCOMPARE(f().panel.position(), QPoint(125, 90));
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, {340, 90});
        QVERIFY(!f().platform.pointerHandler);
        QCOMPARE(f().platform.count(QStringLiteral("stopFollowingPointer")), 1);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.first().first().toRect(), QRect(125, 90, 624, 744));

        f().panel.setGeometry(100, 100, 624, 744);
        press({621, 400});
        f().platform.pointerHandler({30, 9});
        QCOMPARE(f().panel.geometry(), QRect(100, 100, 654, 744));
        f().panel.hide();
        QVERIFY(!f().platform.pointerHandler);
        QCOMPARE(finished.count(), 2);
    }

    void dragGoesOnWhilePanelMovesToAnotherScreen()
    {
        show();
        f().platform.followAnswer = Capability::applied();
        f().panel.setPosition(100, 100);
        press({300, 50});
        f().platform.pointerHandler({25, -10});
        f().panel.setProperty(movesToScreenProperty, true);
        f().panel.hide();
        f().panel.show();
        f().panel.setProperty(movesToScreenProperty, QVariant());
        QVERIFY(f().panel.dragStart());
        f().platform.pointerHandler({50, 0});
        QCOMPARE(f().panel.position(), QPoint(150, 100));
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, {300, 50});
        QVERIFY(!f().panel.dragStart());
    }

    void panelIsKeyUntilTheFocusGoesElsewhere()
    {
        QVERIFY(!f().panel.isKey());
        f().panel.makeKey();
        QVERIFY(!f().panel.isKey());
        show();
        f().panel.makeKey();
        QVERIFY(f().panel.isKey());
        f().panel.resignKey();
        QVERIFY(!f().panel.isKey());
        f().panel.makeKey();
        f().panel.hide();
        QVERIFY(!f().panel.isKey());
    }

    void pressInAnswerTakesTheKeyboardWhileItTakesClicks()
    {
        showPressableAnswer();
        pressAnswer();
        QCOMPARE(f().platform.count(QStringLiteral("makeKey")), 0);
        QVERIFY(!f().panel.isKeyboardLent());
        f().overlay.setTakesClicks(true);
        pressAnswer();
        QCOMPARE(f().platform.keyWindow.data(), static_cast<QWindow *>(&f().panel));
        QVERIFY(f().panel.isKeyboardLent());
        QVERIFY(f().find("responseLoader")->hasActiveFocus());
    }

    void keyboardOfTheAnswerIsReturned_data()
    {
        QTest::addColumn<std::function<void(TestOverlayPanel &)>>("leave");
        const auto row = [](const char *name, std::function<void(TestOverlayPanel &)> leave) {
            QTest::newRow(name) << leave;
        };
        row("escape", [](auto &test) { QTest::keyClick(&test.f().panel, Qt::Key_Escape); });
        row("press on a control", [](auto &test) { test.click("opacitySlider"); });
        row("press beside the controls", [](auto &test) {
            QTest::mouseClick(&test.f().panel, Qt::LeftButton, {}, {300, 50});
        });
        row("switched off", [](auto &test) { test.f().overlay.setTakesClicks(false); });
    }

    void keyboardOfTheAnswerIsReturned()
    {
        QFETCH(std::function<void(TestOverlayPanel &)>, leave);
        showPressableAnswer();
        f().overlay.setTakesClicks(true);
        pressAnswer();
        pressAnswer();
        QSignalSpy left(&f().panel, &NonFocusPanel::answerLeft);
        leave(*this);
        QVERIFY(!f().panel.isKeyboardLent());
        QVERIFY(!f().platform.keyWindow);
        QVERIFY(!f().panel.isKey());
        QVERIFY(f().find("promptInput")->hasActiveFocus());
        QCOMPARE(left.size(), 1);
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QCOMPARE(left.size(), 1);
        QCOMPARE(f().platform.count(QStringLiteral("resignKey")), 1);
    }

    void promptThatHadTheKeyboardGetsItBack()
    {
        showPressableAnswer();
        f().overlay.setTakesClicks(true);
        click("promptInput");
        pressAnswer();
        QVERIFY(f().find("responseLoader")->hasActiveFocus());
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QCOMPARE(f().platform.keyWindow.data(), static_cast<QWindow *>(&f().panel));
        QVERIFY(f().find("promptInput")->hasActiveFocus());
        // A press on the prompt takes the keyboard for good.
        pressAnswer();
        click("promptInput");
        QVERIFY(!f().panel.isKeyboardLent());
        click("opacitySlider");
        QCOMPARE(f().platform.keyWindow.data(), static_cast<QWindow *>(&f().panel));
        QCOMPARE(f().platform.count(QStringLiteral("resignKey")), 0);
    }

    void escapeClosesMenuBeforeItLeavesAnswer()
    {
        showPressableAnswer();
        f().overlay.setTakesClicks(true);
        pressAnswer();
        f().overlay.setMenuOpen(true);
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QVERIFY(!f().overlay.isMenuOpen());
        QVERIFY(f().panel.isKeyboardLent());
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QVERIFY(!f().panel.isKeyboardLent());
    }

    void answerIsPressedUntilReleaseOrHiding()
    {
        showPressableAnswer();
        const QPoint at(200, 300);
        press(at);
        QVERIFY(!f().panel.isAnswerPressed());
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, at);
        f().overlay.setTakesClicks(true);
        QSignalSpy changed(&f().panel, &NonFocusPanel::isAnswerPressedChanged);
        press(at);
        QVERIFY(f().panel.isAnswerPressed());
        QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, at);
        QVERIFY(!f().panel.isAnswerPressed());
        press(at);
        f().panel.hide();
        QVERIFY(!f().panel.isAnswerPressed());
        QVERIFY(!f().panel.isKeyboardLent());
        QCOMPARE(changed.size(), 4);
    }

    void draggingControlDoesNotMovePanel()
    {
        show();
        f().panel.setPosition(100, 100);
        reportPosition(f().scrollbar, 0, 2000, 500);
        for (const char *name : {"captureAndSend", "menuButton", "promptInput", "scrollbarArea"}) {
            const QPoint at = centre(name);
            press(at);
            moveTo(at + QPoint(40, 40));
            QTest::mouseRelease(&f().panel, Qt::LeftButton, {}, at + QPoint(40, 40));
            QCOMPARE(f().panel.position(), QPoint(100, 100));
        }
    }

    void hidingEndsDrag()
    {
        show();
        press({300, 50});
        f().panel.hide();
        QVERIFY(!f().panel.dragStart());
    }

    void draggingEdgesResizesPanel_data()
    {
        QTest::addColumn<QPoint>("start");
        QTest::addColumn<QPoint>("delta");
        QTest::addColumn<QRect>("geometry");
        QTest::newRow("right") << QPoint(621, 400) << QPoint(30, 9) << QRect(100, 100, 654, 744);
        QTest::newRow("left") << QPoint(2, 400) << QPoint(20, 9) << QRect(120, 100, 604, 744);
        QTest::newRow("top") << QPoint(300, 2) << QPoint(9, -20) << QRect(100, 80, 624, 764);
        QTest::newRow("bottom") << QPoint(300, 741) << QPoint(9, 10) << QRect(100, 100, 624, 754);
        QTest::newRow("corner") << QPoint(621, 741) << QPoint(10, 20) << QRect(100, 100, 634, 764);
        QTest::newRow("not below minimum size")
            << QPoint(621, 741) << QPoint(-600, -700) << QRect(100, 100, 320, 280);
    }
    void draggingEdgesResizesPanel()
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

    void externalCloseActsLikeCloseButton()
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

    void opaqueWithoutCompositing()
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

    void roundCornersAndTranslucentAnswer()
    {
        f().overlay.setAppliedTheme(AppTheme::Light);
        f().overlay.setCurrentAlpha(0.5);
        show();
        // The offscreen platform renders on black.
        const QImage picture = f().panel.grabWindow();
        QCOMPARE(picture.pixelColor(0, 0), QColor(Qt::black));
        QCOMPARE(picture.pixelColor(623, 743), QColor(Qt::black));
        QVERIFY(picture.pixelColor(300, 15).blue() > 20);
        // Two layers with an opacity of 0.93 x 0.5 each.
        const int expected = qRound(0xf7 * (1 - (1 - 0.465) * (1 - 0.465)));
        QVERIFY(qAbs(picture.pixelColor(300, 300).red() - expected) <= 2);
    }

    // Keyboard

    void returnSendsAndShiftReturnInsertsLineBreak()
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

    void pastingMegabyteDoesNotBlock_data()
    {
        QTest::addColumn<QString>("unit");
        QTest::newRow("lines") << QStringLiteral("The quick brown fox jumps over the lazy dog.\n");
        QTest::newRow("one paragraph") << QStringLiteral("The quick brown fox. ");
        QTest::newRow("one word") << QStringLiteral("x");
        QTest::newRow("short lines") << QStringLiteral("ab\n");
        QTest::newRow("empty lines") << QStringLiteral("\n");
        QTest::newRow("Chinese") << QString::fromUtf8("\u4e16\u754c\u4f60\u597d");
    }
    void pastingMegabyteDoesNotBlock()
    {
        QFETCH(QString, unit);
        constexpr qsizetype megabyte = 1024 * 1024;
        const QString pasted = unit.repeated(megabyte / unit.size());
        QGuiApplication::clipboard()->setText(pasted);
        showActive();
        type(QStringLiteral("Why? "));
        // Measure the thread's CPU time, which does not depend on the machine's load.
        double longestStep = 0;
        const auto measure = [&longestStep](const auto &work) {
            const double before = threadCpuSeconds();
            work();
            longestStep = std::max(longestStep, threadCpuSeconds() - before);
        };
        const auto processEvents = [&measure] {
            for (int i = 0; i < 30; ++i)
                measure([] { QCoreApplication::processEvents(); });
        };
        measure([&] { QTest::keyClick(&f().panel, Qt::Key_V, Qt::ControlModifier); });
        processEvents();
        QVERIFY(f().panels.promptText() == QStringLiteral("Why? \n") + pasted);
        for (const char key : {'A', 'n', 'd', '?'})
            measure([&] { QTest::keyClick(&f().panel, key); });
        processEvents();
        QVERIFY(f().panels.promptText().endsWith(pasted));
        QVERIFY2(longestStep < 0.1, qPrintable(QStringLiteral("%1 ms").arg(longestStep * 1000)));

        // The whole text is sent, and the pasted text can be removed.
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(sent.size(), 1);
        QVERIFY(sent.first().first().toString() == f().panels.promptText());
        QVERIFY(f().find("pastedText")->isVisible());
        click("removePastedText");
        QVERIFY(f().panels.promptText().size() < 20);
        QVERIFY(!f().find("pastedText")->isVisible());
    }

    void shortPasteGoesIntoField()
    {
        QGuiApplication::clipboard()->setText(QStringLiteral("pasted\ntext"));
        showActive();
        type(QStringLiteral("ab"));
        QTest::keyClick(&f().panel, Qt::Key_V, Qt::ControlModifier);
        QCOMPARE(f().find("promptInput")->property("text").toString(),
                 QStringLiteral("abpasted\ntext"));
        QCOMPARE(f().panels.promptText(), QStringLiteral("abpasted\ntext"));
        QVERIFY(f().panels.pastedCaption().isEmpty());
        QTest::keyClick(&f().panel, Qt::Key_Z, Qt::ControlModifier);
        QCOMPARE(f().panels.promptText(), QStringLiteral("ab"));
    }

    void returnIgnoresEmptyPrompt()
    {
        showActive();
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        type(QStringLiteral("  "));
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(sent.size(), 0);
        QCOMPARE(f().panels.promptText(), QStringLiteral("  "));
    }

    void promptFollowsStoredValue()
    {
        showActive();
        type(QStringLiteral("question"));
        f().defaults.setString("userPrompt", QString());
        QCOMPARE(f().find("promptInput")->property("text").toString(), QString());
        type(QStringLiteral("next"));
        QCOMPARE(f().panels.promptText(), QStringLiteral("next"));
    }

    void showingPromptDoesNotStoreIt()
    {
        f().defaults.remove("userPrompt");
        show();
        QVERIFY(!f().defaults.stringValue("userPrompt"));
        QVERIFY(f().find("promptInput")
                    ->property("text")
                    .toString()
                    .startsWith(QStringLiteral("You are a silent")));
    }

    void escapeHasNoEffectByItself()
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
        f().overlay.setQuestionKnown(true);
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QCOMPARE(focusName(), QStringLiteral("Edit question"));
        f().overlay.setQuestionKnown(false);
        f().overlay.setHasAnswer(false);
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QCOMPARE(focusName(), QStringLiteral("Write a message"));
    }

    void f6ReachesAnswer()
    {
        f().responseView = OverlayFixture::emptyResponse();
        showActive();
        QTRY_VERIFY(f().find("responseLoader")->property("item").value<QObject *>());
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QVERIFY(f().find("responseLoader")->hasActiveFocus());
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QCOMPARE(focusName(), QStringLiteral("Write a message"));
    }

    void f6StaysInOpenMenu()
    {
        f().responseView = OverlayFixture::emptyResponse();
        showActive();
        QTRY_VERIFY(f().find("responseLoader")->property("item").value<QObject *>());
        f().overlay.setMenuOpen(true);
        QCOMPARE(focusName(), QStringLiteral("Account"));
        QTest::keyClick(&f().panel, Qt::Key_F6);
        QCOMPARE(focusName(), QStringLiteral("Account"));
        // If the answer was given focus by a press, F6 returns to the menu.
        f().find("responseLoader")->forceActiveFocus();
        QTest::keyClick(&f().panel, Qt::Key_F6, Qt::ShiftModifier);
        QCOMPARE(focusName(), QStringLiteral("Account"));
    }

    void itemsCoveredByMenuGetNoFocus()
    {
        f().responseView = OverlayFixture::emptyResponse();
        showActive();
        QTRY_VERIFY(f().find("responseLoader")->property("item").value<QObject *>());
        f().overlay.setMenuOpen(true);
        f().find("promptInput")->forceActiveFocus();
        QTRY_COMPARE(focusName(), QStringLiteral("Account"));
        f().find("responseLoader")->forceActiveFocus();
        QCoreApplication::processEvents();
        QVERIFY(f().find("responseLoader")->hasActiveFocus());
    }

    void escapeInAnswerClosesMenu()
    {
        f().responseView = OverlayFixture::emptyResponse();
        showActive();
        QTRY_VERIFY(f().find("responseLoader")->property("item").value<QObject *>());
        f().overlay.setMenuOpen(true);
        f().find("responseLoader")->forceActiveFocus();
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QVERIFY(!f().overlay.isMenuOpen());
    }

    void escapeInPromptClosesModelList()
    {
        showActive();
        click("modelPicker");
        QTRY_VERIFY(f().find("modelList")->hasActiveFocus());
        click("promptInput");
        QVERIFY(f().find("promptInput")->hasActiveFocus());
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QVERIFY(!f().find("modelCard")->isVisible());
        QVERIFY(f().find("promptInput")->hasActiveFocus());
    }

    void tabOrder()
    {
        f().panels.setAdminMessage(OverlayFixture::message(
            QStringLiteral("INFORMATIONAL"), QStringLiteral("News"), QStringLiteral("Body")));
        f().panels.setStagedScreenshotData(OverlayFixture::screenshot());
        f().panels.setPromptText(QStringLiteral("text"));
        f().overlay.setUsage(90);
        f().overlay.setActivity(OverlayModel::Activity::Streaming);
        reportPosition(f().scrollbar, 0, 2000, 500);
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

    void focusRingOnlyForKeyboardFocus()
    {
        showActive();
        QTest::keyClick(&f().panel, Qt::Key_Tab);
        QVERIFY(f().find("modelPicker")->property("visualFocus").toBool());
        click("promptInput");
        click("captureAndSend");
        QVERIFY(!f().find("captureAndSend")->property("visualFocus").toBool());
        QVERIFY(f().find("promptInput")->hasActiveFocus());
    }
};

QUELLORA_TEST(QGuiApplication, TestOverlayPanel)
#include "test_overlay_panel.moc"
