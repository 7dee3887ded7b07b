#include "history/ThreadMeasuring.h"

#include "history/ThreadSummaryReader.h"
#include "history/TwoWorkers.h"

#include <QFile>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

namespace quellora {

namespace {

/// Size of the regular files in a folder; nothing if it is no folder of its own.
std::optional<qint64> sizeOf(const std::filesystem::path &folder)
{
    std::error_code error;
    if (!std::filesystem::is_directory(std::filesystem::symlink_status(folder, error)))
        return std::nullopt;
    qint64 bytes = 0;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code skipped;
        if (!std::filesystem::is_regular_file(entry->symlink_status(skipped)))
            continue;
        const auto size = entry->file_size(skipped);
        if (!skipped)
            bytes += qint64(size);
    }
    return bytes;
}

} // namespace

ThreadLibrary::Result<QList<MeasuredThread>>
ThreadMeasuring::measure(const CaptureSessionStore &store)
{
    const auto root = store.sessionsRoot();
    if (!root)
        return tl::unexpected(root.error());
    const auto ids = store.list();
    if (!ids)
        return tl::unexpected(ids.error());
    QList<std::optional<MeasuredThread>> all(ids->size());
    std::optional<MeasuredThread> *const measured = all.data();
    constexpr qsizetype chunkSize = 100;
    const QByteArray nativeRoot = QFile::encodeName(*root);
    forEachOnTwoWorkers((ids->size() + chunkSize - 1) / chunkSize, [&] {
        return [&, reader = std::make_unique<ThreadSummaryReader>(*root)](qsizetype chunk) {
            const qsizetype end = std::min(ids->size(), (chunk + 1) * chunkSize);
            for (qsizetype i = chunk * chunkSize; i < end; ++i) {
                const QUuid &id = ids->at(i);
                const auto bytes =
                    sizeOf(ThreadSummaryReader::folderOf(nativeRoot, id).toStdString());
                if (!bytes)
                    continue;
                const auto summary = reader->read(id);
                measured[i] = MeasuredThread{
                    id, *bytes, summary ? std::optional(summary->updatedAt) : std::nullopt};
            }
        };
    });
    QList<MeasuredThread> threads;
    threads.reserve(all.size());
    for (const auto &thread : std::as_const(all)) {
        if (thread)
            threads.append(*thread);
    }
    return threads;
}

} // namespace quellora
