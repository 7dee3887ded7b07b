#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "page/FakePageSurface.h"
#include "page/StreamingRenderer.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTest>

#include <utility>

using namespace quellora;

namespace {

QString line(const char *text)
{
    return QStringLiteral("[OverlayWindowController] ") + QString::fromUtf8(text);
}

QString append(const char *text)
{
    return responsepage::streamAppendScript(QString::fromUtf8(text));
}

const QString finish = responsepage::streamFinishScript();
const QString hideDots = responsepage::hideLoadingScript();

} // namespace

class TestStreamingRenderer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void startLoadsTheShell();
    void chunksBeforeTheShellAreDrainedInOrder();
    void onlyWhatIsNewIsSent();
    void endFinishesTheAnswer();
    void streamWithoutChunksIsFinished();
    void endBeforeTheShellLosesNothing();
    void otherPageDoesNotMakeTheShellReady();
    void pageThatReplacesTheShellDoesNotMakeItReady();
    void startDiscardsWhatWasUnderWay();
    void staleShellDoesNotMakeTheNewOneReady();
    void slowPageGetsWhatArrivedMeanwhileAsOnePiece();
    void abandonedStreamIsSentNoMore();
    void chunkAfterTheEndBeginsAnotherAnswer();
    void resumeShowsWhatHasArrived();
    void resumeWithoutTextWaits();
    void rebuiltPageIsSentEverythingAgain();
    void pageThatEndsDuringAnAppendIsSentEverythingAgain();
    void streamThatEndsWhileThePageIsRebuiltIsFinished();
    void finishedAnswerIsRebuilt();
    void rebuiltShellWithoutChunksKeepsTheDots();
    void lostPageTakesNothing();
    void otherPageIsNotTakenForTheShellWhenRebuilt();
    void rebuiltPageHasTheCurrentLook();
    void appendsWaitWhileThePageIsHeld();
    void halvesOfACharacterReachThePage();
    void finishedAnswerStaysAsTheTurn();
    void otherThreadIsLoaded_data();
    void otherThreadIsLoaded();
    void answerInPlaceOfATurnStays();
    void pageThatIsNotReadyIsLoaded();
    void newQuestionTakesThePlaceOfAKeptPage();

private:
    void start()
    {
        m_renderer->handleStreamStart(std::nullopt, QStringLiteral("question"),
                                      QDateTime::currentDateTime(), std::nullopt);
    }
    bool shown(int count = 1)
    {
        return QTest::qWaitFor([&] { return m_surface->loads.size() >= count; }, 5000);
    }
    void startAndFinishShell()
    {
        const auto before = static_cast<int>(m_surface->loads.size());
        start();
        QVERIFY(shown(before + 1));
        m_surface->finishLoad();
        m_log->clear();
    }
    CaptureSession answered();

    std::unique_ptr<LogCapture> m_log;
    QTemporaryDir m_dir;
    std::unique_ptr<FakePageSurface> m_surface;
    FakeWorkspace m_workspace;
    std::unique_ptr<ResponseDisplay> m_display;
    std::unique_ptr<StreamingRenderer> m_renderer;
};

void TestStreamingRenderer::init()
{
    m_log = std::make_unique<LogCapture>();
    m_surface = std::make_unique<FakePageSurface>();
    m_display = std::make_unique<ResponseDisplay>(*m_surface, m_workspace, m_dir.path());
    m_renderer = std::make_unique<StreamingRenderer>(*m_display);
}

void TestStreamingRenderer::cleanup()
{
    m_renderer.reset();
    m_display.reset();
    m_surface.reset();
    m_log.reset();
}

void TestStreamingRenderer::startLoadsTheShell()
{
    start();
    QCOMPARE(m_log->lines, (QStringList{line("Stream start received"),
                                        line("loadStreamingThreadShell() — building shell HTML")}));
    QVERIFY(shown());
    QCOMPARE(m_log->lines.last(), line("Triggering streaming shell WebView load"));
    QVERIFY(m_surface->page().contains(QStringLiteral("id=\"streaming-response\"")));
    m_surface->finishLoad();
    QCOMPARE(m_log->lines.mid(3),
             (QStringList{line("WebView finished loading"), line("Streaming shell ready")}));
}

