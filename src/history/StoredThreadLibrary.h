#pragma once

#include "history/BackgroundThreadSaver.h"
#include "history/ThreadLibrary.h"

#include <QThreadPool>

namespace quellora {

/// The threads in the store. Opening, renaming and deleting take their turn behind the saves asked
/// for before; a list is read beside them, so that a long one keeps nobody waiting.
class StoredThreadLibrary : public ThreadLibrary
{
public:
    /// Both borrowed.
    StoredThreadLibrary(const CaptureSessionStore &store, BackgroundThreadSaver &saver);
    /// Gives up lists that are still being read, waits for everything else.
    ~StoredThreadLibrary() override;

    QFuture<Result<ThreadBatch>> list() override;
    QFuture<Result<CaptureSession>> load(const QUuid &id) override;
    QFuture<Result<void>> remove(const QUuid &id) override;
    QFuture<Result<void>> updateTitle(const QUuid &id,
                                      const std::optional<QString> &customTitle) override;

private:
    template <typename T>
    QFuture<Result<T>> afterSaves(std::function<Result<T>()> work);

    const CaptureSessionStore &m_store;
    BackgroundThreadSaver &m_saver;
    QList<QFuture<Result<ThreadBatch>>> m_lists;
    QThreadPool m_readers;
};

} // namespace quellora
