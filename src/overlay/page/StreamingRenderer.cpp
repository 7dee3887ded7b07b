#include "overlay/page/StreamingRenderer.h"

#include "app/Log.h"
#include "app/Text.h"

#include <QPointer>

#include <utility>

namespace quellora {

StreamingRenderer::StreamingRenderer(ResponseDisplay &display, QObject *parent)
    : QObject(parent), m_display(display)
{
    connect(&m_display, &ResponseDisplay::pageFinished, this, &StreamingRenderer::onPageFinished);
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
    m_streamBuffer.clear();
    m_isFirstChunk = true;
    m_pendingChunks.clear();
    m_shellReady = false;
    m_finishedAnswer.reset();
    ++m_stream;
    Log::event(QStringLiteral("[OverlayWindowController] loadStreamingThreadShell() — building "
                              "shell HTML"));
    m_loadingShell = m_display.loadStreamingShell(session, prompt, queryStart, screenshot);
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
    m_streamBuffer += std::exchange(m_pendingChunks, {}).join(QString());
    Log::event(QStringLiteral("[OverlayWindowController] Stream end received, finalizing render "
                              "(%1 chars)")
                   .arg(characterCount(m_streamBuffer)));
    const QString answer = std::exchange(m_streamBuffer, QString());
    renderFinished(answer);
    if (m_loadingShell != 0)
        m_finishedAnswer = answer;
    Log::event(QStringLiteral("[OverlayWindowController] Stream complete, buffer cleared"));
    return answer;
}

QString StreamingRenderer::abandon()
{
    const QString answer = m_streamBuffer + std::exchange(m_pendingChunks, {}).join(QString());
    m_streamBuffer.clear();
    ++m_stream;
    m_loadingShell = 0;
    m_shellReady = false;
    m_finishedAnswer.reset();
    return answer;
}

void StreamingRenderer::onPageFinished(ResponseDisplay::PageId page)
{
    if (m_loadingShell == 0 || page != m_loadingShell)
        return;
    m_loadingShell = 0;
    m_shellReady = true;
    const QStringList chunks = std::exchange(m_pendingChunks, {});
    QString line = QStringLiteral("[OverlayWindowController] Streaming shell ready");
    if (!chunks.isEmpty())
        line += QStringLiteral(", draining %1 queued chunk(s)").arg(chunks.size());
    Log::event(line);
    if (const auto answer = std::exchange(m_finishedAnswer, std::nullopt)) {
        renderFinished(*answer);
        return;
    }
    for (const QString &chunk : chunks)
        processStreamChunk(chunk);
}

void StreamingRenderer::processStreamChunk(const QString &text)
{
    if (m_isFirstChunk) {
        m_isFirstChunk = false;
        m_display.surface().evaluate(responsepage::hideLoadingScript());
        Log::event(QStringLiteral("[OverlayWindowController] First chunk received, hiding loading "
                                  "dots"));
    }
    m_streamBuffer += text;
    renderStreamBuffer();
}

void StreamingRenderer::renderStreamBuffer()
{
    // Put together only when its turn has come: with a slow page most of them are never needed.
    m_display.surface().evaluateLatest([self = QPointer(this), stream = m_stream] {
        if (!self || self->m_stream != stream)
            return QString();
        return responsepage::streamRenderScript(self->m_streamBuffer, false);
    });
}

void StreamingRenderer::renderFinished(const QString &answer)
{
    m_display.surface().evaluateLatest(
        [answer] { return responsepage::streamRenderScript(answer, true); });
}

} // namespace quellora
