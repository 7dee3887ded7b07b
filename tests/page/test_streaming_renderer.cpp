#include "fakes/FakePlatform.h"
#include "fakes/LogCapture.h"
#include "page/FakePageSurface.h"
#include "page/StreamingRenderer.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <utility>

using namespace quellora;

namespace {

QString line(const char *text)
{
    return QStringLiteral("[OverlayWindowController] ") + QString::fromUtf8(text);
}

QString render(const char *text, bool highlight = false)
{
    return responsepage::streamRenderScript(QString::fromUtf8(text), highlight);
}

} // namespace

class TestStreamingRenderer : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void startLoadsTheShellAndShowsTheWindow();
    void chunksBeforeTheShellAreDrainedInOrder();
    void chunksAfterTheShellRenderTheWholeBuffer();
    void endRendersWithHighlighting();
    void streamWithoutChunksEmptiesTheSlot();
    void endBeforeTheShellLosesNothing();
    void otherPageDoesNotMakeTheShellReady();
    void pageThatReplacesTheShellDoesNotMakeItReady();
    void startDiscardsWhatWasUnderWay();
    void staleShellDoesNotMakeTheNewOneReady();
    void slowPageGetsTheNewestBuffer();
    void abandonReturnsWhatArrived();
    void chunkAfterTheEndIsRendered();
    void resumeShowsWhatHasArrived();
    void resumeWithoutTextWaits();
    void streamGoesOnAfterThePageIsRebuilt();
    void streamThatEndsWhileThePageIsRebuiltIsFinished();
    void finishedAnswerIsRebuilt();
    void rebuiltShellWithoutChunksKeepsTheDots();
    void lostPageKeepsTheAnswer();
    void otherPageIsNotTakenForTheShellWhenRebuilt();
    void rebuiltPageHasTheCurrentLook();
    void rendersWaitWhileThePageIsHeld();
    void pieceByPieceEscapingEqualsTheWhole();

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

void TestStreamingRenderer::startLoadsTheShellAndShowsTheWindow()
{
    QSignalSpy show(m_renderer.get(), &StreamingRenderer::showWindowRequested);
    start();
    QCOMPARE(show.size(), 1);
    QCOMPARE(m_log->lines, (QStringList{line("Stream start received"),
                                        line("loadStreamingThreadShell() — building shell HTML")}));
    QVERIFY(shown());
    QCOMPARE(m_log->lines.last(), line("Triggering streaming shell WebView load"));
    QVERIFY(m_surface->page().contains(QStringLiteral("id=\"streaming-response\"")));
    QVERIFY(!m_renderer->isStreamingShellReady());
    m_surface->finishLoad();
    QCOMPARE(m_log->lines.mid(3),
             (QStringList{line("WebView finished loading"), line("Streaming shell ready")}));
    QVERIFY(m_renderer->isStreamingShellReady());
}

void TestStreamingRenderer::chunksBeforeTheShellAreDrainedInOrder()
{
    start();
    for (const char *chunk : {"a", "b", "c"})
        m_renderer->handleStreamChunk(QString::fromLatin1(chunk));
    QCOMPARE(m_log->lines.last(), line("Chunk queued (shell not ready yet), queue size 3"));
    QVERIFY(m_renderer->streamBuffer().isEmpty());
    QVERIFY(shown());
    m_log->clear();
    m_surface->finishLoad();
    QCOMPARE(m_log->lines, (QStringList{line("WebView finished loading"),
                                        line("Streaming shell ready, draining 3 queued chunk(s)"),
                                        line("First chunk received, hiding loading dots")}));
    QCOMPARE(m_surface->scripts, (QStringList{responsepage::hideLoadingScript(), render("a"),
                                              render("ab"), render("abc")}));
}

void TestStreamingRenderer::chunksAfterTheShellRenderTheWholeBuffer()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("it's "));
    m_renderer->handleStreamChunk(QStringLiteral("`x`"));
    QCOMPARE(m_log->lines, QStringList{line("First chunk received, hiding loading dots")});
    QCOMPARE(m_surface->scripts,
             (QStringList{responsepage::hideLoadingScript(), render("it's "), render("it's `x`")}));
    QCOMPARE(m_renderer->streamBuffer(), QStringLiteral("it's `x`"));
}

void TestStreamingRenderer::endRendersWithHighlighting()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("abc"));
    m_log->clear();
    QCOMPARE(m_renderer->handleStreamEnd(), QStringLiteral("abc"));
    QCOMPARE(m_log->lines, (QStringList{line("Stream end received, finalizing render (3 chars)"),
                                        line("Stream complete, buffer cleared")}));
    QCOMPARE(m_surface->scripts.last(), render("abc", true));
    QVERIFY(m_renderer->streamBuffer().isEmpty());
}

