#pragma once

#include "history/ThreadLibrary.h"

#include <QPromise>

namespace quellora {

/// Reads the list of all stored threads on the calling worker and, for long lists, on a second one.
///
/// Blocking; several lists may be read concurrently.
class ThreadListing
{
public:
    using Promise = QPromise<ThreadLibrary::Result<ThreadBatch>>;

    /// Threads per batch: few at first, so that the first rows appear quickly, then doubling up to
    /// @c largest.
    struct BatchSizes
    {
        qsizetype first = 50;
        qsizetype largest = 400;
    };

    /// Adds all threads of @p store to @p promise in batches, most recently modified first, or a
    /// single error if the folder cannot be read. With two workers, batches may arrive out of
    /// order, each under its result index. Returns early if the promise's future is cancelled. The
    /// caller starts and finishes the promise.
    static void read(const CaptureSessionStore &store, Promise &promise, BatchSizes sizes);
    static void read(const CaptureSessionStore &store, Promise &promise)
    {
        read(store, promise, BatchSizes());
    }
};

} // namespace quellora
