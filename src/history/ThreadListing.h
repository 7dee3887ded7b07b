#pragma once

#include "history/ThreadLibrary.h"

#include <QPromise>

namespace quellora {

/// Reads the list of all stored threads on the calling worker and, for long ones, on a second one.
///
/// Blocking, and lists may be read beside each other.
class ThreadListing
{
public:
    using Promise = QPromise<ThreadLibrary::Result<ThreadBatch>>;

    /// How many threads go into a batch: few at first, so that the first rows are there at once,
    /// then twice as many each time.
    struct BatchSizes
    {
        qsizetype first = 50;
        qsizetype largest = 400;
    };

    /// Adds all threads of @p store to @p promise in batches, those whose description changed last
    /// first, or a single error when the folder cannot be read. Two workers may add batches out of
    /// turn, under the index that says their place. Ends early when the promise's future is
    /// cancelled. Starting and finishing the promise is up to the caller.
    static void read(const CaptureSessionStore &store, Promise &promise, BatchSizes sizes);
    static void read(const CaptureSessionStore &store, Promise &promise)
    {
        read(store, promise, BatchSizes());
    }
};

} // namespace quellora
