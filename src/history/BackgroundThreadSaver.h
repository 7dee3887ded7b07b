#pragma once

#include "history/CaptureSessionStore.h"
#include "history/ThreadController.h"

#include <QThreadPool>

namespace quellora {

/// Saves threads through the store on one worker, in the order of the requests, so that the main
/// thread never waits for the disk. Failures come back as log lines with the caller's prefix.
class BackgroundThreadSaver : public ThreadSaver
{
public:
    /// @param store borrowed
    explicit BackgroundThreadSaver(const CaptureSessionStore &store);
    /// Waits until everything is stored.
    ~BackgroundThreadSaver() override;

    void save(const CaptureSession &session, const QString &failurePrefix) override;
    /// Blocks until every save so far has been done.
    void flush();

private:
    const CaptureSessionStore &m_store;
    QThreadPool m_worker;
};

} // namespace quellora
