#pragma once

#include <QByteArray>
#include <QString>

#include <tl/expected.hpp>

namespace quellora {

/// Type and modification time of a directory entry. Symbolic links are not followed.
struct FileStatus
{
    enum class Kind { Nothing, File, Folder, Other };

    Kind kind = Kind::Nothing;
    /// Last modification of the content, in nanoseconds since 1970.
    qint64 modified = 0;
};

/// Status of a path. Avoids QFileInfo, whose overhead exceeds that of the system call and matters
/// in folders with ten thousand files. Blocking; callable from any thread.
FileStatus fileStatus(const QByteArray &path);

/// Why readFileInto() failed.
struct ReadFailure
{
    enum class Kind { Nothing, NotAFile, TooLarge, Other };

    Kind kind = Kind::Other;
    /// The system's error text, for Other.
    QString text;
};

/// Reads a regular file to the start of @p buffer, which grows as needed and never shrinks. Does
/// not follow symbolic links or block on pipes. Blocking; callable from any thread.
/// @param largest maximum file size in bytes
/// @param padding bytes of @p buffer to reserve after the content
/// @return number of bytes read
tl::expected<qint64, ReadFailure> readFileInto(const QByteArray &path, qint64 largest,
                                               qsizetype padding, QByteArray &buffer);

} // namespace quellora
