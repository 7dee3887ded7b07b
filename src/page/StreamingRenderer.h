#pragma once

#include "page/ResponseDisplay.h"
#include "query/AnswerDisplay.h"

#include <QObject>

#include <optional>

namespace quellora {

/// Shows a streamed answer growing in place at the end of the current thread. Main thread only.
///
/// The page is sent only what is new; it renders the answer so that Markdown split across chunks
/// comes out right. What arrives before the page is ready, or while it is busy, is sent as one
/// piece. A finished answer stays where it is when its thread is shown with it as the last turn.
class StreamingRenderer : public QObject, public AnswerDisplay
{
    Q_OBJECT

public:
    /// @param display must outlive this object
    explicit StreamingRenderer(ResponseDisplay &display, QObject *parent = nullptr);

    void loadContent(const QString &markdown) override;
    /// Keeps the page if it shows just this thread with the finished answer.
    void renderThread(const CaptureSession &session) override;
    /// Discards an answer that is still under way.
    void handleStreamStart(const std::optional<CaptureSession> &session, const QString &prompt,
                           const QDateTime &queryStart,
                           const std::optional<CaptureSession::Screenshot> &screenshot,
                           const QUuid &replaced = {}) override;
    void resumeStream(const std::optional<CaptureSession> &session, const QString &prompt,
                      const QDateTime &queryStart,
                      const std::optional<CaptureSession::Screenshot> &screenshot,
                      const QString &answer, const QUuid &replaced = {}) override;
    void handleStreamChunk(const QString &text) override;
    /// Completes the answer in the page, with highlighted code.
    void handleStreamEnd() override;
    /// The page stays as it is.
    void abandonStream() override;
    void showWindow() override { Q_EMIT showWindowRequested(); }

Q_SIGNALS:
    /// The window is to be brought to the front without activating the application.
    void showWindowRequested();
    /// An answer is shown from now on.
    /// @param soFar what has arrived of it already
    void answerStarted(const QString &soFar);
    void answerGrew(const QString &piece);
    void answerEnded();
    /// The page leaves an answer that is still under way.
    void answerLeft();
    /// A text that is no answer is shown, e.g. an error.
    void messageShown(const QString &markdown);

private:
    /// What the shell page shows besides the answer.
    struct Question
    {
        CaptureSession thread;
        QString prompt;
        std::optional<qint64> screenshot;
        /// The turn whose place it takes; null if it is at the end.
        QUuid replaced;
    };
    /// What the page on show has been sent.
    struct Sent
    {
        qsizetype length = 0;
        bool finish = false;
        bool turn = false;
    };

    void forgetStream();
    void loadShell(const std::optional<CaptureSession> &session, const QString &prompt,
                   const QDateTime &queryStart,
                   const std::optional<CaptureSession::Screenshot> &screenshot,
                   const QUuid &replaced);
    void onPageFinished(ResponseDisplay::PageId page);
    void onRenderProcessTerminated();
    void hideLoadingDots();
    const CaptureSession::Turn *answeredTurn(const CaptureSession &session) const;
    bool isPageOf(const CaptureSession &session) const;
    void keepPage(const CaptureSession::Turn &turn);
    void update(std::function<void()> hasRun = nullptr);
    QString nextScript();

    ResponseDisplay &m_display;
    Question m_question;
    /// Everything that has arrived; kept after the end for a page that has to be rebuilt.
    QString m_answer;
    /// How many chunks the page has not been told of because it was not ready.
    qsizetype m_queuedChunks = 0;
    bool m_isShellReady = false;
    bool m_areDotsHidden = false;
    bool m_isFinished = false;
    /// What the finished answer has become.
    std::optional<CaptureSession::Turn> m_turn;
    Sent m_sent;
    /// The shell page of the stream; 0 when there is none.
    ResponseDisplay::PageId m_shell = 0;
};

} // namespace quellora
