#pragma once

#include "query/AnswerDisplay.h"

#include <functional>

namespace quellora {

class ResponseDisplay;
class StreamingRenderer;

/// Joins the pages, the streaming render and the window into what the query flow needs.
class OverlayAnswerDisplay : public AnswerDisplay
{
public:
    OverlayAnswerDisplay(ResponseDisplay &pages, StreamingRenderer &stream,
                         std::function<void()> show);

    void loadContent(const QString &markdown) override;
    void renderThread(const CaptureSession &session) override;
    void handleStreamStart(const std::optional<CaptureSession> &session, const QString &prompt,
                           const QDateTime &queryStart,
                           const std::optional<CaptureSession::Screenshot> &screenshot) override;
    void resumeStream(const std::optional<CaptureSession> &session, const QString &prompt,
                      const QDateTime &queryStart,
                      const std::optional<CaptureSession::Screenshot> &screenshot,
                      const QString &answer) override;
    void handleStreamChunk(const QString &text) override;
    void handleStreamEnd() override;
    void abandonStream() override;
    void showWindow() override;

private:
    ResponseDisplay &m_pages;
    StreamingRenderer &m_stream;
    std::function<void()> m_show;
};

} // namespace quellora
