#include "history/ThreadListing.h"

#include "history/ThreadSummaryReader.h"
#include "history/TwoWorkers.h"
#include "platform/FileStatus.h"

#include <QFile>

#include <algorithm>
#include <memory>

namespace quellora {

namespace {

struct Candidate
{
    QUuid id;
    /// Modification time of the description.
    qint64 modified = 0;
};

/// Sorts the threads by the modification time of their description, newest first.
void sortByModificationTime(QList<Candidate> &candidates, const QByteArray &root,
                            const ThreadListing::Promise &promise)
{
    constexpr qsizetype chunkSize = 500;
    Candidate *const all = candidates.data();
    const qsizetype count = candidates.size();
    forEachOnTwoWorkers((count + chunkSize - 1) / chunkSize, [&] {
        return [&](qsizetype part) {
            const qsizetype end = std::min(count, (part + 1) * chunkSize);
            for (qsizetype i = part * chunkSize; i < end && !promise.isCanceled(); ++i) {
                all[i].modified =
                    fileStatus(ThreadSummaryReader::folderOf(root, all[i].id) + "/session.json")
                        .modified;
            }
        };
    });
    std::sort(candidates.begin(), candidates.end(), [](const auto &left, const auto &right) {
        return left.modified != right.modified ? left.modified > right.modified
                                               : left.id < right.id;
    });
}

/// Start index of each batch, followed by the end of the last one.
QList<qsizetype> batchBoundaries(qsizetype count, ThreadListing::BatchSizes sizes)
{
    QList<qsizetype> boundaries{0};
    for (qsizetype size = sizes.first; boundaries.constLast() < count;
         size = std::min(2 * size, sizes.largest))
        boundaries.append(std::min(count, boundaries.constLast() + size));
    return boundaries;
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
    sortByModificationTime(candidates, QFile::encodeName(*root), promise);

    const QList<qsizetype> boundaries = batchBoundaries(candidates.size(), sizes);
    const auto readBatch = [&](ThreadSummaryReader &reader, qsizetype number) {
        ThreadBatch batch;
        batch.total = candidates.size();
        for (qsizetype i = boundaries.at(number); i < boundaries.at(number + 1); ++i) {
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
    // Deliver the first rows before starting a second worker.
    ThreadSummaryReader reader(*root);
    readBatch(reader, 0);
    forEachOnTwoWorkers(boundaries.size() - 2, [&] {
        return [&, own = std::make_unique<ThreadSummaryReader>(*root)](qsizetype i) {
            readBatch(*own, i + 1);
        };
    });
}

} // namespace quellora