void TestStreamingRenderer::chunksBeforeTheShellAreDrainedInOrder()
{
    start();
    for (const char *chunk : {"a", "b", "c"})
        m_renderer->handleStreamChunk(QString::fromLatin1(chunk));
    QCOMPARE(m_log->lines.last(), line("Chunk queued (shell not ready yet), queue size 3"));
    QVERIFY(shown());
    QVERIFY(m_surface->scripts.isEmpty());
    m_log->clear();
    m_surface->finishLoad();
    QCOMPARE(m_log->lines, (QStringList{line("WebView finished loading"),
                                        line("Streaming shell ready, draining 3 queued chunk(s)"),
                                        line("First chunk received, hiding loading dots")}));
    QCOMPARE(m_surface->scripts, (QStringList{hideDots, append("abc")}));
}

void TestStreamingRenderer::onlyWhatIsNewIsSent()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("it's "));
    m_renderer->handleStreamChunk(QStringLiteral("`x`"));
    QCOMPARE(m_log->lines, QStringList{line("First chunk received, hiding loading dots")});
    QCOMPARE(m_surface->scripts, (QStringList{hideDots, append("it's "), append("`x`")}));
}

void TestStreamingRenderer::endFinishesTheAnswer()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("abc"));
    m_log->clear();
    m_renderer->handleStreamEnd();
    QCOMPARE(m_log->lines, (QStringList{line("Stream end received, finalizing render (3 chars)"),
                                        line("Stream complete, buffer cleared")}));
    QCOMPARE(m_surface->scripts.last(), finish);
}

void TestStreamingRenderer::streamWithoutChunksIsFinished()
{
    startAndFinishShell();
    m_renderer->handleStreamEnd();
    QCOMPARE(m_surface->scripts, QStringList{finish});
}

void TestStreamingRenderer::endBeforeTheShellLosesNothing()
{
    start();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    m_renderer->handleStreamEnd();
    QVERIFY(m_log->contains(line("Stream end received, finalizing render (2 chars)")));
    QVERIFY(shown());
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, QStringList{append("ab") + finish});
    QCOMPARE(m_log->lines.last(), line("Streaming shell ready"));
}

void TestStreamingRenderer::otherPageDoesNotMakeTheShellReady()
{
    m_display->loadContent(QStringLiteral("before"));
    QVERIFY(shown());
    start();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    // The previous page finishes only now.
    m_surface->finishLoad();
    QVERIFY(m_surface->scripts.isEmpty());
    QVERIFY(shown(2));
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts.last(), append("a"));
}

void TestStreamingRenderer::pageThatReplacesTheShellDoesNotMakeItReady()
{
    start();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_display->loadContent(QStringLiteral("error page"));
    QVERIFY(shown());
    m_surface->finishLoad();
    m_renderer->handleStreamEnd();
    QVERIFY(m_surface->scripts.isEmpty());
}

void TestStreamingRenderer::startDiscardsWhatWasUnderWay()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("old"));
    start();
    m_renderer->handleStreamChunk(QStringLiteral("new"));
    QVERIFY(shown(2));
    m_surface->scripts.clear();
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, (QStringList{hideDots, append("new")}));
}

void TestStreamingRenderer::staleShellDoesNotMakeTheNewOneReady()
{
    start();
    QVERIFY(shown());
    start();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_surface->finishLoad();
    QVERIFY(m_surface->scripts.isEmpty());
}

void TestStreamingRenderer::slowPageGetsWhatArrivedMeanwhileAsOnePiece()
{
    startAndFinishShell();
    m_surface->runsAtOnce = false;
    for (const char *chunk : {"a", "b", "c"})
        m_renderer->handleStreamChunk(QString::fromLatin1(chunk));
    QCOMPARE(m_surface->scripts, (QStringList{hideDots, append("a")}));
    m_surface->finishScript();
    QCOMPARE(m_surface->scripts.last(), append("bc"));
    m_renderer->handleStreamChunk(QStringLiteral("d"));
    m_renderer->handleStreamEnd();
    QCOMPARE(m_surface->scripts.size(), 3);
    m_surface->finishScript();
    QCOMPARE(m_surface->scripts.last(), append("d") + finish);
    m_surface->finishScript();
    QCOMPARE(m_surface->scripts.size(), 4);
}

