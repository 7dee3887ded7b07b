#pragma once

#include "query/AnswerDisplay.h"

#include <QStringList>

namespace quellora {

/// Records the calls that the query flow makes to the overlay.
class FakeAnswerDisplay : public AnswerDisplay
{
public:
    void loadContent(const QString &markdown) override
    {
        calls.append(QStringLiteral("loadContent"));
        pages.append(markdown);
    }
    void renderThread(const CaptureSession &session) override
    {
        calls.append(QStringLiteral("renderThread"));
        rendered.append(session);
    }
    void handleStreamStart(const std::optional<CaptureSession> &session, const QString &prompt,
                           const QDateTime &, const std::optional<CaptureSession::Screenshot> &shot,
                           const QUuid &replaced = {}) override
    {
        calls.append(QStringLiteral("streamStart"));
        streamReplaced = replaced;
        streamSession = session;
        streamPrompt = prompt;
        streamScreenshot = shot;
        streamed.clear();
    }
    void resumeStream(const std::optional<CaptureSession> &session, const QString &prompt,
                      const QDateTime &, const std::optional<CaptureSession::Screenshot> &shot,
                      const QString &answer, const QUuid &replaced = {}) override
    {
        calls.append(QStringLiteral("resumeStream"));
        streamReplaced = replaced;
        streamSession = session;
        streamPrompt = prompt;
        streamScreenshot = shot;
        streamed = answer;
    }
    void handleStreamChunk(const QString &text) override { streamed += text; }
    void handleStreamEnd() override { calls.append(QStringLiteral("streamEnd")); }
    void abandonStream() override { calls.append(QStringLiteral("abandonStream")); }
    void showWindow() override { calls.append(QStringLiteral("showWindow")); }

    QStringList calls;
    QStringList pages;
    QList<CaptureSession> rendered;
    std::optional<CaptureSession> streamSession;
    std::optional<CaptureSession::Screenshot> streamScreenshot;
    QString streamPrompt;
    QUuid streamReplaced;
    QString streamed;
};

} // namespace quellora
