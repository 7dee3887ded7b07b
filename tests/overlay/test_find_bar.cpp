#include "OverlayDriver.h"
#include "support/TestProgram.h"

#include <QGuiApplication>

using namespace quellora;

/// The find bar in the real panel, driven by mouse and keyboard.
class TestFindBar : public OverlayDriver
{
    Q_OBJECT
private Q_SLOTS:
    void keyOpensTheBarInTheStrip()
    {
        openBar();
        QCOMPARE(focusName(), QStringLiteral("Find in thread"));
        QVERIFY(!f().find("threadTitle")->isVisible());
        // Beside the status, above the page.
        const QQuickItem *bar = f().find("findBar");
        QVERIFY(bar->mapToScene({0, bar->height()}).y() <= f().overlay.responseRect().y());
        QVERIFY(bar->width() > 300);
    }

    void typingFinds()
    {
        openBar();
        QSignalSpy found(&f().finding, &FindModel::findRequested);
        type("ab");
        QCOMPARE(found.size(), 2);
        QCOMPARE(found.last().first().toString(), QStringLiteral("ab"));
        QVERIFY(!f().find("findCount")->isVisible());
        f().finding.setResult(3, 12);
        QCOMPARE(text("findCount"), QStringLiteral("3 of 12"));
        f().finding.setResult(0, 0);
        QCOMPARE(text("findCount"), QStringLiteral("No matches"));
        key(Qt::Key_Backspace);
        key(Qt::Key_Backspace);
        f().finding.setResult(0, 0);
        QVERIFY(!f().find("findCount")->isVisible());
    }

    void returnStepsThroughTheMatches()
    {
        openBar();
        QSignalSpy next(&f().finding, &FindModel::nextRequested);
        QSignalSpy previous(&f().finding, &FindModel::previousRequested);
        type("a");
        key(Qt::Key_Return);
        QCOMPARE(next.size(), 0);
        f().finding.setResult(1, 2);
        key(Qt::Key_Return);
        key(Qt::Key_Enter);
        QCOMPARE(next.size(), 2);
        key(Qt::Key_Return, Qt::ShiftModifier);
        QCOMPARE(previous.size(), 1);
        click("findNext");
        click("findPrevious");
        QCOMPARE(next.size(), 3);
        QCOMPARE(previous.size(), 2);
        QVERIFY(!f().find("promptInput")->hasActiveFocus());
    }

    void escapeGivesTheFocusBack()
    {
        openBar();
        QSignalSpy ended(&f().finding, &FindModel::ended);
        type("a");
        key(Qt::Key_Escape);
        QVERIFY(!f().finding.isOpen());
        QCOMPARE(ended.size(), 1);
        QVERIFY(f().find("promptInput")->hasActiveFocus());
        QVERIFY(f().find("threadTitle")->isVisible());
        // Open, but the focus is elsewhere.
        openAgain();
        f().find("promptInput")->forceActiveFocus();
        key(Qt::Key_Escape);
        QVERIFY(!f().finding.isOpen());
        QVERIFY(f().find("promptInput")->hasActiveFocus());
    }

    void theTextStaysForTheNextTime()
    {
        openBar();
        type("old");
        key(Qt::Key_Escape);
        openAgain();
        QCOMPARE(text("findField"), QStringLiteral("old"));
        // Selected, so that typing replaces it.
        type("n");
        QCOMPARE(f().finding.text(), QStringLiteral("n"));
        key(Qt::Key_F, Qt::ControlModifier);
        type("m");
        QCOMPARE(f().finding.text(), QStringLiteral("m"));
    }

    void closeButtonCloses()
    {
        openBar();
        click("findClose");
        QVERIFY(!f().finding.isOpen());
    }