void TestStreamingRenderer::abandonedStreamIsSentNoMore()
{
    start();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    QVERIFY(shown());
    m_renderer->abandonStream();
    m_surface->finishLoad();
    QVERIFY(m_surface->scripts.isEmpty());

    startAndFinishShell();
    m_surface->runsAtOnce = false;
    m_renderer->handleStreamChunk(QStringLiteral("x"));
    m_renderer->handleStreamChunk(QStringLiteral("y"));
    m_renderer->abandonStream();
    m_surface->finishScript();
    QCOMPARE(m_surface->scripts.last(), append("x"));
}

void TestStreamingRenderer::chunkAfterTheEndBeginsAnotherAnswer()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_renderer->handleStreamEnd();
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    QCOMPARE(m_surface->scripts.last(), append("b"));
}

void TestStreamingRenderer::resumeShowsWhatHasArrived()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("one "));
    const auto before = static_cast<int>(m_surface->loads.size());
    m_log->clear();
    m_renderer->resumeStream(std::nullopt, QStringLiteral("question"), QDateTime::currentDateTime(),
                             std::nullopt, QStringLiteral("one "));
    QCOMPARE(m_log->lines.first(), line("Stream resumed (4 chars)"));
    m_renderer->handleStreamChunk(QStringLiteral("two"));
    QVERIFY(shown(before + 1));
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts.last(), append("one two"));
    QVERIFY(m_log->contains(line("Streaming shell ready, draining 2 queued chunk(s)")));
}

void TestStreamingRenderer::resumeWithoutTextWaits()
{
    m_renderer->resumeStream(std::nullopt, QStringLiteral("question"), QDateTime::currentDateTime(),
                             std::nullopt, QString());
    QVERIFY(shown());
    m_log->clear();
    m_surface->finishLoad();
    QVERIFY(m_log->contains(line("Streaming shell ready")));
    QVERIFY(!m_log->contains(line("First chunk received, hiding loading dots")));
}

void TestStreamingRenderer::rebuiltPageIsSentEverythingAgain()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_surface->crash();
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    QCOMPARE(m_log->lines.last(), line("Chunk queued (shell not ready yet), queue size 1"));
    m_surface->scripts.clear();
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, (QStringList{hideDots, append("ab")}));

    // Immediately, not only with the next chunk.
    m_surface->crash();
    m_surface->scripts.clear();
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, (QStringList{hideDots, append("ab")}));
    m_renderer->handleStreamChunk(QStringLiteral("c"));
    QCOMPARE(m_surface->scripts.last(), append("c"));
}

void TestStreamingRenderer::pageThatEndsDuringAnAppendIsSentEverythingAgain()
{
    startAndFinishShell();
    m_surface->runsAtOnce = false;
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    m_surface->crash();
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts.last(), append("ab"));
}

void TestStreamingRenderer::streamThatEndsWhileThePageIsRebuiltIsFinished()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_surface->crash();
    m_renderer->handleStreamChunk(QStringLiteral("`b`"));
    m_renderer->handleStreamEnd();
    m_surface->scripts.clear();
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, QStringList{append("a`b`") + finish});
}

void TestStreamingRenderer::finishedAnswerIsRebuilt()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_renderer->handleStreamEnd();
    m_surface->crash();
    m_surface->scripts.clear();
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, QStringList{append("a") + finish});
}

void TestStreamingRenderer::rebuiltShellWithoutChunksKeepsTheDots()
{
    startAndFinishShell();
    m_surface->crash();
    m_surface->finishLoad();
    QVERIFY(m_log->contains(line("Streaming shell ready")));
    QVERIFY(m_surface->scripts.isEmpty());
}

void TestStreamingRenderer::lostPageTakesNothing()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    for (int i = 0; i < 4; ++i)
        m_surface->crash();
    QVERIFY(m_surface->isPageLost());
    m_surface->scripts.clear();
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    m_renderer->handleStreamEnd();
    QVERIFY(m_surface->scripts.isEmpty());
    QVERIFY(m_log->contains(line("Stream end received, finalizing render (2 chars)")));
    // The next stream has its page.
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("c"));
    QCOMPARE(m_surface->scripts.last(), append("c"));
}

void TestStreamingRenderer::otherPageIsNotTakenForTheShellWhenRebuilt()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_renderer->handleStreamEnd();
    m_display->loadContent(QStringLiteral("thread"));
    QVERIFY(shown(2));
    m_surface->finishLoad();
    m_surface->scripts.clear();
    m_surface->crash();
    m_surface->finishLoad();
    QVERIFY(m_surface->scripts.isEmpty());
}

