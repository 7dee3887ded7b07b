#pragma once

#include "backend/NotificationCenter.h"
#include "backend/SessionManager.h"
#include "base/Settings.h"
#include "fakes/FakeAnswerDisplay.h"
#include "fakes/FakeDesktopSession.h"
#include "fakes/LogCapture.h"
#include "history/ThreadController.h"
#include "query/PromptConfig.h"
#include "query/ProxyQueryService.h"
#include "query/QueryOrchestrator.h"
#include "query/ServiceMessages.h"

#include <QPromise>
#include <QTest>

namespace quellora {

inline const QString prefix = QStringLiteral("[OverlayWindowController] ");

/// A query that the test answers.
class FakeTransfer : public RunningQuery
{
public:
    void cancel() override
    {
        cancelled = true;
        deleteLater();
    }
    void answer(const QString &text)
    {
        if (!started) {
            started = true;
            Q_EMIT firstByte();
        }
        Q_EMIT chunk(text);
    }
    void finish(const QueryOutcome &outcome)
    {
        Q_EMIT finished(outcome);
        deleteLater();
    }
    bool started = false;
    bool cancelled = false;
};

/// Records the last saved state of each thread.
class RecordingSaver : public ThreadSaver
{
public:
    void save(const CaptureSession &session, const QString &) override
    {
        saved.insert(session.id, session);
    }
    QHash<QUuid, CaptureSession> saved;
};

/// Records requests and telemetry.
class FakeService : public ProxyQueryService
{
public:
    using ProxyQueryService::ProxyQueryService;
    RunningQuery *query(const QueryRequest &request) override
    {
        requests.append(request);
        transfers.append(new FakeTransfer);
        return transfers.last();
    }
    void sendTelemetry(const QString &token, const QJsonObject &record) override
    {
        telemetryToken = token;
        telemetry.append(record);
    }
    QList<QueryRequest> requests;
    QList<QPointer<FakeTransfer>> transfers;
    QList<QJsonObject> telemetry;
    QString telemetryToken;
};

inline AppConfigResponse account()
{
    AppConfigResponse config;
    config.defaultPrompt = "server prompt";
    return config;
}

/// The query flow with fake collaborators, a manual clock and manually answered queries.
struct OrchestratorFixture
{
    /// @param threadSaver saves the threads; `saver` by default
    explicit OrchestratorFixture(ThreadSaver *threadSaver = nullptr)
        : threads(settings, threadSaver ? threadSaver : &saver, [this] { return now; })
    {
        auth.setSession("token", account());
        messages.updateUsage(100, 1000);
        log.clear();
    }

    void captureReturns(const ScreenshotCapture::Outcome &outcome)
    {
        capturePromise.start();
        capturePromise.addResult(outcome);
        capturePromise.finish();
        QCoreApplication::processEvents();
        capturePromise = {};
    }

    void captureAndSend(const QByteArray &jpeg = "jpeg")
    {
        orchestrator.triggerCaptureAndSend();
        captureReturns(ScreenshotCapture::Result{jpeg, 99});
    }

    FakeTransfer *transfer() { return service.transfers.last(); }

    QDateTime now = QDateTime::fromString("2026-03-01T10:00:00Z", Qt::ISODate);
    LogCapture log;
    QNetworkAccessManager network;
    NotificationCenter notifications;
    JsonUserDefaults defaults;
    Settings settings{defaults};
    AuthService auth{network, BackendEndpoints("http://host"), [] { return DeviceFields(); }};
    SessionManager session{auth, notifications};
    FakeAnswerDisplay display;
    FakeDesktopSession desktop;
    ServiceMessages messages{display, BackendEndpoints("http://host")};
    RecordingSaver saver;
    ThreadController threads;
    FakeService service{network, BackendEndpoints("http://host")};
    QPromise<ScreenshotCapture::Outcome> capturePromise;
    /// What was captured.
    QList<CaptureTarget> targets;
    /// Called when a capture starts; may be empty.
    std::function<void()> onCapture;
    std::optional<QString> model;
    QueryOrchestrator orchestrator{{session, settings, threads, messages, service, display, desktop,
                                    [this](CaptureTarget target) {
                                        targets << target;
                                        if (onCapture)
                                            onCapture();
                                        return capturePromise.future();
                                    },
                                    [this] { return model; }, [this] { return now; }}};
};

inline QueryOutcome done(qint64 remaining = 800, qint64 used = 100)
{
    DoneInfo info;
    info.tokensRemaining = remaining;
    info.tokensUsed = used;
    return info;
}

inline QueryOutcome failure(QueryError::Kind kind, const QString &message = {}, int status = 0)
{
    QueryError error;
    error.kind = kind;
    error.message = message;
    error.status = status;
    return tl::unexpected(error);
}

inline ScreenshotCapture::Outcome captureFailure(ScreenshotCapture::CaptureError::Kind kind,
                                                 const QString &detail = {}, int status = 0)
{
    return tl::unexpected(ScreenshotCapture::CaptureError{kind, detail, status});
}

} // namespace quellora