void TestStreamingRenderer::streamWithoutChunksEmptiesTheSlot()
{
    startAndFinishShell();
    QCOMPARE(m_renderer->handleStreamEnd(), QString());
    QCOMPARE(m_surface->scripts, QStringList{render("", true)});
}

void TestStreamingRenderer::endBeforeTheShellLosesNothing()
{
    start();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    QCOMPARE(m_renderer->handleStreamEnd(), QStringLiteral("ab"));
    QVERIFY(m_log->contains(line("Stream end received, finalizing render (2 chars)")));
    QVERIFY(shown());
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts.last(), render("ab", true));
    QCOMPARE(m_log->lines.last(), line("Streaming shell ready"));
}

void TestStreamingRenderer::otherPageDoesNotMakeTheShellReady()
{
    m_display->loadContent(QStringLiteral("before"));
    QVERIFY(shown());
    start();
    // The page before reports only now.
    m_surface->finishLoad();
    QVERIFY(!m_renderer->isStreamingShellReady());
    QVERIFY(shown(2));
    m_surface->finishLoad();
    QVERIFY(m_renderer->isStreamingShellReady());
}

void TestStreamingRenderer::pageThatReplacesTheShellDoesNotMakeItReady()
{
    start();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_display->loadContent(QStringLiteral("error page"));
    QVERIFY(shown());
    m_surface->finishLoad();
    QVERIFY(!m_renderer->isStreamingShellReady());
    QVERIFY(m_surface->scripts.isEmpty());
    QCOMPARE(m_renderer->handleStreamEnd(), QStringLiteral("a"));
}

void TestStreamingRenderer::startDiscardsWhatWasUnderWay()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("old"));
    start();
    QVERIFY(m_renderer->streamBuffer().isEmpty());
    QVERIFY(!m_renderer->isStreamingShellReady());
    m_renderer->handleStreamChunk(QStringLiteral("new"));
    QVERIFY(shown(2));
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts.last(), render("new"));
    QCOMPARE(m_surface->scripts.count(responsepage::hideLoadingScript()), 2);
}

void TestStreamingRenderer::staleShellDoesNotMakeTheNewOneReady()
{
    start();
    QVERIFY(shown());
    start();
    m_surface->finishLoad();
    QVERIFY(!m_renderer->isStreamingShellReady());
}

void TestStreamingRenderer::slowPageGetsTheNewestBuffer()
{
    startAndFinishShell();
    m_surface->runsAtOnce = false;
    for (const char *chunk : {"a", "b", "c", "d"})
        m_renderer->handleStreamChunk(QString::fromLatin1(chunk));
    QCOMPARE(m_surface->scripts, (QStringList{responsepage::hideLoadingScript(), render("a")}));
    m_renderer->handleStreamEnd();
    m_surface->finishScript();
    QCOMPARE(m_surface->scripts.last(), render("abcd", true));
    QCOMPARE(m_surface->scripts.size(), 3);
}

void TestStreamingRenderer::abandonReturnsWhatArrived()
{
    start();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    QVERIFY(shown());
    QCOMPARE(m_renderer->abandon(), QStringLiteral("a"));
    m_surface->finishLoad();
    QVERIFY(!m_renderer->isStreamingShellReady());
    QVERIFY(m_surface->scripts.isEmpty());

    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("xy"));
    QCOMPARE(m_renderer->abandon(), QStringLiteral("xy"));
    QVERIFY(m_renderer->streamBuffer().isEmpty());
    QCOMPARE(m_surface->scripts.last(), render("xy"));
}

void TestStreamingRenderer::chunkAfterTheEndIsRendered()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_renderer->handleStreamEnd();
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    QCOMPARE(m_surface->scripts.last(), render("b"));
}

void TestStreamingRenderer::resumeShowsWhatHasArrived()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("one "));
    QSignalSpy shows(m_renderer.get(), &StreamingRenderer::showWindowRequested);
    const auto before = static_cast<int>(m_surface->loads.size());
    m_log->clear();
    m_renderer->resume(std::nullopt, QStringLiteral("question"), QDateTime::currentDateTime(),
                       std::nullopt, QStringLiteral("one "));
    QCOMPARE(m_log->lines.first(), line("Stream resumed (4 chars)"));
    m_renderer->handleStreamChunk(QStringLiteral("two"));
    QVERIFY(shown(before + 1));
    m_surface->finishLoad();
    QCOMPARE(m_renderer->streamBuffer(), QStringLiteral("one two"));
    QVERIFY(m_log->contains(line("Streaming shell ready, draining 2 queued chunk(s)")));
    QCOMPARE(shows.size(), 0);
    QCOMPARE(m_renderer->handleStreamEnd(), QStringLiteral("one two"));
}

