#pragma once

#include "history/CaptureSession.h"
#include "query/CaptureTarget.h"
#include "query/LastQuestion.h"
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
class DesktopSession;
class ProxyQueryService;
class RunningQuery;
class ServiceMessages;
class SessionManager;
class Settings;
class ThreadController;

/// Runs the user's actions from button or hotkey to stored turn: Capture & Send, Capture without
/// sending, Send, Retry, editing the last question and Add note. Builds the context prompt, manages
/// the running queries and sends their telemetry. While the desktop session is locked nothing is
/// captured; a capture under way when it is locked is cancelled.
///
/// Main thread only; captures run on a worker thread, transfers in the event loop. Several queries
/// may run at once: the newest one of the current thread is shown, the others are buffered and
/// added to their own threads when they finish.
class QueryOrchestrator : public QObject
{
    Q_OBJECT
public:
    /// The state shown in the overlay's status strip.
    enum class Activity { Idle, Capturing, Waiting, Streaming, Stopped };
    Q_ENUM(Activity)

    using Capture = std::function<QFuture<ScreenshotCapture::Outcome>(CaptureTarget target)>;
    using Clock = std::function<QDateTime()>;

    /// The references must outlive the orchestrator.
    struct Collaborators
    {
        SessionManager &session;
        Settings &settings;
        ThreadController &threads;
        ServiceMessages &messages;
        ProxyQueryService &service;
        AnswerDisplay &display;
        DesktopSession &desktop;
        Capture capture;
        /// Id of the selected model; nullopt lets the backend choose.
        std::function<std::optional<QString>()> model;
        Clock clock = [] { return QDateTime::currentDateTime(); };
    };

    explicit QueryOrchestrator(Collaborators collaborators, QObject *parent = nullptr);
    ~QueryOrchestrator() override;

    /// Captures @p target and sends the image with the user's prompt; after lookRequested(), if the
    /// settings say so. A region may be staged instead, as the user chooses it.
    void triggerCaptureAndSend(CaptureTarget target = CaptureTarget::Screen);
    /// Captures the screen and sends it with @p prompt instead of the prompt box's text, which
    /// stays in the box.
    void captureAndSendPrompt(const QString &prompt);
    /// Captures the screen and stages the image for the next send. Works while queries are blocked.
    void captureNoSend();
    /// Sends the image of lookRequested() with the prompt as it is now. No effect without one.
    void sendLookedAt();
    /// Stages the image of lookRequested() for the next send.
    void attachLookedAt();
    /// Drops the image of lookRequested(); nothing of it is kept.
    void dropLookedAt();
    /// Sends @p text with the staged screenshot, if any. While the last question is edited, @p text
    /// takes its place, with its screenshot unless another one is staged.
    void sendPromptOnly(const QString &text);
    /// Asks the last question again, with the same screenshot and the selected model. The answer
    /// becomes another version of its turn. No effect while an answer is shown that is under way.
    void retry();
    /// Puts the last question into the prompt box, so that the next send takes its place. No effect
    /// while an answer is shown that is under way.
    void editLastQuestion();
    LastQuestion &lastQuestion() { return m_lastQuestion; }
    const LastQuestion &lastQuestion() const { return m_lastQuestion; }
    /// Shows another version of a turn of the current thread; ignored if there is none at
    /// @p position.
    void showVersion(const QUuid &turnId, qsizetype position);
    /// Adds a note to the current thread; blank text is ignored.
    void addNote(const QString &text);
    /// Cancels the shown query and stores the text received so far as a turn; without any text, the
    /// waiting entry is removed. If no query is shown, cancels the running captures, if any.
    void stop();
    /// Shows the current thread including its running answer, if any.
    void showCurrentThread();
    /// Cancels the queries of threads that are being deleted and discards their answers.
    void discardAnswers(const QSet<QUuid> &threads);
    /// Shuts down at the end of the session: cancels all queries, storing the text received so far,
    /// and all captures. Does not touch the display.
    void cancelAll();
    /// Call when another page replaces the thread: the shown answer is buffered until the thread is
    /// shown again.
    void leavePage();

    Activity activity() const;
    /// Not while the user chooses what is captured.
    bool isCapturing() const { return !m_captures.isEmpty(); }
    /// The prompt of the shown query; empty if none is running.
    QString shownPrompt() const;

Q_SIGNALS:
    void activityChanged();
    /// A capture succeeded, so the first-launch hint is no longer needed.
    void captureSucceeded();
    /// There is no question that Retry could ask again.
    void nothingToRetry();
    /// The user is to look at a captured image before it is sent; an empty one if there is none any
    /// more. A newer capture replaces it.
    void lookRequested(const QByteArray &jpeg);
    /// The window with that image has been shown.
    void lookShown();
    /// An action was rejected; the current service message has the reason.
    void refused();
    /// A query that is not shown failed; @p reason is user-facing text.
    void answerLost(const QString &reason);
    /// A query is over, and what its end shows is on show. Not emitted for queries that the user
    /// or the end of the session cancelled.
    void answerEnded(bool isComplete);

private:
    using ActiveQueryPtr = std::shared_ptr<ActiveQuery>;

