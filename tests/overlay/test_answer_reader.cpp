#include "base/Settings.h"
#include "base/UserDefaults.h"
#include "fakes/FakePlatform.h"
#include "overlay/AnswerReader.h"
#include "page/FakePageSurface.h"
#include "page/ResponseDisplay.h"
#include "page/StreamingRenderer.h"
#include "panels/BottomPanelsModel.h"
#include "support/TestProgram.h"

#include <QDateTime>
#include <QGuiApplication>
#include <QTemporaryDir>
#include <QTest>

using namespace quellora;
using namespace std::chrono_literals;

/// What screen readers hear of an answer and of the strip.
class TestAnswerReader : public QObject
{
    Q_OBJECT

    struct Fixture
    {
        Fixture()
        {
            QObject::connect(&overlay, &OverlayModel::announced, &overlay,
                             [this](const QString &text) { said << text; });
        }
        void start()
        {
            stream.handleStreamStart(std::nullopt, "question", QDateTime::currentDateTime(),
                                     std::nullopt);
        }
        /// Everything said so far, once nothing more comes.
        QString heard()
        {
            QTest::qWait(20);
            return said.join(QLatin1Char(' '));
        }

        QTemporaryDir folder;
        JsonUserDefaults defaults;
        Settings settings{defaults};
        FakePlatform platform;
        FakePageSurface surface;
        ResponseDisplay display{surface, platform.systemWorkspace, folder.path()};
        StreamingRenderer stream{display};
        OverlayModel overlay;
        BottomPanelsModel panels{settings};
        bool isHeard = true;
        bool isVisible = true;
        AnswerReader reader{{stream, overlay, panels, [this] { return isHeard; },
                             [this] { return isVisible; }, 2ms}};
        QStringList said;
    };

private Q_SLOTS:
    void readsAnAnswerAsItArrives()
    {
        Fixture f;
        f.start();
        f.stream.handleStreamChunk("One is here. Tw");
        QTRY_COMPARE(f.said, QStringList{"One is here."});
        f.stream.handleStreamChunk("o follows");
        f.stream.handleStreamChunk(":\n\n```sh\nls\n```\n");
        QTRY_COMPARE(f.said.join(' '), "One is here. Two follows: Code block, sh, 1 line.");
        f.stream.handleStreamChunk("The end");
        f.stream.handleStreamEnd();
        QTRY_COMPARE(f.said.last(), "The end");
        f.stream.handleStreamEnd();
        QVERIFY(f.heard().endsWith("line. The end"));
    }

    void saysWhatCanBeUndone()
    {
        Fixture f;
        f.reader.readRemoval("Deleted a note");
        QCOMPARE(f.heard(), "Deleted a note. Undo is offered for 10 seconds");
        f.isHeard = false;
        f.reader.readRemoval("Deleted a note");
        QCOMPARE(f.heard(), "Deleted a note. Undo is offered for 10 seconds");
    }

    void aResumedAnswerGoesOnWhereItWas()
    {
        Fixture f;
        f.stream.resumeStream(std::nullopt, "question", QDateTime::currentDateTime(), std::nullopt,
                              "Said before. And th");
        f.stream.handleStreamChunk("is is new. More");
        QCOMPARE(f.heard(), "And this is new.");
    }

    void leavingAnAnswerDropsTheRest()
    {
        Fixture f;
        f.start();
        f.stream.handleStreamChunk("One is here. Two");
        f.stream.abandonStream();
        f.stream.handleStreamChunk(" is not heard. Three");
        QCOMPARE(f.heard(), "");
        f.start();
        f.stream.handleStreamChunk("Another one. And");
        QCOMPARE(f.heard(), "Another one.");
    }

    void aNewAnswerReplacesTheOldOne()
    {
        Fixture f;
        f.start();
        f.stream.handleStreamChunk("```\nunfinished");
        f.start();
        f.stream.handleStreamChunk("Text of the next. And");
        QCOMPARE(f.heard(), "Text of the next.");
    }

    void silentWithoutListenerOrPanel()
    {
        Fixture f;
        for (bool Fixture::*condition : {&Fixture::isHeard, &Fixture::isVisible}) {
            f.*condition = false;
            f.start();
            f.stream.handleStreamChunk("One is here. Two");
            f.overlay.setActivity(OverlayModel::Activity::Waiting);
            f.overlay.showNotice("Nobody answers");
            // Whoever comes late hears the next answer, not half of this one.
            f.*condition = true;
            f.stream.handleStreamChunk(" follows. Three");
            f.stream.handleStreamEnd();
            QCOMPARE(f.heard(), "");
            f.overlay.setActivity(OverlayModel::Activity::Idle);
            f.said.clear();
        }
    }