void TestStreamingRenderer::resumeWithoutTextWaits()
{
    m_renderer->resume(std::nullopt, QStringLiteral("question"), QDateTime::currentDateTime(),
                       std::nullopt, QString());
    QVERIFY(shown());
    m_log->clear();
    m_surface->finishLoad();
    QVERIFY(m_log->contains(line("Streaming shell ready")));
    QVERIFY(!m_log->contains(line("First chunk received, hiding loading dots")));
}

void TestStreamingRenderer::streamGoesOnAfterThePageIsRebuilt()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_surface->crash();
    QVERIFY(!m_renderer->isStreamingShellReady());
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    QCOMPARE(m_log->lines.last(), line("Chunk queued (shell not ready yet), queue size 1"));
    m_surface->scripts.clear();
    m_surface->finishLoad();
    QVERIFY(m_renderer->isStreamingShellReady());
    QCOMPARE(m_surface->scripts,
             (QStringList{responsepage::hideLoadingScript(), render("a"), render("ab")}));

    // At once, not only with the next chunk.
    m_surface->crash();
    m_surface->scripts.clear();
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, (QStringList{responsepage::hideLoadingScript(), render("ab")}));
    m_renderer->handleStreamChunk(QStringLiteral("c"));
    QCOMPARE(m_renderer->handleStreamEnd(), QStringLiteral("abc"));
}

void TestStreamingRenderer::streamThatEndsWhileThePageIsRebuiltIsFinished()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_surface->crash();
    m_renderer->handleStreamChunk(QStringLiteral("`b`"));
    QCOMPARE(m_renderer->handleStreamEnd(), QStringLiteral("a`b`"));
    m_surface->scripts.clear();
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, QStringList{render("a`b`", true)});
}

void TestStreamingRenderer::finishedAnswerIsRebuilt()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_renderer->handleStreamEnd();
    m_surface->crash();
    m_surface->scripts.clear();
    m_surface->finishLoad();
    QCOMPARE(m_surface->scripts, QStringList{render("a", true)});
}

void TestStreamingRenderer::rebuiltShellWithoutChunksKeepsTheDots()
{
    startAndFinishShell();
    m_surface->crash();
    m_surface->finishLoad();
    QVERIFY(m_renderer->isStreamingShellReady());
    QVERIFY(m_surface->scripts.isEmpty());
}

void TestStreamingRenderer::lostPageKeepsTheAnswer()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    for (int i = 0; i < 4; ++i)
        m_surface->crash();
    QVERIFY(m_surface->isPageLost());
    m_surface->scripts.clear();
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    QVERIFY(m_surface->scripts.isEmpty());
    QCOMPARE(m_renderer->handleStreamEnd(), QStringLiteral("ab"));
    // The next stream has its page.
    startAndFinishShell();
    QVERIFY(m_renderer->isStreamingShellReady());
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

void TestStreamingRenderer::rendersWaitWhileThePageIsHeld()
{
    startAndFinishShell();
    m_renderer->handleStreamChunk(QStringLiteral("a"));
    m_surface->setHeld(true);
    m_surface->scripts.clear();
    m_renderer->handleStreamChunk(QStringLiteral("b"));
    m_renderer->handleStreamChunk(QStringLiteral("c"));
    QVERIFY(m_surface->scripts.isEmpty());
    m_surface->setHeld(false);
    QCOMPARE(m_surface->scripts, QStringList{render("abc")});

    m_surface->setHeld(true);
    m_surface->scripts.clear();
    m_renderer->handleStreamChunk(QStringLiteral("d"));
    QCOMPARE(m_renderer->handleStreamEnd(), QStringLiteral("abcd"));
    QVERIFY(m_surface->scripts.isEmpty());
    m_surface->setHeld(false);
    QCOMPARE(m_surface->scripts, QStringList{render("abcd", true)});
}

void TestStreamingRenderer::pieceByPieceEscapingEqualsTheWhole()
{
    startAndFinishShell();
    const QString text = QStringLiteral("\\`'\\\\`` it's ${x} \\u{41}\U0001F30D'");
    for (const QChar c : text)
        m_renderer->handleStreamChunk(QString(c));
    QCOMPARE(m_surface->scripts.last(), responsepage::streamRenderScript(text, false));
    m_renderer->handleStreamEnd();
    QCOMPARE(m_surface->scripts.last(), responsepage::streamRenderScript(text, true));
}

QUELLORA_TEST(QCoreApplication, TestStreamingRenderer)
#include "test_streaming_renderer.moc"
