#include "page/StreamingRenderer.h"

#include "base/Log.h"
#include "base/Text.h"

#include <QPointer>

#include <utility>

namespace quellora {

namespace {

std::optional<qint64> indexOf(const std::optional<CaptureSession::Screenshot> &screenshot)
{
    return screenshot ? std::optional(screenshot->index) : std::nullopt;
}

/// Whether the turns of @p thread but @p replaced have the same pictures in @p other, which may
/// have more turns.
bool haveSamePictures(const CaptureSession &thread, const CaptureSession &other,
                      const QUuid &replaced)
{
    // For turns without a recorded picture it follows from all screenshots and times.
    return std::all_of(thread.turns.begin(), thread.turns.end(), [&](const auto &turn) {
        return turn.id == replaced || turn.screenshot ||
               indexOf(screenshotOfTurn(thread, turn.id)) ==
                   indexOf(screenshotOfTurn(other, turn.id));
    });
}

} // namespace

StreamingRenderer::StreamingRenderer(ResponseDisplay &display, QObject *parent)
    : QObject(parent), m_display(display)
{
    connect(&m_display, &ResponseDisplay::pageFinished, this, &StreamingRenderer::onPageFinished);
    connect(&m_display.surface(), &PageSurface::renderProcessTerminated, this,
            &StreamingRenderer::onRenderProcessTerminated);
}

void StreamingRenderer::handleStreamStart(
    const std::optional<CaptureSession> &session, const QString &prompt,
    const QDateTime &queryStart, const std::optional<CaptureSession::Screenshot> &screenshot,
    const QUuid &replaced)
{
    Log::event(QStringLiteral("[OverlayWindowController] Stream start received"));
    loadShell(session, prompt, queryStart, screenshot, replaced);
    Q_EMIT answerStarted(QString());
}

void StreamingRenderer::loadContent(const QString &markdown)
{
    m_display.loadContent(markdown);
    if (m_display.content() == ResponseDisplay::Content::Message)
        Q_EMIT messageShown(markdown);
}

void StreamingRenderer::resumeStream(const std::optional<CaptureSession> &session,
                                     const QString &prompt, const QDateTime &queryStart,
                                     const std::optional<CaptureSession::Screenshot> &screenshot,
                                     const QString &answer, const QUuid &replaced)
{
    Log::event(QStringLiteral("[OverlayWindowController] Stream resumed (%1 chars)")
                   .arg(characterCount(answer)));
    loadShell(session, prompt, queryStart, screenshot, replaced);
    m_answer = answer;
    m_queuedChunks = answer.isEmpty() ? 0 : 1;
    Q_EMIT answerStarted(answer);
}

void StreamingRenderer::loadShell(const std::optional<CaptureSession> &session,
                                  const QString &prompt, const QDateTime &queryStart,
                                  const std::optional<CaptureSession::Screenshot> &screenshot,
                                  const QUuid &replaced)
{
    forgetStream();
    Log::event(QStringLiteral("[OverlayWindowController] loadStreamingThreadShell() — building "
                              "shell HTML"));
    m_question = {session.value_or(CaptureSession()), prompt, indexOf(screenshot), replaced};
    m_shell = m_display.loadStreamingShell(session, prompt, queryStart, screenshot, replaced);
}

void StreamingRenderer::abandonStream()
{
    forgetStream();
    Q_EMIT answerLeft();
}

void StreamingRenderer::forgetStream()
{
    m_question = {};
    m_answer.clear();
    m_queuedChunks = 0;
    m_isShellReady = false;
    m_areDotsHidden = false;
    m_isFinished = false;
    m_turn.reset();
    m_sent = {};
    m_shell = 0;
}

void StreamingRenderer::handleStreamChunk(const QString &text)
{
    // The slot holds a complete turn of the thread.
    if (m_turn)
        return;
    // After the end, a chunk begins another answer in the slot.
    if (std::exchange(m_isFinished, false)) {
        m_answer.clear();
        m_sent = {};
    }
    m_answer += text;
    Q_EMIT answerGrew(text);
    if (!m_isShellReady) {
        ++m_queuedChunks;
        Log::event(QStringLiteral("[OverlayWindowController] Chunk queued (shell not ready yet), "
                                  "queue size %1")
                       .arg(m_queuedChunks));
        return;
    }
    hideLoadingDots();
    update();
}

void StreamingRenderer::handleStreamEnd()
{
    m_queuedChunks = 0;
    Log::event(QStringLiteral("[OverlayWindowController] Stream end received, finalizing render "
                              "(%1 chars)")
                   .arg(characterCount(m_answer)));
    m_isFinished = true;
    update();
    Q_EMIT answerEnded();
    Log::event(QStringLiteral("[OverlayWindowController] Stream complete, buffer cleared"));
}

void StreamingRenderer::renderThread(const CaptureSession &session)
{
    if (isPageOf(session)) {
        m_display.renderThread(session, [self = QPointer(this), turn = *answeredTurn(session)] {
            if (self)
                self->keepPage(turn);
        });
    } else {
        m_display.renderThread(session);
    }
}

/// The turn of the thread that the question's answer would have become; nullptr if there is none.
const CaptureSession::Turn *StreamingRenderer::answeredTurn(const CaptureSession &session) const
{
    if (m_question.thread.findTurn(m_question.replaced))
        return session.findTurn(m_question.replaced);
    return session.turns.isEmpty() ? nullptr : &session.turns.constLast();
}

/// Whether the page shows this thread with the finished answer as the question's turn.
bool StreamingRenderer::isPageOf(const CaptureSession &session) const
{
    if (!m_isFinished || !m_isShellReady || m_turn || m_shell != m_display.latestPage())
        return false;
    const CaptureSession::Turn *answered = answeredTurn(session);
    if (!answered)
        return false;
    const CaptureSession::Turn &turn = *answered;
    QList<ThreadEntry> entries = chronologicalEntries(m_question.thread);
    const auto replaced = std::find_if(entries.begin(), entries.end(), [&](const auto &entry) {
        const auto *earlier = std::get_if<CaptureSession::Turn>(&entry);
        return earlier && earlier->id == turn.id;
    });
    if (replaced == entries.end())
        entries.append(turn);
    else
        *replaced = turn;
    return turn.prompt == m_question.prompt && turn.response == m_answer &&
           indexOf(screenshotOfTurn(session, turn.id)) == m_question.screenshot &&
           entries == chronologicalEntries(session) &&
           haveSamePictures(m_question.thread, session, m_question.replaced);
}

void StreamingRenderer::keepPage(const CaptureSession::Turn &turn)
{
    m_turn = turn;
    update(&ResponseDisplay::logPageFinished);
}

void StreamingRenderer::onPageFinished(ResponseDisplay::PageId page)
{
    if (m_isFinished && page > m_shell) {
        // Another page has taken over.
        forgetStream();
        return;
    }
    if (m_shell == 0 || page != m_shell)
        return;
    m_isShellReady = true;
    m_sent = {};
    QString line = QStringLiteral("[OverlayWindowController] Streaming shell ready");
    const qsizetype queuedChunks = std::exchange(m_queuedChunks, 0);
    if (queuedChunks > 0)
        line += QStringLiteral(", draining %1 queued chunk(s)").arg(queuedChunks);
    Log::event(line);
    // The dots are hidden already if the page was reloaded during the answer.
    if (m_areDotsHidden && !m_isFinished)
        m_display.surface().evaluate(responsepage::hideLoadingScript());
    else if (queuedChunks > 0)
        hideLoadingDots();
    update();
}

void StreamingRenderer::onRenderProcessTerminated()
{
    // The shell page is loaded again, without the answer.
    m_isShellReady = false;
}

void StreamingRenderer::hideLoadingDots()
{
    if (std::exchange(m_areDotsHidden, true))
        return;
    m_display.surface().evaluate(responsepage::hideLoadingScript());
    Log::event(QStringLiteral("[OverlayWindowController] First chunk received, hiding loading "
                              "dots"));
}

/// Sends the page what it does not have yet as soon as it can take it.
void StreamingRenderer::update(std::function<void()> hasRun)
{
    m_display.surface().evaluatePaced(
        [self = QPointer(this)] { return self ? self->nextScript() : QString(); },
        std::move(hasRun));
}

QString StreamingRenderer::nextScript()
{
    QString script;
    if (!m_isShellReady)
        return script;
    if (m_sent.length < m_answer.size())
        script += responsepage::streamAppendScript(m_answer.mid(m_sent.length));
    m_sent.length = m_answer.size();
    if (m_isFinished && !std::exchange(m_sent.finish, true))
        script += responsepage::streamFinishScript();
    if (m_turn && !std::exchange(m_sent.turn, true))
        script += responsepage::streamedTurnScript(*m_turn);
    return script;
}

} // namespace quellora
