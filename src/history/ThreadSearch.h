#pragma once

#include "history/ThreadLibrary.h"

#include <QPromise>

namespace quellora {

/// Searches stored threads on the calling worker and, for many threads, on a second one.
///
/// Blocking; several searches may run concurrently.
class ThreadSearch
{
public:
    using Promise = QPromise<ThreadHits>;

    /// Threads per batch: few at first, so that the first hits appear quickly.
    struct BatchSizes
    {
        qsizetype first = 64;
        qsizetype later = 128;
    };

    /// Adds the hits of each batch of threads to @p promise, also if there are none, under the
    /// batch's index. Returns early if the promise's future is cancelled. The caller starts and
    /// finishes the promise.
    static void run(const CaptureSessionStore &store, const ThreadQuery &query, Promise &promise,
                    BatchSizes sizes);
    static void run(const CaptureSessionStore &store, const ThreadQuery &query, Promise &promise)
    {
        run(store, query, promise, BatchSizes());
    }
};

} // namespace quellora
