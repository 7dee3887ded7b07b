#pragma once

#include "history/CaptureSession.h"

#include <QDateTime>
#include <QString>

#include <optional>

namespace quellora {

/// What the query flow needs of the overlay: pages, the streaming display and the window.
/// Implemented by the overlay; main thread only.
class AnswerDisplay
{
public:
    virtual ~AnswerDisplay() = default;

    /// Shows the single-answer page; an empty text shows the hint.
    virtual void loadContent(const QString &markdown) = 0;
    /// Shows the whole thread.
    virtual void renderThread(const CaptureSession &session) = 0;

    /// Shows the thread with one more entry that waits for its answer.
    /// @param screenshot the picture that goes with this question, if any
    virtual void handleStreamStart(const std::optional<CaptureSession> &session,
                                   const QString &prompt, const QDateTime &queryStart,
                                   const std::optional<CaptureSession::Screenshot> &screenshot) = 0;
    /// Shows an answer under way again, after another page or a change of its thread: like
    /// handleStreamStart, with what has arrived already.
    virtual void resumeStream(const std::optional<CaptureSession> &session, const QString &prompt,
                              const QDateTime &queryStart,
                              const std::optional<CaptureSession::Screenshot> &screenshot,
                              const QString &answer) = 0;
    virtual void handleStreamChunk(const QString &text) = 0;
    virtual void handleStreamEnd() = 0;
    /// The running stream will not be finished; later page loads replace it.
    virtual void abandonStream() = 0;

    /// Brings the window to the front without activating the application and logs it.
    virtual void showWindow() = 0;
};

} // namespace quellora
