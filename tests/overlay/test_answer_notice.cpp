#include "base/Settings.h"
#include "fakes/FakeNotifications.h"
#include "overlay/AnswerNotice.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace quellora;

namespace {

struct Fixture
{
    Fixture() { settings.setNotifyWhenAnswerReady(true); }

    FakeNotifications notifications;
    JsonUserDefaults defaults;
    Settings settings{defaults};
    bool isPanelVisible = false;
    std::unique_ptr<AnswerNotice> notice =
        std::make_unique<AnswerNotice>(notifications, settings, [this] { return isPanelVisible; });
};

} // namespace

class TestAnswerNotice : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void announcesEndWhilePanelIsHidden()
    {
        Fixture f;
        f.notice->answerEnded(true);
        QCOMPARE(f.notifications.titles, QStringList{"Your answer is ready"});
        QCOMPARE(f.notifications.texts, QStringList{"Show Quellora to read it."});
        f.notice->answerEnded(false);
        QCOMPARE(f.notifications.titles.last(), "Your answer failed");
        QCOMPARE(f.notifications.texts.last(), "Show Quellora to see why.");
    }

    void isOffByDefault()
    {
        Fixture f;
        f.defaults.remove("notifyWhenAnswerReady");
        f.notice->answerEnded(true);
        QVERIFY(f.notifications.titles.isEmpty());
    }

    void visiblePanelNeedsNoNotice()
    {
        Fixture f;
        f.isPanelVisible = true;
        f.notice->answerEnded(true);
        f.notice->answerEnded(false);
        QVERIFY(f.notifications.titles.isEmpty());
    }

    void closesWhenPanelIsShown()
    {
        Fixture f;
        f.notice->answerEnded(true);
        QVERIFY(f.notifications.isShown);
        f.notice->panelShown();
        QVERIFY(!f.notifications.isShown);
    }

    void closesAtEnd()
    {
        Fixture f;
        f.notice->answerEnded(true);
        f.notice.reset();
        QVERIFY(!f.notifications.isShown);
    }

    void choosingItRequestsThePanel()
    {
        Fixture f;
        QSignalSpy requested(f.notice.get(), &AnswerNotice::showRequested);
        f.notice->answerEnded(true);
        f.notifications.choose();
        QCOMPARE(requested.size(), 1);
    }
};

QUELLORA_TEST(QCoreApplication, TestAnswerNotice)
#include "test_answer_notice.moc"
