#pragma once

#include "page/ResponseDisplay.h"

#include <QObject>

#include <optional>

namespace quellora {

/// Shows a streamed answer growing in place at the end of the current thread. Main thread only.
///
/// The page is sent only what is new; it renders the answer so that Markdown split across chunks
/// comes out right. What arrives before the page is ready, or while it is busy, is sent as one
/// piece. A finished answer stays where it is when its thread is shown with it as the last turn.
class StreamingRenderer : public QObject
{
    Q_OBJECT

public:
    /// @param display must outlive this object
    explicit StreamingRenderer(ResponseDisplay &display, QObject *parent = nullptr);

    /// Begins an answer, discarding one that is still under way.
    /// @param session the current thread, whose entries are shown above
    /// @param screenshot the one that goes with this question, if any
    void handleStreamStart(const std::optional<CaptureSession> &session, const QString &prompt,
                           const QDateTime &queryStart,
                           const std::optional<CaptureSession::Screenshot> &screenshot);
    /// Shows an answer under way again with @p answer, which has arrived already; its thread may
    /// have changed meanwhile.
    void resume(const std::optional<CaptureSession> &session, const QString &prompt,
                const QDateTime &queryStart,
                const std::optional<CaptureSession::Screenshot> &screenshot, const QString &answer);
    void handleStreamChunk(const QString &text);
    /// Completes the answer in the page, with highlighted code.
    void handleStreamEnd();
    /// Ends a failed or cancelled stream; the page stays as it is.
    void abandon();

    /// Shows a whole thread, keeping the page if it shows just that thread with the finished
    /// answer.
    void renderThread(const CaptureSession &session);

private:
    /// What the shell page shows besides the answer.
    struct Question
    {
        CaptureSession thread;
        QString prompt;
        std::optional<qint64> screenshot;
    };
    /// What the page on show has been sent.
    struct Sent
    {
        qsizetype length = 0;
        bool finish = false;
        bool turn = false;
    };

    void loadShell(const std::optional<CaptureSession> &session, const QString &prompt,
                   const QDateTime &queryStart,
                   const std::optional<CaptureSession::Screenshot> &screenshot);
    void onPageFinished(ResponseDisplay::PageId page);
    void onRenderProcessTerminated();
    void hideLoadingDots();
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
