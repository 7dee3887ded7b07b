#include "OverlayDriver.h"
#include "support/TestProgram.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

using namespace quellora;

/// The bottom panels in the overlay: content, heights and actions.
class TestOverlayBottomPanels : public OverlayDriver
{
    Q_OBJECT
private Q_SLOTS:
    void heightDeterminesAnswerRect()
    {
        QSignalSpy reported(&f().panels, &BottomPanelsModel::heightChanged);
        show();
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0);
        QCOMPARE(f().overlay.responseRect(), QRectF(0, 72, 596, 532));
        QCOMPARE(f().overlay.clickThroughRect(), QRect(0, 72, 596, 532));
        f().panels.setStagedScreenshotData(OverlayFixture::screenshot());
        QCOMPARE(f().overlay.bottomPanelsHeight(), 204.0);
        QCOMPARE(f().find("responseArea")->height(), 468.0);
        f().panels.setStagedScreenshotData(std::nullopt);
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0);
        QVERIFY(reported.size() >= 3);
        f().panel.resize(320, 280);
        QTRY_COMPARE(f().overlay.bottomPanelsHeight(), 76.0);
        QCOMPARE(f().overlay.responseRect().height(), 132.0);
    }

    void firstLaunchCardIsDismissedOnce()
    {
        f().defaults.remove("hasLaunchedBefore");
        show();
        QCOMPARE(f().find("firstLaunchCard")->height(), 185.0);
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0 + 185 + 8);
        click("gotIt");
        QVERIFY(!f().find("firstLaunchCard")->isVisible());
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0);
        QCOMPARE(f().defaults.boolValue("hasLaunchedBefore"), true);
    }

    void informationalCardCollapses()
    {
        f().panels.setAdminMessage(OverlayFixture::message(
            QStringLiteral("INFORMATIONAL"), QStringLiteral("News"), QStringLiteral("One line")));
        connect(&f().panels, &BottomPanelsModel::informationalCollapseToggled, &f().panels,
                [this] { f().panels.setInformationalCollapsed(!f().panels.isMessageCollapsed()); });
        show();
        QCOMPARE(f().find("serviceCard")->height(), 36.0 + 19 + 12);
        QVERIFY(f().find("messageScroller")->isVisible());
        click("collapseMessage");
        QCOMPARE(f().find("serviceCard")->height(), 36.0);
        QVERIFY(!f().find("messageScroller")->isVisible());
        click("collapseMessage");
        QVERIFY(f().find("messageScroller")->isVisible());
    }

    void blockingCardHasActionButNoChevron()
    {
        f().panels.setAdminMessage(OverlayFixture::blocking());
        show();
        QVERIFY(!f().find("collapseMessage")->isVisible());
        QSignalSpy requested(&f().panels, &BottomPanelsModel::messageActionRequested);
        click("messageAction");
        QCOMPARE(requested.size(), 1);
        QCOMPARE(requested.first().first().toUrl(),
                 QUrl(QStringLiteral("https://example.com/account/billing")));
        f().panel.resize(320, 280);
        QTRY_VERIFY(f().find("compactMessageAction")->isVisible());
        QVERIFY(!f().find("messageAction")->isVisible());
        click("compactMessageAction");
        QCOMPARE(requested.size(), 2);
    }

    void longMessageScrolls()
    {
        f().panels.setAdminMessage(
            OverlayFixture::message(QStringLiteral("INFORMATIONAL"), QStringLiteral("News"),
                                    QStringLiteral("A paragraph.\n\n").repeated(60)));
        showActive();
        QCOMPARE(f().find("serviceCard")->height(), 268.0);
        QQuickItem *scroller = f().find("messageScroller");
        QVERIFY(scroller->property("contentHeight").toDouble() > scroller->height());
        scroller->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QCOMPARE(scroller->property("contentY").toDouble(), 19.0);
        QTest::keyClick(&f().panel, Qt::Key_Up);
        QTest::keyClick(&f().panel, Qt::Key_Up);
        QCOMPARE(scroller->property("contentY").toDouble(), 0.0);
    }

    void removeButtonRemovesAttachment()
    {
        f().panels.setStagedScreenshotData(OverlayFixture::screenshot());
        connect(&f().panels, &BottomPanelsModel::attachmentRemoved, &f().panels,
                [this] { f().panels.setStagedScreenshotData(std::nullopt); });
        show();
        QTRY_COMPARE(f().find("attachmentCaption")->property("text").toString(),
                     QStringLiteral("1280 \u00d7 800 \u00b7 goes with your next message"));
        click("removeAttachment");
        QVERIFY(!f().find("attachmentRow")->isVisible());
    }

    void editedQuestionIsNamed()
    {
        showActive();
        QVERIFY(!f().find("editingRow")->isVisible());
        const double height = f().find("bottomPanels")->height();
        QSignalSpy cancelled(&f().panels, &BottomPanelsModel::editCancelled);
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QVERIFY(cancelled.isEmpty());
        f().panels.setEditing(true, true);
        QVERIFY(f().find("editingRow")->isVisible());
        QCOMPARE(f().find("bottomPanels")->height(), height + 36 + 8);
        QCOMPARE(text("editingWords"), QStringLiteral("Editing the last question \u00b7 with its "
                                                      "screenshot"));
        QVERIFY(!f().find("editingWords")->property("truncated").toBool());
        f().panel.resize(320, 400);
        f().panel.grabWindow();
        QVERIFY(!f().find("editingWords")->property("truncated").toBool());
        // Where the words have less room, fewer are used.
        f().find("editingRow")->setProperty("width", 240);
        QCOMPARE(text("editingWords"), QStringLiteral("Editing \u00b7 with its screenshot"));
        QVERIFY(!f().find("editingWords")->property("truncated").toBool());
        // A staged screenshot goes instead.
        f().panels.setStagedScreenshotData(OverlayFixture::screenshot());
        QCOMPARE(text("editingWords"), QStringLiteral("Editing the last question"));
        f().panel.grabWindow();
        QVERIFY(f().find("editingRow")->y() >=
                f().find("attachmentRow")->y() + f().find("attachmentRow")->height());
        click("cancelEditing");
        QCOMPARE(cancelled.size(), 1);
        QVERIFY(f().find("promptInput")->hasActiveFocus());
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QCOMPARE(cancelled.size(), 2);
        f().panels.setEditing(false, false);
        QVERIFY(!f().find("editingRow")->isVisible());
    }

    void picturesArePasted()
    {
        showActive();
        QSignalSpy offered(&f().panels, &BottomPanelsModel::pictureOffered);
        auto *clip = new QMimeData;
        clip->setData(QStringLiteral("image/webp"), "webp");
        QGuiApplication::clipboard()->setMimeData(clip);
        QTest::keyClick(&f().panel, Qt::Key_V, Qt::ControlModifier);
        QCOMPARE(offered.size(), 1);
        QCOMPARE(offered[0][0].value<OfferedPicture>().bytes, QByteArray("webp"));
        QGuiApplication::clipboard()->setText(QStringLiteral("words"));
        QTest::keyClick(&f().panel, Qt::Key_V, Qt::ControlModifier);
        QCOMPARE(f().panels.promptText(), QStringLiteral("words"));
        QCOMPARE(offered.size(), 1);
    }

    void picturesAreDropped()
    {
        show();
        QSignalSpy offered(&f().panels, &BottomPanelsModel::pictureOffered);
        const QPoint at = centre("promptBox");
        QMimeData data;
        data.setData(QStringLiteral("image/png"), "png");
        QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(&f().panel, &enter);
        QVERIFY(enter.isAccepted());
        QVERIFY(f().find("dropMark")->isVisible());
        QDragLeaveEvent leave;
        QCoreApplication::sendEvent(&f().panel, &leave);
        QVERIFY(!f().find("dropMark")->isVisible());
        QDragEnterEvent again(at, Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(&f().panel, &again);
        QDropEvent drop(at, Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(&f().panel, &drop);
        QVERIFY(drop.isAccepted());
        QVERIFY(!f().find("dropMark")->isVisible());
        QCOMPARE(offered.size(), 1);
        QCOMPARE(offered[0][0].value<OfferedPicture>().bytes, QByteArray("png"));

        QMimeData words;
        words.setText(QStringLiteral("words"));
        QDragEnterEvent other(at, Qt::CopyAction, &words, Qt::LeftButton, {});
        QCoreApplication::sendEvent(&f().panel, &other);
        QVERIFY(!other.isAccepted());
        // Not onto the menu.
        f().overlay.setMenuOpen(true);
        QDragEnterEvent covered(at, Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(&f().panel, &covered);
        QVERIFY(!covered.isAccepted());
    }

    void disabledActionsIgnorePresses()
    {
        show();
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        QSignalSpy noted(&f().panels, &BottomPanelsModel::noteRequested);
        click("send");
        click("addNote");
        QCOMPARE(sent.size() + noted.size(), 0);
        f().panels.setPromptText(QStringLiteral("text"));
        click("send");
        QCOMPARE(sent.size(), 1);
        click("addNote");
        QCOMPARE(noted.size(), 1);
        QVERIFY(f().panels.promptText().isEmpty());
    }

    void blockedActionsAcceptPresses()
    {
        f().panels.setBlocked(true);
        show();
        QSignalSpy sent(&f().panels, &BottomPanelsModel::sendRequested);
        QSignalSpy captured(&f().panels, &BottomPanelsModel::captureAndSendRequested);
        QSignalSpy staged(&f().panels, &BottomPanelsModel::captureNoSendRequested);
        click("send");
        click("captureAndSend");
        click("captureNoSend");
        QCOMPARE(sent.size(), 1);
        QCOMPARE(captured.size(), 1);
        QCOMPARE(staged.size(), 1);
        QVERIFY(f().find("send")->property("blocked").toBool());
        QVERIFY(f().find("captureAndSend")->property("blocked").toBool());
        QVERIFY(!f().find("captureNoSend")->property("blocked").toBool());
    }

    void capturingDisablesCaptureButtons()
    {
        f().panels.setCapturing(true);
        f().panels.setPromptText(QStringLiteral("text"));
        show();
        QVERIFY(!f().find("captureAndSend")->isEnabled());
        QVERIFY(!f().find("captureNoSend")->isEnabled());
        QVERIFY(f().find("captureAndSend")->property("busy").toBool());
        QVERIFY(f().find("send")->isEnabled());
    }

    void modelListWithMouse()
    {
        show();
        click("modelPicker");
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0 + 3 * 36 + 8 + 8);
        f().panel.grabWindow(); // rows are created by the layout
        const QPoint top = f().find("modelList")->mapToScene({40, 18}).toPoint();
        QTest::mouseClick(&f().panel, Qt::LeftButton, {}, top);
        QCOMPARE(f().stored.selectedModelId(), QStringLiteral("claude-fast"));
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0);
        click("modelPicker");
        click("modelPicker");
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0);
    }

    void modelListWithKeyboard()
    {
        showActive();
        f().find("modelPicker")->forceActiveFocus(Qt::TabFocusReason);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QVERIFY(f().find("modelList")->hasActiveFocus());
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QTest::keyClick(&f().panel, Qt::Key_Return);
        QCOMPARE(f().stored.selectedModelId(), QStringLiteral("claude-deep"));
        QVERIFY(f().find("modelPicker")->hasActiveFocus());
        QTest::keyClick(&f().panel, Qt::Key_Down);
        QTest::keyClick(&f().panel, Qt::Key_Home);
        QTest::keyClick(&f().panel, Qt::Key_Escape);
        QCOMPARE(f().stored.selectedModelId(), QStringLiteral("claude-deep"));
        QVERIFY(f().find("modelPicker")->hasActiveFocus());
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0);
    }

    void modelListTellsWherePicturesGo()
    {
        const QString host = QString(180, 'a') + ".evil.example";
        f().panels.models()->setOffer({{"one", "One", "Short", "127.0.0.1"},
                                       {"two", "Two", QString(300, 'd'), host},
                                       {"three", "Three", "Old backend"}},
                                      "one");
        show();
        for (const QSize size : {QSize(624, 744), QSize(320, 280)}) {
            f().panel.resize(size);
            click("modelPicker");
            f().panel.grabWindow();
            auto *list = f().find("modelList");
            QStringList shown;
            for (int row = 0; row < 3; ++row) {
                QQuickItem *item = nullptr;
                QMetaObject::invokeMethod(list, "itemAtIndex", Q_RETURN_ARG(QQuickItem *, item),
                                          Q_ARG(int, row));
                if (!item)
                    continue; // scrolled out
                const auto *place = OverlayFixture::findIn(item, QLatin1String("destination"));
                QVERIFY(place);
                shown << place->property("text").toString();
                // Whatever the host is called, it stays in its row beside the name.
                QVERIFY(place->x() + place->width() <= item->width());
                QVERIFY(place->x() >= 36);
                const QAccessibleInterface *access = QAccessible::queryAccessibleInterface(item);
                const QString text = access->text(QAccessible::Description);
                QCOMPARE(text, QStringList({"Short. Pictures stay on this machine",
                                            QString(300, 'd') + ". Pictures go to " + host,
                                            "Old backend"})
                                   .at(row));
            }
            QVERIFY(shown.contains("this machine"));
            click("modelPicker");
        }
    }

    void modelListClosesWithoutModels()
    {
        show();
        click("modelPicker");
        f().panels.models()->setOffer({}, {});
        QCOMPARE(f().overlay.bottomPanelsHeight(), 140.0);
        QVERIFY(!f().find("modelPicker")->isEnabled());
    }

    void saveThreadShowsStoredValue()
    {
        show();
        f().defaults.isReadOnly = true;
        click("saveThread");
        QVERIFY(!f().find("saveThread")->property("checked").toBool());
        f().defaults.isReadOnly = false;
        click("saveThread");
        QVERIFY(f().find("saveThread")->property("checked").toBool());
        QVERIFY(f().stored.keepAIHistoryEnabled());
        click("saveThread");
        QVERIFY(!f().stored.keepAIHistoryEnabled());
        // Changed elsewhere.
        f().stored.setKeepAIHistoryEnabled(true);
        QVERIFY(f().find("saveThread")->property("checked").toBool());
    }

    void newThreadButtons()
    {
        show();
        QSignalSpy requested(&f().panels, &BottomPanelsModel::newThreadRequested);
        click("newThread");
        QCOMPARE(requested.size(), 1);
        f().panel.resize(320, 280);
        QTRY_VERIFY(f().find("compactNewThread")->isVisible());
        click("compactNewThread");
        QCOMPARE(requested.size(), 2);
    }

    void promptBoxGrowsAndScrolls()
    {
        show();
        f().panels.setPromptText(QStringLiteral("1\n2\n3"));
        QTRY_COMPARE(f().find("promptBox")->height(), 108.0);
        f().panels.setPromptText(QStringLiteral("1\n2\n3\n4\n5\n6\n7\n8"));
        QTRY_COMPARE(f().find("promptBox")->height(), 148.0);
        QCOMPARE(f().overlay.bottomPanelsHeight(), 200.0);
        f().panels.setPromptText(QString());
        QTRY_COMPARE(f().find("promptBox")->height(), 88.0);
    }

    void sendHintNeedsFocusAndWidth()
    {
        showActive();
        QVERIFY(f().find("sendHint")->isVisible());
        f().find("modelPicker")->forceActiveFocus(Qt::TabFocusReason);
        QVERIFY(!f().find("sendHint")->isVisible());
        f().find("promptInput")->forceActiveFocus(Qt::TabFocusReason);
        f().panel.resize(559, 744);
        QTRY_VERIFY(!f().find("sendHint")->isVisible());
    }

    void contentIsCentredInWideWindow()
    {
        f().panel.resize(1440, 900);
        show();
        const QQuickItem *box = f().find("promptBox");
        QCOMPARE(box->width(), 960.0);
        QCOMPARE(box->mapToScene({}).x(), 240.0);
    }
};

QUELLORA_TEST(QGuiApplication, TestOverlayBottomPanels)
#include "test_overlay_bottom_panels.moc"