void TestStreamingRenderer::rebuiltPageHasTheCurrentLook()
{
    startAndFinishShell();
    m_display->setAppliedTheme(AppTheme::Light);
    m_display->setResponseTextColorHex(QStringLiteral("#8899aa"));
    m_display->applyTheme();
    m_display->setCurrentAlpha(0.5);
    m_display->pushPillAlphaLive();
    const QStringList pushed = std::exchange(m_surface->scripts, {});
    QCOMPARE(pushed.size(), 2);
    for (int i = 0; i < 2; ++i) {
        m_surface->crash();
        m_surface->finishLoad();
        QCOMPARE(std::exchange(m_surface->scripts, {}), pushed);
    }
}

void TestStreamingRenderer::appendsWaitWhileThePageIsHeld()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_surface->setHeld(true);
    m_surface->scripts.clear();
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    m_renderer->handleStreamChunk(QStringLiteral("c"));
    QVERIFY(m_surface->scripts.isEmpty());
    m_surface->setHeld(false);
    QCOMPARE(m_surface->scripts, QStringList{append("bc")});

    m_surface->setHeld(true);
    m_surface->scripts.clear();
    m_renderer->handleStreamChunk(QStringLiteral("d"));
    m_renderer->handleStreamEnd();
    QVERIFY(m_surface->scripts.isEmpty());
    m_surface->setHeld(false);
    QCOMPARE(m_surface->scripts, QStringList{append("d") + finish});
}

void TestStreamingRenderer::halvesOfACharacterReachThePage()
{
    startAndFinishShell();
    const QString text = QStringLiteral("\U0001F30D");
    m_renderer->handleStreamChunk(text.left(1));
    m_renderer->handleStreamChunk(text.mid(1));
    QCOMPARE(m_surface->scripts.mid(1),
             (QStringList{QStringLiteral("answers.append(\"\\ud83c\");"),
                          QStringLiteral("answers.append(\"\\udf0d\");")}));
}

// ---- the finished answer becomes a turn of its thread ----------------------------------------

/// Streams an answer for a thread that has an entry, and returns the thread with it.
CaptureSession TestStreamingRenderer::answered()
{
    CaptureSession session = CaptureSession::create();
    session.addTurn(QStringLiteral("before"), QStringLiteral("answer"),
                    QDateTime::currentDateTime().addSecs(-60));
    session.addScreenshot("AB", QDateTime::currentDateTime().addSecs(-1));
    const auto before = static_cast<int>(m_surface->loads.size());
    m_renderer->handleStreamStart(session, QStringLiteral("question"), QDateTime::currentDateTime(),
                                  session.screenshots[0]);
    if (!shown(before + 1))
        qFatal("the shell page is not loaded");
    m_surface->finishLoad();
    m_renderer->handleStreamChunk(QStringLiteral("the answer"));
    m_renderer->handleStreamEnd();
    session.addTurn(QStringLiteral("question"), QStringLiteral("the answer"),
                    QDateTime::currentDateTime(), QDateTime::currentDateTime(),
                    CaptureSession::TurnScreenshot{0});
    m_log->clear();
    m_surface->scripts.clear();
    return session;
}

void TestStreamingRenderer::finishedAnswerStaysAsTheTurn()
{
    const CaptureSession session = answered();
    const QString turn = responsepage::streamedTurnScript(session.turns.last());
    m_renderer->renderThread(session);
    QCOMPARE(m_log->lines, QStringList{line("renderThread() — 0 notes, 2 turns")});
    m_surface->runsAtOnce = false;
    QTRY_COMPARE(m_surface->scripts, QStringList{turn});
    QCOMPARE(m_log->lines.mid(1), QStringList{line("Triggering WebView load")});
    m_surface->finishScript();
    QCOMPARE(m_log->lines.mid(2), QStringList{line("WebView finished loading")});
    QCOMPARE(m_surface->loads.size(), 1);

    // After its process has ended, the page is rebuilt as the same thread.
    m_surface->scripts.clear();
    m_surface->crash();
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, QStringList{append("the answer") + finish + turn});
    // Nothing is added to a turn.
    m_surface->scripts.clear();
    m_renderer->handleStreamChunk(QStringLiteral("late"));
    m_surface->finishScript();
    QVERIFY(m_surface->scripts.isEmpty());
    // Shown once more, the thread is loaded.
    m_renderer->renderThread(session);
    QVERIFY(shown(2));
}

