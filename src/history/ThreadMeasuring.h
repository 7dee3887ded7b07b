#pragma once

#include "history/ThreadLibrary.h"

namespace quellora {

/// Measures the space that stored threads take, on the calling worker and, for many threads, on a
/// second one.
class ThreadMeasuring
{
public:
    /// All threads of @p store in no order; an error if the folder cannot be read. Counts the
    /// regular files in each thread's folder and follows no links. Blocking.
    static ThreadLibrary::Result<QList<MeasuredThread>> measure(const CaptureSessionStore &store);
};

} // namespace quellora
