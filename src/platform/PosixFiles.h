#pragma once

#include <QString>

#include <tl/expected.hpp>

#include <optional>

namespace quellora {

/// Flushes the data written through an open file descriptor to disk. Blocking.
/// @return the error; empty on success or if the file system does not support flushing
QString syncFileToDisk(int descriptor);

/// Flushes a folder's entries to disk: syncing a file does not persist its name. Blocking. Best
/// effort, because some file systems do not support it for folders.
void syncFolderToDisk(const QString &path);

/// Creates a folder with mode 0700; its parent must exist. Does not change an existing folder.
/// @return the error; empty on success or if the path already exists
QString makePrivateFolder(const QString &path);

/// An advisory lock on a private folder, held by this object. The kernel releases it when the
/// process ends, so neither a crash nor a reused process id is mistaken for a live owner. Blocking;
/// callable from any thread.
class FolderClaim
{
public:
    /// Creates a folder with mode 0700 if it does not exist and locks it, waiting for another owner
    /// to release it.
    /// @return the lock, or the reason it could not be acquired
    static tl::expected<FolderClaim, QString> make(const QString &path);
    /// Locks a folder of this user whose owner has ended. Does not wait.
    /// @return the lock; nullopt if the folder is locked, missing or owned by another user
    static std::optional<FolderClaim> takeOver(const QString &path);

    FolderClaim(FolderClaim &&other) noexcept;
    FolderClaim &operator=(FolderClaim &&other) noexcept;
    ~FolderClaim();

private:
    explicit FolderClaim(int descriptor) : m_descriptor(descriptor) {}

    int m_descriptor = -1;
};

} // namespace quellora