    void hidingThePanelHushes()
    {
        Fixture f;
        f.start();
        f.stream.handleStreamChunk("One is here. Two");
        f.reader.hush();
        f.stream.handleStreamChunk(" follows. Three");
        QCOMPARE(f.heard(), "");
    }

    void readsErrors()
    {
        Fixture f;
        f.stream.loadContent("**Error:**\n```\nNo connection\n```");
        QCOMPARE(f.heard(), "Error: No connection");
        f.said.clear();
        f.stream.loadContent(QString());
        QCOMPARE(f.heard(), "");
    }

    void readsTheStrip()
    {
        using Activity = OverlayModel::Activity;
        Fixture f;
        const auto heard = [&f] {
            f.heard();
            return std::exchange(f.said, {}).join('|');
        };
        f.overlay.setActivity(Activity::Capturing);
        QCOMPARE(heard(), QString::fromUtf8("Capturing screen…"));
        f.overlay.setActivity(Activity::Waiting);
        QCOMPARE(heard(), QString::fromUtf8("Waiting for answer…"));
        f.overlay.setActivity(Activity::Streaming);
        QCOMPARE(heard(), QString::fromUtf8("Answering…"));
        f.overlay.setHasAnswer(true);
        f.overlay.setActivity(Activity::Idle);
        QCOMPARE(heard(), "Answer complete");
        f.overlay.setTitle("A title");
        f.overlay.setSaveState(OverlayModel::SaveState::Saved);
        QCOMPARE(heard(), "");
        f.overlay.setSaveState(OverlayModel::SaveState::Failed, "The disk is full");
        QCOMPARE(heard(), "Not saved: The disk is full");
        f.overlay.setActivity(Activity::Waiting);
        f.overlay.showStopped();
        QCOMPARE(heard(), "Stopped");
        f.overlay.setUsage(70);
        f.overlay.setUsage(85.5);
        QCOMPARE(heard(), "Usage 85%");
        f.overlay.setUsage(86);
        QCOMPARE(heard(), "");
        f.overlay.setTakesClicks(true);
        QCOMPARE(heard(), "Clicks: answer");
        f.overlay.setTakesClicks(false);
        QCOMPARE(heard(), "Clicks: through");
        f.overlay.showNotice("Nobody answers");
        QCOMPARE(heard(), "Nobody answers");
        f.overlay.showNotice("Nobody answers");
        QCOMPARE(heard(), "Nobody answers");
        f.overlay.copyAnswer();
        QCOMPARE(heard(), "Copied");
    }

    void readsVersionsAndRetry()
    {
        using Activity = OverlayModel::Activity;
        Fixture f;
        const auto heard = [&f] {
            f.heard();
            return std::exchange(f.said, {}).join('|');
        };
        f.overlay.setQuestionKnown(true);
        f.overlay.setHasAnswer(true);
        QCOMPARE(heard(), "");
        f.overlay.setVersions(2, 3);
        QCOMPARE(heard(), "Version 3 of 3");
        f.overlay.setVersions(1, 3);
        QCOMPARE(heard(), "Version 2 of 3");
        // Asking again says neither that versions are gone nor, after a failure, that they are
        // back.
        f.overlay.setActivity(Activity::Waiting);
        QCOMPARE(heard(), QString::fromUtf8("Waiting for answer…"));
        f.overlay.setActivity(Activity::Idle);
        f.overlay.setThreadCovered(true);
        QCOMPARE(heard(), "Retry is offered");
        f.overlay.setThreadCovered(false);
        QCOMPARE(heard(), "");
        f.overlay.setActivity(Activity::Waiting);
        f.overlay.setActivity(Activity::Streaming);
        f.heard();
        f.said.clear();
        f.overlay.setActivity(Activity::Idle);
        f.overlay.setVersions(3, 4);
        QCOMPARE(heard(), "Answer complete. Version 4 of 4");
    }

    void readsBlockingMessagesAndAttachments()
    {
        Fixture f;
        AdminMessagePayload message;
        message.id = "m";
        message.type = "INFORMATIONAL";
        message.headerText = "News";
        f.panels.setAdminMessage(message);
        QCOMPARE(f.heard(), "");
        message.type = "BLOCKING";
        message.headerText = "Credit Limit Reached";
        f.panels.setAdminMessage(message);
        f.panels.setAdminMessage(message);
        QCOMPARE(f.heard(), "Credit Limit Reached");
        f.said.clear();
        f.panels.setStagedScreenshotData(QByteArray("no picture"));
        QCOMPARE(f.heard(), "Screenshot attached");
        f.panels.setStagedScreenshotData(std::nullopt);
        QCOMPARE(f.heard(), "Screenshot attached");
    }
};

QUELLORA_TEST(QGuiApplication, TestAnswerReader)
#include "test_answer_reader.moc"
