#include "overlay/OverlayAnswerDisplay.h"

#include "page/ResponseDisplay.h"
#include "page/StreamingRenderer.h"

#include <utility>

namespace quellora {

OverlayAnswerDisplay::OverlayAnswerDisplay(ResponseDisplay &pages, StreamingRenderer &stream,
                                           std::function<void()> show)
    : m_pages(pages), m_stream(stream), m_show(std::move(show))
{}

void OverlayAnswerDisplay::loadContent(const QString &markdown)
{
    m_pages.loadContent(markdown);
}

void OverlayAnswerDisplay::renderThread(const CaptureSession &session)
{
    m_stream.renderThread(session);
}

void OverlayAnswerDisplay::handleStreamStart(
    const std::optional<CaptureSession> &session, const QString &prompt,
    const QDateTime &queryStart, const std::optional<CaptureSession::Screenshot> &screenshot)
{
    m_stream.handleStreamStart(session, prompt, queryStart, screenshot);
}

void OverlayAnswerDisplay::resumeStream(const std::optional<CaptureSession> &session,
                                        const QString &prompt, const QDateTime &queryStart,
                                        const std::optional<CaptureSession::Screenshot> &screenshot,
                                        const QString &answer)
{
    m_stream.resume(session, prompt, queryStart, screenshot, answer);
}

void OverlayAnswerDisplay::handleStreamChunk(const QString &text)
{
    m_stream.handleStreamChunk(text);
}

void OverlayAnswerDisplay::handleStreamEnd()
{
    m_stream.handleStreamEnd();
}

void OverlayAnswerDisplay::abandonStream()
{
    m_stream.abandon();
}

void OverlayAnswerDisplay::showWindow()
{
    m_show();
}

} // namespace quellora
