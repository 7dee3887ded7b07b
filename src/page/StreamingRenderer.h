#pragma once

#include "page/ResponseDisplay.h"

#include <QObject>
#include <QStringList>

#include <optional>

namespace quellora {

/// Shows a streamed answer growing in place at the end of the current thread. Main thread only.
///
/// The whole answer so far is rendered again with every chunk, so that Markdown split across chunks
/// comes out right; chunks that arrive before the page is there wait for it.
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
    /// Renders the answer a last time, with highlighted code. Returns the complete answer, with the
    /// chunks that still waited for the page.
    QString handleStreamEnd();
    /// Ends a failed or cancelled stream without rendering; returns what has arrived.
    QString abandon();

    /// What of the current answer has been rendered; empty once the stream has ended.
    const QString &streamBuffer() const { return m_streamBuffer; }
    bool isStreamingShellReady() const { return m_shellReady; }

signals:
    /// A stream has started: the window is to be shown in front, without activating the
    /// application.
    void showWindowRequested();

private:
    void loadShell(const std::optional<CaptureSession> &session, const QString &prompt,
                   const QDateTime &queryStart,
                   const std::optional<CaptureSession::Screenshot> &screenshot);
    void onPageFinished(ResponseDisplay::PageId page);
    void onRenderProcessTerminated();
    void processStreamChunk(const QString &text);
    void renderStreamBuffer();
    void renderFinished();
    void append(const QString &text);
    void clear();

    ResponseDisplay &m_display;
    QString m_streamBuffer;
    /// The buffer as the render script takes it. Escaped chunk by chunk, because a whole answer
    /// would be too much for every chunk; kept after the end for a page that has to be rebuilt.
    QString m_escapedBuffer;
    QStringList m_pendingChunks;
    bool m_isFirstChunk = true;
    bool m_shellReady = false;
    bool m_isFinished = false;
    /// The shell page of the stream; 0 when there is none.
    ResponseDisplay::PageId m_shell = 0;
    /// The shell page that is being loaded; 0 when none is.
    ResponseDisplay::PageId m_loadingShell = 0;
    /// Counts streams, so that a render that waited is not taken for one of the next stream.
    quint64 m_stream = 0;
};

} // namespace quellora