void TestStreamingRenderer::otherThreadIsLoaded_data()
{
    QTest::addColumn<std::function<void(CaptureSession &)>>("change");
    const auto row = [](const char *tag, const std::function<void(CaptureSession &)> &change) {
        QTest::newRow(tag) << change;
    };
    row("note", [](auto &session) { session.addNote(QStringLiteral("n")); });
    row("other answer", [](auto &session) { session.turns.last().response = QStringLiteral("x"); });
    row("other question", [](auto &session) { session.turns.last().prompt = QStringLiteral("x"); });
    row("other earlier answer",
        [](auto &session) { session.turns.first().response = QStringLiteral("x"); });
    row("earlier turn with a picture",
        [](auto &session) { session.screenshots[0].capturedAt = session.turns.first().createdAt; });
    row("without the picture", [](auto &session) { session.removeScreenshot(0); });
    row("another picture", [](auto &session) {
        session.addScreenshot("CD", QDateTime::currentDateTime());
        session.turns.last().screenshot = CaptureSession::TurnScreenshot{1};
    });
    row("turn not at the end", [](auto &session) {
        session.turns.last().createdAt = session.turns.first().createdAt.addSecs(-1);
    });
    row("no turn", [](auto &session) { session.turns.clear(); });
}

void TestStreamingRenderer::otherThreadIsLoaded()
{
    QFETCH(std::function<void(CaptureSession &)>, change);
    CaptureSession session = answered();
    change(session);
    m_renderer->renderThread(session);
    QVERIFY(shown(2));
    QVERIFY(m_surface->scripts.isEmpty());
}

/// An answer in the place of a turn stays where it is, also above a later note.
void TestStreamingRenderer::answerInPlaceOfATurnStays()
{
    const QDateTime now = QDateTime::currentDateTime();
    CaptureSession session = CaptureSession::create(now.addSecs(-90));
    session.addTurn(QStringLiteral("before"), QStringLiteral("b"), now.addSecs(-80));
    session.addTurn(QStringLiteral("q"), QStringLiteral("one"), now.addSecs(-60));
    session.addNote(QStringLiteral("note"), now.addSecs(-30));
    const QUuid replaced = session.turns[1].id;
    const auto stream = [&] {
        const auto before = static_cast<int>(m_surface->loads.size());
        m_renderer->handleStreamStart(session, QStringLiteral("q"), now, std::nullopt, replaced);
        if (!shown(before + 1))
            qFatal("the shell page is not loaded");
        m_surface->finishLoad();
        m_renderer->handleStreamChunk(QStringLiteral("two"));
        m_renderer->handleStreamEnd();
        m_surface->scripts.clear();
    };
    stream();
    CaptureSession answered = session;
    QVERIFY(answered.addVersion(replaced, {QStringLiteral("q"), QStringLiteral("two"), now}, true));
    m_renderer->renderThread(answered);
    QTRY_COMPARE(m_surface->scripts,
                 QStringList{responsepage::streamedTurnScript(answered.turns[1])});
    QCOMPARE(m_surface->loads.size(), 1);

    // The earlier version is on show, or the turn has gone.
    stream();
    answered.showVersion(replaced, 0);
    m_renderer->renderThread(answered);
    QVERIFY(shown(3));
    stream();
    answered.turns.removeLast();
    m_renderer->renderThread(answered);
    QVERIFY(shown(5));
    QVERIFY(m_surface->scripts.isEmpty());
}

void TestStreamingRenderer::pageThatIsNotReadyIsLoaded()
{
    const CaptureSession session = answered();
    m_surface->crash();
    m_renderer->renderThread(session);
    QVERIFY(shown(2));
    // Another page is on show or being loaded.
    const CaptureSession next = answered();
    m_display->loadContent(QStringLiteral("error"));
    m_renderer->renderThread(next);
    QVERIFY(shown(4));
    QVERIFY(m_surface->scripts.isEmpty());
}

void TestStreamingRenderer::newQuestionTakesThePlaceOfAKeptPage()
{
    const CaptureSession session = answered();
    m_renderer->renderThread(session);
    start();
    QVERIFY(shown(2));
    QVERIFY(m_surface->scripts.isEmpty());
    QCOMPARE(m_log->lines.filter(QStringLiteral("Triggering WebView load")).size(), 0);
}

QUELLORA_TEST(QCoreApplication, TestStreamingRenderer)
#include "test_streaming_renderer.moc"
