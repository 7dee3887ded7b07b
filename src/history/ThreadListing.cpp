#include "history/ThreadListing.h"

#include "history/ThreadSummaryReader.h"
#include "platform/FileStatus.h"

#include <QFile>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <thread>

namespace quellora {

namespace {

struct Candidate
{
    QUuid id;
    /// When the description changed.
    qint64 changed = 0;
};

/// Calls @p work with 0 to @p count - 1, each number once and about in order, on this worker and,
/// when there is more than one number and more than one processor, on a second one.
template <typename MakeWork>
void forEachOnTwoWorkers(qsizetype count, MakeWork makeWork)
{
    std::atomic<qsizetype> next = 0;
    const auto run = [&] {
        auto work = makeWork();
        for (qsizetype i = next++; i < count; i = next++)
            work(i);
    };
    if (count < 2 || QThread::idealThreadCount() < 2) {
        run();
        return;
    }
    std::thread second(run);
    run();
    second.join();
}

/// The threads on the disk, the last changed first.
void sortByChange(QList<Candidate> &candidates, const QByteArray &root,
                  const ThreadListing::Promise &promise)
{
    constexpr qsizetype share = 500;
    Candidate *const all = candidates.data();
    const qsizetype count = candidates.size();
    forEachOnTwoWorkers((count + share - 1) / share, [&] {
        return [&](qsizetype part) {
            const qsizetype end = std::min(count, (part + 1) * share);
            for (qsizetype i = part * share; i < end && !promise.isCanceled(); ++i) {
                all[i].changed =
                    fileStatus(ThreadSummaryReader::folderOf(root, all[i].id) + "/session.json")
                        .modified;
            }
        };
    });
    std::sort(candidates.begin(), candidates.end(), [](const auto &left, const auto &right) {
        return left.changed != right.changed ? left.changed > right.changed : left.id < right.id;
    });
}

/// Where each batch begins, and the end of the last.
QList<qsizetype> bordersOf(qsizetype count, ThreadListing::BatchSizes sizes)
{
    QList<qsizetype> borders{0};
    for (qsizetype size = sizes.first; borders.constLast() < count;
         size = std::min(2 * size, sizes.largest))
        borders.append(std::min(count, borders.constLast() + size));
    return borders;
}

} // namespace

void ThreadListing::read(const CaptureSessionStore &store, Promise &promise, BatchSizes sizes)
{
    const auto root = store.sessionsRoot();
    const auto ids = store.list();
    if (!root || !ids) {
        promise.addResult(tl::unexpected(root ? ids.error() : root.error()));
        return;
    }
    QList<Candidate> candidates;
    candidates.reserve(ids->size());
    for (const QUuid &id : *ids)
        candidates.append({id});
    sortByChange(candidates, QFile::encodeName(*root), promise);

    const QList<qsizetype> borders = bordersOf(candidates.size(), sizes);
    const auto readBatch = [&](ThreadSummaryReader &reader, qsizetype number) {
        ThreadBatch batch;
        batch.total = candidates.size();
        for (qsizetype i = borders.at(number); i < borders.at(number + 1); ++i) {
            if (promise.isCanceled())
                return;
            const QUuid &id = candidates.at(i).id;
            if (auto summary = reader.read(id))
                batch.threads.append(*std::move(summary));
            else
                batch.skipped.append({id, summary.error()});
        }
        std::sort(batch.threads.begin(), batch.threads.end(), isNewer);
        promise.addResult(ThreadLibrary::Result<ThreadBatch>(std::move(batch)), int(number));
    };
    if (candidates.isEmpty())
        return;
    // The first rows wait for nobody.
    ThreadSummaryReader reader(*root);
    readBatch(reader, 0);
    forEachOnTwoWorkers(borders.size() - 2, [&] {
        return [&, own = std::make_unique<ThreadSummaryReader>(*root)](qsizetype i) {
            readBatch(*own, i + 1);
        };
    });
}

} // namespace quellora