    void cancelCaptures();
    /// Whether captures are refused because the session is locked; logs it then.
    /// @param action the user's action, for the log
    bool isCaptureLocked(const QString &action) const;
    void lockedChanged(bool isLocked);
    /// Whether a query must not start; logs it then and shows the reason.
    /// @param action the user's action, for the log
    bool isRefused(const QString &action);
    void startCapture(CaptureTarget target,
                      std::function<void(const ScreenshotCapture::Outcome &)> done);
    /// @param ownPrompt sent instead of the prompt box's text
    void startCaptureAndSend(CaptureTarget target, const std::optional<QString> &ownPrompt);
    void captureAndSendFinished(const ScreenshotCapture::Outcome &outcome, const QString &action,
                                const QDateTime &queryStart,
                                const std::optional<QString> &ownPrompt);
    void captureNoSendFinished(const ScreenshotCapture::Outcome &outcome);
    void stageCapture(const QByteArray &jpeg);
    /// Ends the look; returns its image, or an empty one.
    QByteArray takeLookedAt();
    void sendCapture(const QByteArray &jpeg, const QDateTime &queryStart,
                     const std::optional<QString> &ownPrompt);
    /// @param action the user's action, for the log
    /// @param step the step of it that failed, for the log
    void captureFailed(const ScreenshotCapture::CaptureError &error, const QString &action,
                       const QString &step);
    void showErrorPage(const QString &title, const QString &text);

    /// Asks @p question in place of its turn, if it has one.
    /// @param isFromPromptBox whether its prompt is the content of the prompt box
    void askAgain(const AskedQuestion &question, bool isFromPromptBox);
    /// @param apiPrompt the text to send, with context
    /// @param question stored and shown; its thread is the current one
    /// @param isFromPromptBox whether its prompt is the content of the prompt box
    void runQuery(const QString &apiPrompt, const AskedQuestion &question,
                  const QDateTime &queryStart, bool isFromPromptBox = true);
    void runQueryOnMain(const ActiveQueryPtr &query, const QString &apiPrompt,
                        const QString &token);
    void chunkReceived(const ActiveQueryPtr &query, const QString &text);
    void queryFinished(const ActiveQueryPtr &query, const QueryOutcome &outcome);
    void querySucceeded(const ActiveQueryPtr &query, const DoneInfo &info);
    void queryFailed(const ActiveQueryPtr &query, const QueryError &error);
    /// Adds the text received so far to the query's thread; returns whether that is the current
    /// one.
    /// @param isCutOff leaves on show what the answer would have replaced, if anything
    bool recordTurn(const ActiveQueryPtr &query, bool isCutOff = false);
    /// Calls recordTurn(), updates the display and clears the prompt box.
    void recordFinishedTurn(const ActiveQueryPtr &query);
    void clearSentPrompt(const ActiveQueryPtr &query);
    void removeQuery(const ActiveQueryPtr &query);
    /// Remembers the question of a query that ended without a whole answer, if it is the last one
    /// of its thread.
    void rememberUnanswered(const ActiveQueryPtr &query);
    ActiveQueryPtr newestQueryOfCurrentThread() const;
    void currentThreadChanged();
    void fireTelemetry(const ActiveQueryPtr &query, const DoneInfo &info, qint64 usedAfter);

    Collaborators m_collaborators;
    LastQuestion m_lastQuestion;
    /// All running queries, oldest first.
    QList<ActiveQueryPtr> m_queries;
    /// Number of the last question of each thread.
    QHash<QUuid, quint64> m_lastAsked;
    quint64 m_queryCount = 0;
    /// The newest one of the current thread: activity() reports it and stop() cancels it.
    ActiveQueryPtr m_shownQuery;
    /// Whether its text is streamed into the page; false while another page is shown.
    bool m_isShownOnPage = false;
    using Captures = QHash<quint64, QFuture<ScreenshotCapture::Outcome>>;
    /// All running captures by number: those that the user makes, and the others.
    Captures m_choices;
    Captures m_captures;
    quint64 m_lastCapture = 0;
    /// The image at which the user is looking; empty for none.
    QByteArray m_lookedAt;
    /// The prompt of its own with which that image is sent, if any.
    std::optional<QString> m_lookedAtPrompt;
    bool m_stopped = false;
    /// Set by cancelAll(): late capture results are ignored.
    bool m_isShutDown = false;
};

} // namespace quellora