    void tabReachesEveryControl()
    {
        openBar();
        type("a");
        f().finding.setResult(1, 2);
        for (const char *name : {"Previous match", "Next match", "Close find"}) {
            key(Qt::Key_Tab);
            QCOMPARE(focusName(), QString::fromLatin1(name));
        }
        key(Qt::Key_Return);
        QVERIFY(!f().finding.isOpen());
        QVERIFY(f().find("promptInput")->hasActiveFocus());
    }

    void narrowPanelHasRoomForItAndStop_data()
    {
        QTest::addColumn<int>("width");
        QTest::newRow("compact") << 320;
        QTest::newRow("narrow") << 560;
    }

    void narrowPanelHasRoomForItAndStop()
    {
        QFETCH(int, width);
        f().panel.resize(width, 400);
        showActive();
        f().overlay.setTakesClicks(true);
        f().overlay.setActivity(OverlayModel::Activity::Streaming);
        key(Qt::Key_F, Qt::ControlModifier);
        QVERIFY(f().finding.isOpen());
        type("a");
        f().finding.setResult(3, 12);
        f().panel.grabWindow();
        QVERIFY(f().find("findField")->width() > 120);
        const QQuickItem *bar = f().find("findBar");
        const QQuickItem *status = f().find("status");
        const QQuickItem *stop = f().find("stop");
        QVERIFY(bar->mapToScene({bar->width(), 0}).x() <= status->mapToScene({}).x());
        QVERIFY(status->isVisible());
        QVERIFY(stop->mapToScene({stop->width(), 0}).x() <= width);
        QVERIFY(!f().find("clicks")->isVisible());
        QSignalSpy stopped(&f().overlay, &OverlayModel::stopRequested);
        click("stop");
        QCOMPARE(stopped.size(), 1);
        // The whole width is the bar's again.
        f().overlay.setActivity(OverlayModel::Activity::Idle);
        f().panel.grabWindow();
        const QQuickItem *close = f().find("findClose");
        QVERIFY(close->mapToScene({close->width(), 0}).x() >= width - 10);
        QVERIFY(close->mapToScene({close->width(), 0}).x() <= width);
    }

    void noticeIsShownBelowTheBar()
    {
        f().panel.resize(320, 400);
        openBar();
        const QQuickItem *bubble = f().find("noticeBubble");
        QVERIFY(!bubble->isVisible());
        f().overlay.showNotice(QStringLiteral("The note can't be deleted: the disk with the "
                                              "threads of this program is full"));
        f().panel.grabWindow();
        QVERIFY(bubble->isVisible());
        QVERIFY(!f().find("notice")->isVisible());
        const QQuickItem *strip = f().find("strip");
        QVERIFY(bubble->y() >= strip->y() + strip->height());
        QVERIFY(bubble->x() + bubble->width() <= 320);
        QVERIFY(!f().find("noticeBubbleWords")->property("truncated").toBool());
        key(Qt::Key_Escape);
        QVERIFY(!bubble->isVisible());
        QVERIFY(f().find("notice")->isVisible());
    }

    void openMenuKeepsTheKeyboard()
    {
        showActive();
        f().overlay.setMenuOpen(true);
        key(Qt::Key_F, Qt::ControlModifier);
        QVERIFY(!f().finding.isOpen());
    }

    void inHistoryTheKeySearchesThreads()
    {
        showActive();
        f().history.historyButtonClicked();
        f().find("historyClose")->forceActiveFocus();
        key(Qt::Key_F, Qt::ControlModifier);
        QVERIFY(!f().finding.isOpen());
        QCOMPARE(focusName(), QStringLiteral("Search threads"));
    }

private:
    void key(int key, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::keyClick(&f().panel, Qt::Key(key), modifiers);
    }
    void openAgain()
    {
        key(Qt::Key_F, Qt::ControlModifier);
        QVERIFY(f().finding.isOpen());
        QVERIFY(f().find("findField")->hasActiveFocus());
    }
    void openBar()
    {
        showActive();
        openAgain();
    }
};

QUELLORA_TEST(QGuiApplication, TestFindBar)
#include "test_find_bar.moc"
