#pragma once

#include "history/ThreadLibrary.h"

#include <QMap>
#include <QPromise>

#include <memory>
#include <utility>

namespace quellora {

/// In-memory ThreadLibrary. Every operation finishes immediately, except list() while holdsList is
/// set: the test then delivers the batches through `held`.
class FakeThreadLibrary : public ThreadLibrary
{
public:
    using Batches = QPromise<Result<ThreadBatch>>;

    QFuture<Result<ThreadBatch>> list() override
    {
        auto promise = std::make_shared<Batches>();
        promise->start();
        auto future = promise->future();
        ++lists;
        if (holdsList) {
            held = promise;
            return future;
        }
        if (listError) {
            promise->addResult(tl::unexpected(*listError));
        } else {
            ThreadBatch batch;
            for (const CaptureSession &session : std::as_const(sessions))
                batch.threads.append(summary(session));
            batch.skipped = skipped;
            batch.total = batch.threads.size() + batch.skipped.size();
            promise->addResult(batch);
        }
        promise->finish();
        return future;
    }
    QFuture<Result<CaptureSession>> load(const QUuid &id) override
    {
        calls.append(QStringLiteral("load"));
        if (failure)
            return ready<CaptureSession>(tl::unexpected(*failure));
        const auto it = sessions.constFind(id);
        if (it == sessions.constEnd())
            return ready<CaptureSession>(
                tl::unexpected(StoreError{StoreError::Kind::SessionNotFound, id, 0, {}}));
        return ready<CaptureSession>(*it);
    }
    QFuture<Result<void>> remove(const QUuid &id) override
    {
        calls.append(QStringLiteral("remove"));
        if (failure)
            return ready<void>(tl::unexpected(*failure));
        sessions.remove(id);
        return ready<void>({});
    }
    QFuture<Result<void>> updateTitle(const QUuid &id,
                                      const std::optional<QString> &customTitle) override
    {
        calls.append(QStringLiteral("updateTitle"));
        if (failure)
            return ready<void>(tl::unexpected(*failure));
        sessions[id].customTitle = customTitle;
        return ready<void>({});
    }

    static ThreadSummary summary(const CaptureSession &session)
    {
        return {session.id,           session.createdAt,         session.updatedAt,
                session.customTitle,  session.previewText(),     session.turns.size(),
                session.notes.size(), session.screenshots.size()};
    }
    static ThreadSummary summary(const QString &title, const QDateTime &updatedAt)
    {
        ThreadSummary thread;
        thread.id = QUuid::createUuid();
        thread.createdAt = thread.updatedAt = updatedAt;
        thread.previewText = title;
        return thread;
    }

    /// Stores a new thread with one turn.
    CaptureSession add(const QString &prompt, const QDateTime &updatedAt)
    {
        CaptureSession session = CaptureSession::create(updatedAt);
        session.addTurn(prompt, QStringLiteral("An answer."), updatedAt, updatedAt);
        sessions.insert(session.id, session);
        return session;
    }

    QMap<QUuid, CaptureSession> sessions;
    QList<SkippedThread> skipped;
    std::optional<StoreError> listError;
    /// If set, load(), remove() and updateTitle() fail with it.
    std::optional<StoreError> failure;
    /// Whether list() leaves its future pending.
    bool holdsList = false;
    /// Promise of the last pending list().
    std::shared_ptr<Batches> held;
    /// Number of calls of list().
    int lists = 0;
    QStringList calls;

private:
    template <typename T>
    static QFuture<Result<T>> ready(Result<T> value)
    {
        QPromise<Result<T>> promise;
        promise.start();
        auto future = promise.future();
        promise.addResult(std::move(value));
        promise.finish();
        return future;
    }
};

} // namespace quellora
