#include "page/StreamingRenderer.h"

#include "base/Log.h"
#include "base/Text.h"

#include <QPointer>

#include <utility>

namespace quellora {

StreamingRenderer::StreamingRenderer(ResponseDisplay &display, QObject *parent)
    : QObject(parent), m_display(display)
{
    connect(&m_display, &ResponseDisplay::pageFinished, this, &StreamingRenderer::onPageFinished);
    connect(&m_display.surface(), &PageSurface::renderProcessTerminated, this,
            &StreamingRenderer::onRenderProcessTerminated);
}

void StreamingRenderer::handleStreamStart(
    const std::optional<CaptureSession> &session, const QString &prompt,
    const QDateTime &queryStart, const std::optional<CaptureSession::Screenshot> &screenshot)
{
    Log::event(QStringLiteral("[OverlayWindowController] Stream start received"));
    loadShell(session, prompt, queryStart, screenshot);
    emit showWindowRequested();
}

void StreamingRenderer::resume(const std::optional<CaptureSession> &session, const QString &prompt,
                               const QDateTime &queryStart,
                               const std::optional<CaptureSession::Screenshot> &screenshot,
                               const QString &answer)
{
    Log::event(QStringLiteral("[OverlayWindowController] Stream resumed (%1 chars)")
                   .arg(characterCount(answer)));
    loadShell(session, prompt, queryStart, screenshot);
    if (!answer.isEmpty())
        m_pendingChunks.append(answer);
}

void StreamingRenderer::loadShell(const std::optional<CaptureSession> &session,
                                  const QString &prompt, const QDateTime &queryStart,
                                  const std::optional<CaptureSession::Screenshot> &screenshot)
{
    clear();
    Log::event(QStringLiteral("[OverlayWindowController] loadStreamingThreadShell() — building "
                              "shell HTML"));
    m_shell = m_display.loadStreamingShell(session, prompt, queryStart, screenshot);
    m_loadingShell = m_shell;
}

void StreamingRenderer::clear()
{
    m_streamBuffer.clear();
    m_escapedBuffer.clear();
    m_pendingChunks.clear();
    m_isFirstChunk = true;
    m_isFinished = false;
    m_shellReady = false;
    m_shell = 0;
    m_loadingShell = 0;
    ++m_stream;
}

void StreamingRenderer::handleStreamChunk(const QString &text)
{
    if (m_shellReady) {
        processStreamChunk(text);
        return;
    }
    m_pendingChunks.append(text);
    Log::event(QStringLiteral("[OverlayWindowController] Chunk queued (shell not ready yet), queue "
                              "size %1")
                   .arg(m_pendingChunks.size()));
}

QString StreamingRenderer::handleStreamEnd()
{
    // An answer that came faster than its page is whole all the same.
    for (const QString &chunk : std::exchange(m_pendingChunks, {}))
        append(chunk);
    Log::event(QStringLiteral("[OverlayWindowController] Stream end received, finalizing render "
                              "(%1 chars)")
                   .arg(characterCount(m_streamBuffer)));
    m_isFinished = true;
    // A page that is still on its way gets this render, too, when it is there.
    renderFinished();
    Log::event(QStringLiteral("[OverlayWindowController] Stream complete, buffer cleared"));
    return std::exchange(m_streamBuffer, QString());
}

QString StreamingRenderer::abandon()
{
    const QString answer = m_streamBuffer + m_pendingChunks.join(QString());
    clear();
    return answer;
}

void StreamingRenderer::onPageFinished(ResponseDisplay::PageId page)
{
    if (m_isFinished && page > m_shell) {
        // The thread's own page has taken over.
        m_shell = 0;
        m_loadingShell = 0;
        m_escapedBuffer.clear();
    }
    if (m_loadingShell == 0 || page != m_loadingShell)
        return;
    m_loadingShell = 0;
    m_shellReady = true;
    const QStringList chunks = std::exchange(m_pendingChunks, {});
    QString line = QStringLiteral("[OverlayWindowController] Streaming shell ready");
    if (!chunks.isEmpty())
        line += QStringLiteral(", draining %1 queued chunk(s)").arg(chunks.size());
    Log::event(line);
    if (m_isFinished) {
        renderFinished();
        return;
    }
    if (!m_isFirstChunk) {
        // The page was loaded again in the middle of the answer.
        m_display.surface().evaluate(responsepage::hideLoadingScript());
        renderStreamBuffer();
    }
    for (const QString &chunk : chunks)
        processStreamChunk(chunk);
}

void StreamingRenderer::onRenderProcessTerminated()
{
    if (m_shell == 0)
        return;
    // The shell page comes again, empty.
    m_loadingShell = m_shell;
    m_shellReady = false;
}

void StreamingRenderer::processStreamChunk(const QString &text)
{
    if (m_isFirstChunk) {
        m_isFirstChunk = false;
        m_display.surface().evaluate(responsepage::hideLoadingScript());
        Log::event(QStringLiteral("[OverlayWindowController] First chunk received, hiding loading "
                                  "dots"));
    }
    append(text);
    renderStreamBuffer();
}

void StreamingRenderer::append(const QString &text)
{
    // A chunk after the end begins a buffer of its own.
    if (std::exchange(m_isFinished, false))
        m_escapedBuffer.clear();
    m_streamBuffer += text;
    m_escapedBuffer += responsepage::escapedForJson(text);
}

void StreamingRenderer::renderStreamBuffer()
{
    // Put together only when its turn has come: with a slow page most of them are never needed.
    m_display.surface().evaluateLatest([self = QPointer(this), stream = m_stream] {
        if (!self || self->m_stream != stream)
            return QString();
        return responsepage::streamRenderScriptOfEscaped(self->m_escapedBuffer, false);
    });
}

void StreamingRenderer::renderFinished()
{
    m_display.surface().evaluateLatest([escaped = m_escapedBuffer] {
        return responsepage::streamRenderScriptOfEscaped(escaped, true);
    });
}

} // namespace quellora
