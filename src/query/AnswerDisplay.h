#pragma once

#include "history/CaptureSession.h"

#include <QDateTime>
#include <QString>

#include <optional>

namespace quellora {

/// Interface of the query flow to the overlay's response page and window. Implemented by the
/// overlay. Main thread only.
class AnswerDisplay
{
public:
    virtual ~AnswerDisplay() = default;

    /// Replaces the page with @p markdown; empty text shows the hint.
    virtual void loadContent(const QString &markdown) = 0;
    /// Shows the whole thread.
    virtual void renderThread(const CaptureSession &session) = 0;

    /// Shows the thread with an additional entry that is waiting for its answer.
    /// @param screenshot the image sent with the prompt, if any
    /// @param replaced the turn whose place the entry takes, if the question was asked before
    virtual void handleStreamStart(const std::optional<CaptureSession> &session,
                                   const QString &prompt, const QDateTime &queryStart,
                                   const std::optional<CaptureSession::Screenshot> &screenshot,
                                   const QUuid &replaced = {}) = 0;
    /// Shows a running answer again after another page was shown or its thread changed: like
    /// handleStreamStart(), including the text received so far.
    virtual void resumeStream(const std::optional<CaptureSession> &session, const QString &prompt,
                              const QDateTime &queryStart,
                              const std::optional<CaptureSession::Screenshot> &screenshot,
                              const QString &answer, const QUuid &replaced = {}) = 0;
    virtual void handleStreamChunk(const QString &text) = 0;
    virtual void handleStreamEnd() = 0;
    /// Detaches the display from the running stream; handleStreamEnd() will not follow.
    virtual void abandonStream() = 0;

    /// Raises the window without activating the application and logs it.
    virtual void showWindow() = 0;
};

} // namespace quellora
