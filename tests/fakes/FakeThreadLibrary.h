#pragma once

#include "history/TextFolding.h"
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
    QFuture<ThreadHits> search(const ThreadQuery &query) override
    {
        auto promise = std::make_shared<QPromise<ThreadHits>>();
        promise->start();
        searches.append(query);
        if (holdsSearch) {
            heldSearch = promise;
            return promise->future();
        }
        ThreadHits hits;
        for (const QUuid &id : query.threads) {
            if (const auto it = sessions.constFind(id); it != sessions.constEnd())
                addHit(*it, query.text.trimmed(), hits);
        }
        promise->addResult(hits);
        promise->finish();
        return promise->future();
    }
    QFuture<Result<CaptureSession>> load(const QUuid &id) override
    {
        calls.append(QStringLiteral("load"));
        if (failure)
            return ready(Result<CaptureSession>(tl::unexpected(*failure)));
        const auto it = sessions.constFind(id);
        if (it == sessions.constEnd())
            return ready(Result<CaptureSession>(
                tl::unexpected(StoreError{StoreError::Kind::SessionNotFound, id, 0, {}})));
        return ready(Result<CaptureSession>(*it));
    }
    QFuture<Result<QList<MeasuredThread>>> measure() override
    {
        calls.append(QStringLiteral("measure"));
        if (listError)
            return ready(Result<QList<MeasuredThread>>(tl::unexpected(*listError)));
        QList<MeasuredThread> threads;
        for (const CaptureSession &session : std::as_const(sessions))
            threads.append({session.id, bytesPerThread, session.updatedAt});
        for (const SkippedThread &thread : std::as_const(skipped))
            threads.append({thread.id, bytesPerThread, std::nullopt});
        return ready(Result<QList<MeasuredThread>>(threads));
    }
    QFuture<RemovedThreads> remove(const QList<QUuid> &ids) override
    {
        calls.append(QStringLiteral("remove"));
        return ready(removeThreads(ids));
    }
    QFuture<Result<RemovedThreads>> removeOlder(const QDateTime &limit,
                                                const QSet<QUuid> &kept) override
    {
        calls.append(QStringLiteral("removeOlder"));
        limits.append(limit);
        if (listError)
            return ready(Result<RemovedThreads>(tl::unexpected(*listError)));
        QList<QUuid> old;
        for (const CaptureSession &session : std::as_const(sessions)) {
            if (session.updatedAt < limit && !kept.contains(session.id))
                old.append(session.id);
        }
        return ready(Result<RemovedThreads>(removeThreads(old)));
    }
    QFuture<Result<void>> updateTitle(const QUuid &id,
                                      const std::optional<QString> &customTitle) override
    {
        calls.append(QStringLiteral("updateTitle"));
        if (failure)
            return ready(Result<void>(tl::unexpected(*failure)));
        sessions[id].customTitle = customTitle;
        return ready(Result<void>());
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

    /// A hit whose snippet is the whole of @p text.
    static ThreadHit hit(ThreadHit::Place place, const QString &text, const QString &part)
    {
        const qsizetype start = text.indexOf(part);
        return {place, text, start, part.size(),
                SearchText(QString(), QLocale::c()).reduced(text.mid(start))};
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
    /// If set, load(), remove(), removeOlder() and updateTitle() fail with it, those that remove
    /// for its thread or, if it names none, for each.
    std::optional<StoreError> failure;
    /// Space that each thread takes.
    qint64 bytesPerThread = 1000;
    /// The limits of all calls of removeOlder().
    QList<QDateTime> limits;
    /// Whether list() leaves its future pending.
    bool holdsList = false;
    /// Promise of the last pending list().
    std::shared_ptr<Batches> held;
    /// The queries of all calls of search().
    QList<ThreadQuery> searches;
    /// Whether search() leaves its future pending.
    bool holdsSearch = false;
    /// Promise of the last pending search().
    std::shared_ptr<QPromise<ThreadHits>> heldSearch;
    /// Number of calls of list().
    int lists = 0;
    QStringList calls;

private:
    static void addHit(const CaptureSession &session, const QString &part, ThreadHits &hits)
    {
        const auto add = [&](ThreadHit::Place place, const QString &text) {
            if (text.contains(part))
                hits.insert(session.id, hit(place, text, part));
        };
        for (const auto &turn : session.turns) {
            add(ThreadHit::Place::Question, turn.prompt);
            add(ThreadHit::Place::Answer, turn.response);
        }
        for (const auto &note : session.notes)
            add(ThreadHit::Place::Note, note.text);
    }

    RemovedThreads removeThreads(const QList<QUuid> &ids)
    {
        RemovedThreads outcome;
        for (const QUuid &id : ids) {
            if (failure && (failure->id.isNull() || failure->id == id)) {
                StoreError error = *failure;
                error.id = id;
                outcome.failed.append(error);
                continue;
            }
            sessions.remove(id);
            outcome.removed.append(id);
        }
        return outcome;
    }

    template <typename T>
    static QFuture<T> ready(T value)
    {
        QPromise<T> promise;
        promise.start();
        auto future = promise.future();
        promise.addResult(std::move(value));
        promise.finish();
        return future;
    }
};

} // namespace quellora
