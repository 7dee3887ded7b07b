#include "app/ExportCommand.h"

#include "base/WhenFinished.h"
#include "history/ThreadListing.h"

#include <QEventLoop>
#include <QPromise>
#include <QRegularExpression>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <optional>

namespace quellora {

namespace {

using Outcome = ExportCommand::Outcome;
using namespace std::chrono_literals;

/// A running program may be saving the thread: what fails may succeed when it has finished.
constexpr int readAttempts = 4;
constexpr auto betweenAttempts = 150ms;

/// A text as one line for a terminal.
QByteArray asLine(const QString &text)
{
    static const QRegularExpression control(
        QStringLiteral("[\\x{0000}-\\x{001f}\\x{007f}-\\x{009f}]+"));
    return QString(text).replace(control, QStringLiteral(" ")).toUtf8();
}

Outcome failed(int status, const QString &reason)
{
    return {status, {}, "quellora: " + asLine(reason) + '\n'};
}

/// All threads, newest first; an error if they cannot be read.
CaptureSessionStore::Result<QList<ThreadSummary>> listed(const CaptureSessionStore &store)
{
    ThreadListing::Promise promise;
    auto future = promise.future();
    promise.start();
    ThreadListing::read(store, promise);
    promise.finish();
    QList<ThreadSummary> threads;
    for (const auto &batch : future.results()) {
        if (!batch)
            return tl::unexpected(batch.error());
        threads += batch->threads;
    }
    std::sort(threads.begin(), threads.end(), isNewer);
    return threads;
}

CaptureSessionStore::Result<CaptureSession> load(const CaptureSessionStore &store, const QUuid &id)
{
    for (int attempt = 1;; ++attempt) {
        auto thread = store.load(id);
        if (thread || attempt == readAttempts ||
            thread.error().kind == StoreError::Kind::SessionNotFound)
            return thread;
        QThread::msleep(std::chrono::milliseconds(betweenAttempts).count());
    }
}

template <typename T>
T await(const QFuture<T> &future)
{
    std::optional<T> result;
    QEventLoop loop;
    whenFinished(future, &loop, [&](const T &value) {
        result = value;
        loop.quit();
    });
    loop.exec();
    return *result;
}

int statusOf(const ExportFailure &failure)
{
    switch (failure.kind) {
    case ExportFailure::Kind::Exists:
        return CommandLine::fileExists;
    case ExportFailure::Kind::Write:
        return CommandLine::fileNotWritten;
    case ExportFailure::Kind::Engine:
        break;
    }
    return EXIT_FAILURE;
}

} // namespace

ExportCommand::Outcome ExportCommand::list() const
{
    const auto threads = listed(m_store);
    if (!threads)
        return failed(EXIT_FAILURE, QStringLiteral("the threads can't be read: ") +
                                        threads.error().description());
    Outcome outcome;
    for (const ThreadSummary &thread : *threads)
        outcome.output +=
            uuidText(thread.id).toLatin1() + '\t' +
            thread.updatedAt.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm")).toLatin1() +
            '\t' + asLine(thread.title()) + '\n';
    return outcome;
}

ExportCommand::Outcome ExportCommand::run(const ExportRequest &request) const
{
    if (request.listsThreads)
        return list();
    std::optional<QUuid> id = request.thread;
    if (!id) {
        const auto threads = listed(m_store);
        if (!threads)
            return failed(EXIT_FAILURE, QStringLiteral("the threads can't be read: ") +
                                            threads.error().description());
        if (threads->isEmpty())
            return failed(CommandLine::noSuchThread, QStringLiteral("no thread is stored"));
        id = threads->constFirst().id;
    }
    const auto thread = load(m_store, *id);
    if (!thread) {
        if (thread.error().kind == StoreError::Kind::SessionNotFound)
            return failed(CommandLine::noSuchThread,
                          QStringLiteral("no thread %1 is stored").arg(uuidText(*id)));
        return failed(EXIT_FAILURE,
                      QStringLiteral("the thread can't be read: ") + thread.error().description());
    }
    const auto exported = await(m_exporter.exportThread(
        *thread, request.format, request.path,
        request.replacesFile ? ThreadExporter::Existing::Replace : ThreadExporter::Existing::Keep));
    if (exported)
        return {};
    QString reason = exported.error().text;
    if (exported.error().kind == ExportFailure::Kind::Exists)
        reason += QStringLiteral("; --force replaces it");
    return failed(statusOf(exported.error()), reason);
}

} // namespace quellora
