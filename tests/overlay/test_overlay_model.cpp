#include "overlay/OverlayModel.h"
#include "support/TestProgram.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

using quellora::AppTheme;
using quellora::OverlayModel;
using Activity = OverlayModel::Activity;
using Status = OverlayModel::Status;
using UsageTier = OverlayModel::UsageTier;

class TestOverlayModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_now = 1000;
        m_model = std::make_unique<OverlayModel>([this] { return m_now; });
    }

    void opacityIsClamped()
    {
        QCOMPARE(m_model->currentAlpha(), 0.88);
        QSignalSpy changed(m_model.get(), &OverlayModel::currentAlphaChanged);
        m_model->setCurrentAlpha(0.98 + 0.1);
        QCOMPARE(m_model->currentAlpha(), 1.0);
        m_model->setCurrentAlpha(0.05 - 0.1);
        QCOMPARE(m_model->currentAlpha(), 0.0);
        m_model->setCurrentAlpha(-1);
        QCOMPARE(changed.size(), 2);
    }

    void sliderReportsOnlyChanges()
    {
        QSignalSpy moved(m_model.get(), &OverlayModel::sliderMoved);
        m_model->moveSlider(0.88);
        QCOMPARE(moved.size(), 0);
        m_model->moveSlider(0.5);
        QCOMPARE(moved.takeFirst().first().toDouble(), 0.5);
        QCOMPARE(m_model->currentAlpha(), 0.88); // the owner applies the value
    }

    void themeColors()
    {
        QCOMPARE(m_model->responseColor().name(), QStringLiteral("#1c1e24"));
        QCOMPARE(qRound(m_model->responseColor().alphaF() * 100), 93);
        m_model->setAppliedTheme(AppTheme::Light);
        QCOMPARE(m_model->responseColor().name(), QStringLiteral("#f7f5f0"));
        QCOMPARE(qRound(m_model->responseColor().alphaF() * 100), 93);
        QCOMPARE(qRound(m_model->leftBorderColor().alphaF() * 100), 90);
    }

    void statusPrecedence()
    {
        QCOMPARE(m_model->status(), Status::Ready);
        m_model->setHasAnswer(true);
        QCOMPARE(m_model->status(), Status::Answer);
        m_model->setSendingBlocked(true);
        QCOMPARE(m_model->status(), Status::Blocked);
        QCOMPARE(m_model->statusText(), QStringLiteral("Sending is blocked"));
        m_model->setActivity(Activity::Capturing);
        QCOMPARE(m_model->status(), Status::Capturing);
        QCOMPARE(m_model->statusText(), QStringLiteral("Capturing screen\u2026"));
        m_model->setActivity(Activity::Waiting);
        QCOMPARE(m_model->statusText(), QStringLiteral("Waiting for answer\u2026"));
        m_model->setActivity(Activity::Streaming);
        QCOMPARE(m_model->statusText(), QStringLiteral("Answering\u2026"));
        m_model->setActivity(Activity::Idle);
        QCOMPARE(m_model->status(), Status::Blocked);
    }

    void secondsCountFromPrompt()
    {
        QVERIFY(m_model->secondsText().isEmpty());
        m_model->setActivity(Activity::Waiting);
        QCOMPARE(m_model->secondsText(), QStringLiteral("0 s"));
        m_now += 2300;
        QTRY_COMPARE(m_model->secondsText(), QStringLiteral("2 s"));
        m_model->setActivity(Activity::Streaming);
        QCOMPARE(m_model->secondsText(), QStringLiteral("2 s"));
        m_now += 4000;
        QTRY_COMPARE(m_model->secondsText(), QStringLiteral("6 s"));
        m_model->setActivity(Activity::Idle);
        QVERIFY(m_model->secondsText().isEmpty());
        m_model->setActivity(Activity::Waiting);
        QCOMPARE(m_model->secondsText(), QStringLiteral("0 s"));
    }

    void stoppedExpires()
    {
        m_model->setHasAnswer(true);
        m_model->setActivity(Activity::Streaming);
        m_model->showStopped();
        QCOMPARE(m_model->status(), Status::Stopped);
        QCOMPARE(m_model->statusText(), QStringLiteral("Stopped"));
        QVERIFY(!m_model->canStop());
        m_now += OverlayModel::stoppedNoticeMs;
        QSignalSpy changed(m_model.get(), &OverlayModel::stripChanged);
        QMetaObject::invokeMethod(m_model->findChild<QTimer *>(), "timeout");
        QCOMPARE(changed.size(), 1);
        QCOMPARE(m_model->status(), Status::Answer);
    }

    void stoppedEndsWithNextActivity()
    {
        m_model->setActivity(Activity::Waiting);
        m_model->showStopped();
        m_model->setActivity(Activity::Capturing);
        m_model->setActivity(Activity::Idle);
        QCOMPARE(m_model->status(), Status::Ready);
    }

    void noTimerWhenIdle()
    {
        const auto *timer = m_model->findChild<QTimer *>();
        QVERIFY(!timer->isActive());
        m_model->setActivity(Activity::Waiting);
        QVERIFY(timer->isActive());
        m_model->setActivity(Activity::Idle);
        QVERIFY(!timer->isActive());
        m_model->setActivity(Activity::Capturing);
        QVERIFY(!timer->isActive());
    }

    void noticeExpires()
    {
        QSignalSpy changed(m_model.get(), &OverlayModel::noticeChanged);
        QSignalSpy strip(m_model.get(), &OverlayModel::stripChanged);
        m_model->setActivity(Activity::Streaming);
        strip.clear();
        m_model->showNotice(QStringLiteral("Nobody\nanswers"));
        QCOMPARE(m_model->notice(), QStringLiteral("Nobody answers"));
        QCOMPARE(changed.size(), 1);
        // The activity can still be stopped.
        QCOMPARE(strip.size(), 0);
        QCOMPARE(m_model->status(), Status::Streaming);
        QVERIFY(m_model->canStop());
        auto *timer = m_model->findChild<QTimer *>(QStringLiteral("noticeTimer"));
        QVERIFY(timer->isActive());
        QCOMPARE(timer->interval(), OverlayModel::noticeMs);
        QMetaObject::invokeMethod(timer, "timeout");
        QCOMPARE(m_model->notice(), QString());
        QCOMPARE(changed.size(), 2);
        QVERIFY(!timer->isActive());
    }

    void repeatedNoticeIsAnnouncedAgain()
    {
        m_model->showNotice(QStringLiteral("Nobody answers"));
        QStringList seen;
        connect(m_model.get(), &OverlayModel::noticeChanged, m_model.get(),
                [&] { seen << m_model->notice(); });
        m_model->showNotice(QStringLiteral("Nobody answers"));
        // The notice must be cleared in between, so that screen readers announce it again.
        QCOMPARE(seen, (QStringList{QString(), QStringLiteral("Nobody answers")}));
        m_model->showNotice(QString());
        QCOMPARE(m_model->notice(), QString());
    }

    void stopNeedsActivity()
    {
        QSignalSpy stopped(m_model.get(), &OverlayModel::stopRequested);
        m_model->stop();
        m_model->showStopped();
        m_model->stop();
        QCOMPARE(stopped.size(), 0);
        m_model->setActivity(Activity::Capturing);
        m_model->stop();
        QVERIFY(m_model->secondsText().isEmpty());
        m_model->setActivity(Activity::Waiting);
        m_model->stop();
        m_model->setActivity(Activity::Streaming);
        m_model->stop();
        QCOMPARE(stopped.size(), 3);
    }

    void copyNeedsAnswer()
    {
        QSignalSpy copied(m_model.get(), &OverlayModel::copyAnswerRequested);
        m_model->copyAnswer();
        QCOMPARE(copied.size(), 0);
        m_model->setHasAnswer(true);
        m_model->copyAnswer();
        QCOMPARE(copied.size(), 1);
    }

    void askingAgainNeedsAnIdleQuestion()
    {
        QSignalSpy retried(m_model.get(), &OverlayModel::retryRequested);
        QSignalSpy edited(m_model.get(), &OverlayModel::editRequested);
        const auto press = [this] {
            m_model->retry();
            m_model->editQuestion();
        };
        press();
        QVERIFY(!m_model->canAskAgain());
        m_model->setQuestionKnown(true);
        QVERIFY(m_model->canAskAgain());
        press();
        QCOMPARE(retried.size(), 1);
        QCOMPARE(edited.size(), 1);
        for (const auto activity :
             {OverlayModel::Activity::Capturing, OverlayModel::Activity::Waiting,
              OverlayModel::Activity::Streaming}) {
            m_model->setActivity(activity);
            press();
        }
        m_model->setActivity(OverlayModel::Activity::Idle);
        m_model->setSendingBlocked(true);
        press();
        QCOMPARE(retried.size(), 1);
        QCOMPARE(edited.size(), 1);
        m_model->setSendingBlocked(false);
        m_model->showStopped();
        press();
        QCOMPARE(retried.size(), 2);
    }

    void versionsAreShownWhileIdle()
    {
        QSignalSpy requested(m_model.get(), &OverlayModel::versionRequested);
        QCOMPARE(m_model->versionCount(), 1);
        m_model->showVersion(0);
        m_model->setVersions(1, 3);
        QCOMPARE(m_model->shownVersion(), 1);
        QCOMPARE(m_model->versionCount(), 3);
        for (const int position : {-1, 1, 3})
            m_model->showVersion(position);
        QVERIFY(requested.isEmpty());
        m_model->showVersion(2);
        QCOMPARE(requested.size(), 1);
        QCOMPARE(requested[0][0].toInt(), 2);
        m_model->setActivity(OverlayModel::Activity::Waiting);
        QCOMPARE(m_model->versionCount(), 1);
        m_model->showVersion(2);
        QCOMPARE(requested.size(), 1);
        m_model->setActivity(OverlayModel::Activity::Idle);
        QCOMPARE(m_model->versionCount(), 3);
        // A message that covers the thread.
        m_model->setThreadCovered(true);
        QCOMPARE(m_model->versionCount(), 1);
        m_model->showVersion(2);
        QCOMPARE(requested.size(), 1);
    }

    void backToThreadNeedsCoveredThread()
    {
        QSignalSpy changed(m_model.get(), &OverlayModel::stripChanged);
        QSignalSpy back(m_model.get(), &OverlayModel::backToThreadRequested);
        m_model->backToThread();
        QCOMPARE(back.size(), 0);
        m_model->setThreadCovered(true);
        m_model->setThreadCovered(true);
        QCOMPARE(changed.size(), 1);
        m_model->backToThread();
        QCOMPARE(back.size(), 1);
    }

    void latestIsOfferedAwayFromTheEndOfAnAnswer()
    {
        QSignalSpy changed(m_model.get(), &OverlayModel::isLatestOfferedChanged);
        QSignalSpy requested(m_model.get(), &OverlayModel::latestRequested);
        // An earlier answer is read anywhere.
        m_model->setEndVisible(false);
        m_model->setActivity(OverlayModel::Activity::Waiting);
        m_model->setEndVisible(false);
        m_model->showLatest();
        QCOMPARE(changed.size() + requested.size(), 0);
        m_model->setActivity(OverlayModel::Activity::Streaming);
        m_model->setEndVisible(true);
        QVERIFY(!m_model->isLatestOffered());
        m_model->setEndVisible(false);
        m_model->setEndVisible(false);
        QVERIFY(m_model->isLatestOffered());
        QCOMPARE(changed.size(), 1);
        // Also after its end, until the end has been seen.
        m_model->setActivity(OverlayModel::Activity::Idle);
        m_model->setEndVisible(false);
        QVERIFY(m_model->isLatestOffered());
        m_model->showLatest();
        QCOMPARE(requested.size(), 1);
        m_model->setEndVisible(true);
        QVERIFY(!m_model->isLatestOffered());
        m_model->setEndVisible(false);
        QVERIFY(!m_model->isLatestOffered());
        QCOMPARE(changed.size(), 2);
    }

    void retryNeedsFailedSave()
    {
        using SaveState = OverlayModel::SaveState;
        QSignalSpy changed(m_model.get(), &OverlayModel::stripChanged);
        QSignalSpy retried(m_model.get(), &OverlayModel::retrySavingRequested);
        for (const SaveState state : {SaveState::Saving, SaveState::Saved, SaveState::None}) {
            m_model->setSaveState(state);
            m_model->retrySaving();
        }
        QCOMPARE(retried.size(), 0);
        m_model->setSaveState(SaveState::Failed, QStringLiteral("full"));
        m_model->setSaveState(SaveState::Failed, QStringLiteral("full"));
        QCOMPARE(changed.size(), 4);
        m_model->setSaveState(SaveState::Failed, QStringLiteral("read-only"));
        QCOMPARE(changed.size(), 5);
        QCOMPARE(m_model->saveProblem(), QStringLiteral("read-only"));
        m_model->retrySaving();
        QCOMPARE(retried.size(), 1);
        m_model->setSaveState(SaveState::Saved);
        QCOMPARE(m_model->saveProblem(), QString());
    }

    void titleIsTruncatedToOneLine()
    {
        m_model->setTitle(QString(1024 * 1024, u'x'));
        QCOMPARE(m_model->title(), QString(2000, u'x'));
        m_model->setTitle(QStringLiteral("First\nsecond  line "));
        QCOMPARE(m_model->title(), QStringLiteral("First second line"));
    }

    void usageTiers_data()
    {
        QTest::addColumn<double>("percent");
        QTest::addColumn<bool>("isShown");
        QTest::addColumn<UsageTier>("tier");
        QTest::addColumn<int>("shownPercent");
        QTest::newRow("79.99") << 79.99 << false << UsageTier::Grey << 79;
        QTest::newRow("80") << 80.0 << true << UsageTier::Amber << 80;
        QTest::newRow("94.9") << 94.9 << true << UsageTier::Amber << 94;
        QTest::newRow("95") << 95.0 << true << UsageTier::Red << 95;
        QTest::newRow("180") << 180.0 << true << UsageTier::Red << 180;
    }
    void usageTiers()
    {
        QFETCH(double, percent);
        QFETCH(bool, isShown);
        QFETCH(UsageTier, tier);
        QFETCH(int, shownPercent);
        m_model->setUsage(percent);
        QCOMPARE(m_model->isUsageShown(), isShown);
        QCOMPARE(m_model->usageTier(), tier);
        QCOMPARE(m_model->usagePercent(), shownPercent);
        m_model->setUsage(std::nullopt);
        QVERIFY(!m_model->isUsageShown());
        QCOMPARE(m_model->usageTier(), UsageTier::Grey);
    }

    void clickThroughEndsWhileMenuOrSheetIsOpen()
    {
        m_model->setWindowSize({624, 744});
        m_model->setBottomPanelsHeight(140);
        QCOMPARE(m_model->responseRect(), QRectF(0, 72, 596, 532));
        QCOMPARE(m_model->clickThroughRect(), QRect(0, 72, 596, 532));
        QSignalSpy changed(m_model.get(), &OverlayModel::clickThroughRectChanged);
        m_model->setMenuOpen(true);
        QVERIFY(m_model->clickThroughRect().isEmpty());
        m_model->setSheetOpen(true);
        m_model->setMenuOpen(false);
        QVERIFY(m_model->clickThroughRect().isEmpty());
        m_model->setSheetOpen(false);
        QCOMPARE(m_model->clickThroughRect(), QRect(0, 72, 596, 532));
        QCOMPARE(changed.size(), 2);
    }

    void clickThroughEndsWhileTheAnswerTakesClicks()
    {
        m_model->setWindowSize({624, 744});
        m_model->setBottomPanelsHeight(140);
        QSignalSpy changed(m_model.get(), &OverlayModel::clickThroughRectChanged);
        m_model->setTakesClicks(true);
        m_model->setTakesClicks(true);
        QVERIFY(m_model->clickThroughRect().isEmpty());
        m_model->setMenuOpen(true);
        m_model->setMenuOpen(false);
        QVERIFY(m_model->clickThroughRect().isEmpty());
        m_model->setTakesClicks(false);
        QCOMPARE(m_model->clickThroughRect(), QRect(0, 72, 596, 532));
        QCOMPARE(changed.size(), 2);
    }

    void clicksAreOfferedForAPageAndWhileTheyAreOn()
    {
        QSignalSpy changed(m_model.get(), &OverlayModel::clicksChanged);
        QVERIFY(!m_model->areClicksOffered());
        m_model->setTakesClicks(true);
        QVERIFY(m_model->areClicksOffered());
        m_model->setTakesClicks(false);
        QVERIFY(!m_model->areClicksOffered());
        m_model->setPageClickable(true);
        m_model->setPageClickable(true);
        QVERIFY(m_model->areClicksOffered());
        QVERIFY(!m_model->takesClicks());
        m_model->setPageClickable(false);
        QVERIFY(!m_model->areClicksOffered());
        QCOMPARE(changed.size(), 4);
        QSignalSpy toggled(m_model.get(), &OverlayModel::clicksToggled);
        m_model->toggleClicks();
        QCOMPARE(toggled.size(), 1);
        QVERIFY(!m_model->takesClicks());
    }

    void clickThroughRectIsRoundedInward()
    {
        m_model->setWindowSize({624, 744});
        m_model->setBottomPanelsHeight(140.4);
        QCOMPARE(m_model->clickThroughRect().bottom() + 1, 603);
        QCOMPARE(m_model->clickThroughRect().top(), 72);
    }

    void geometryFollowsWindowAndPanels()
    {
        QSignalSpy changed(m_model.get(), &OverlayModel::geometryChanged);
        m_model->setWindowSize({320, 280});
        m_model->setBottomPanelsHeight(76);
        m_model->setBottomPanelsHeight(76);
        QCOMPARE(changed.size(), 2);
        QVERIFY(m_model->isCompact());
        QCOMPARE(m_model->availablePanelsHeight(), 208.0);
        QCOMPARE(m_model->responseRect().height(), 132.0);
    }

private:
    qint64 m_now = 0;
    std::unique_ptr<OverlayModel> m_model;
};

QUELLORA_TEST(QGuiApplication, TestOverlayModel)
#include "test_overlay_model.moc"
