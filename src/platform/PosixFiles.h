#pragma once

#include <QString>

#include <tl/expected.hpp>

#include <optional>

namespace quellora {

/// Waits until what was written through an open file descriptor is on the disk.
/// @return why it is not; empty when it is, or when the file system knows no such promise
QString syncFileToDisk(int descriptor);

/// Waits until the names in a folder are on the disk: a file's content is safe by itself, its name
/// is not. Best effort, because some file systems refuse it for folders.
void syncFolderToDisk(const QString &path);

/// Makes one folder that only the user can enter.
/// @return why it could not be made; empty when it was, or when it is there already
QString makePrivateFolder(const QString &path);

/// A sign on a folder that its owner is alive. It lasts as long as this object and goes with the
/// process, however that ends, so that neither a crash nor another process with the same number is
/// mistaken for the owner. Blocking; callable from any thread.
class FolderClaim
{
public:
    /// Makes a folder that only the user can enter and claims it. An error says why not.
    static tl::expected<FolderClaim, QString> make(const QString &path);
    /// Claims a folder of this user whose owner is gone; nothing when the owner is alive, or when
    /// there is no such folder.
    static std::optional<FolderClaim> takeOver(const QString &path);

    FolderClaim(FolderClaim &&other) noexcept;
    FolderClaim &operator=(FolderClaim &&other) noexcept;
    ~FolderClaim();

private:
    explicit FolderClaim(int descriptor) : m_descriptor(descriptor) {}

    int m_descriptor = -1;
};

} // namespace quellora
