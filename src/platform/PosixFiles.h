#pragma once

#include <QString>

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

} // namespace quellora
