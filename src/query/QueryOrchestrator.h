#pragma once

#include "history/CaptureSession.h"
#include "query/QueryTypes.h"
#include "query/ScreenshotCapture.h"

#include <QDateTime>
#include <QFuture>
#include <QHash>
#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>
#include <optional>

namespace quellora {

struct ActiveQuery;
class AnswerDisplay;
class ProxyQueryService;
class RunningQuery;
class ServiceMessages;
class SessionManager;
class Settings;
class ThreadController;

/// The user's actions from button or hotkey to stored turn: Capture & Send, Capture without
/// sending, Send and Add note; the context prompt, the running query and its telemetry.
///
/// Main thread only; captures run on a worker, the transfer in the event loop. Several answers may
/// be under way; the newest one of the current thread is on show, the others are collected and join
/// their own thread when they finish, so nothing is lost or mixed up.
class QueryOrchestrator : public QObject
{
    Q_OBJECT
public:
    /// What the overlay's strip tells the user.
    enum class Activity { Idle, Capturing, Waiting, Streaming, Stopped };
    Q_ENUM(Activity)

    using Capture = std::function<QFuture<ScreenshotCapture::Outcome>()>;
    using Clock = std::function<QDateTime()>;

    /// All collaborators are borrowed and must outlive the orchestrator.
    struct Collaborators
    {
        SessionManager &session;
        Settings &settings;
        ThreadController &threads;
        ServiceMessages &messages;
        ProxyQueryService &service;
        AnswerDisplay &display;
        Capture capture;
        /// Id of the model to ask; nothing leaves the choice to the backend.
        std::function<std::optional<QString>()> model;
        Clock clock = [] { return QDateTime::currentDateTime(); };
    };

    explicit QueryOrchestrator(Collaborators collaborators, QObject *parent = nullptr);
    ~QueryOrchestrator() override;

    void triggerCaptureAndSend();
    void captureNoSend();
    void sendPromptOnly(const QString &text);
    void addNote(const QString &text);
    /// Cancels the answer on show and keeps what has arrived as its turn; with nothing arrived the
    /// waiting entry goes away. With no answer on show it gives up the captures under way; without
    /// any it does nothing.
    void stop();
    /// Shows the current thread with the answer under way in it, if any.
    void showCurrentThread();
    /// Cancels what is under way in a thread that is being deleted; its answers are not kept.
    void discardAnswers(const QUuid &threadId);
    /// Ends every answer under way, keeping what has arrived of it, and drops what is being
    /// captured, without a trace on the display: the session is over, and nothing follows.
    void cancelAll();
    /// Another page takes the place of the thread's: the answer on show is collected until the
    /// thread is shown again.
    void leavePage();

    Activity activity() const;
    bool isCapturing() const { return !m_captures.isEmpty(); }
    /// The question of the answer on show; empty when none is under way.
    QString shownPrompt() const;

Q_SIGNALS:
    void activityChanged();
    /// A capture succeeded (the first-launch hint has done its work).
    void captureSucceeded();
    /// Something that the user asked for is not done: the service message on show says why.
    void refused();
    /// A query that is not on show failed; @p reason is for the user.
    void answerLost(const QString &reason);

private:
    using ActiveQueryPtr = std::shared_ptr<ActiveQuery>;

    void cancelCaptures();
    void startCapture(std::function<void(const ScreenshotCapture::Outcome &)> done);
    void captureAndSendFinished(const ScreenshotCapture::Outcome &outcome,
                                const QDateTime &queryStart);
    void captureNoSendFinished(const ScreenshotCapture::Outcome &outcome);
    /// @param action what the user asked for; @param step what of it failed, both for the log
    void captureFailed(const ScreenshotCapture::CaptureError &error, const QString &action,
                       const QString &step);
    void showErrorPage(const QString &title, const QString &text);

    /// @param screenshot goes with the question
    void runQuery(const QString &apiPrompt, const QString &turnPrompt, const QDateTime &queryStart,
                  const std::optional<CaptureSession::Screenshot> &screenshot);
    void runQueryOnMain(const ActiveQueryPtr &query, const QString &apiPrompt,
                        const QString &token);
    void chunkArrived(const ActiveQueryPtr &query, const QString &text);
    void queryFinished(const ActiveQueryPtr &query, const QueryOutcome &outcome);
    void querySucceeded(const ActiveQueryPtr &query, const DoneInfo &info);
    void queryFailed(const ActiveQueryPtr &query, const QueryError &error);
    /// Adds what has arrived to the answer's thread; returns whether that is the current one.
    bool keepAnswer(const ActiveQueryPtr &query);
    /// keepAnswer() at the end of an answer, with what follows it.
    void storeAnswer(const ActiveQueryPtr &query);
    void emptyPromptBox(const ActiveQueryPtr &query);
    void forget(const ActiveQueryPtr &query);
    ActiveQueryPtr newestOfCurrentThread() const;
    void followThread();
    void fireTelemetry(const ActiveQueryPtr &query, const DoneInfo &info, qint64 usedAfter);

    Collaborators m_collaborators;
    /// Every answer under way, oldest first.
    QList<ActiveQueryPtr> m_queries;
    /// The newest one of the current thread: the strip tells of it, Stop ends it.
    ActiveQueryPtr m_shown;
    /// Its text goes into the page; not while an error page has taken the place.
    bool m_isShownOnPage = false;
    /// Every capture under way by its number.
    QHash<quint64, QFuture<ScreenshotCapture::Outcome>> m_captures;
    quint64 m_lastCapture = 0;
    bool m_stopped = false;
    /// The session is over: a capture that comes in late is nobody's.
    bool m_isOver = false;
};

} // namespace quellora
