#pragma once

#include <QByteArray>
#include <QString>

#include <tl/expected.hpp>

namespace quellora {

/// What stands under a name. A symbolic link is itself, never what it points to.
struct FileLook
{
    enum class Kind { Nothing, File, Folder, Other };

    Kind kind = Kind::Nothing;
    /// Of the last change of the content, in nanoseconds since 1970.
    qint64 modified = 0;
};

/// Looks at a name without opening it; for folders of ten thousand files, where the general ways
/// cost more than the look itself. Blocking; callable from any thread.
FileLook lookAt(const QByteArray &path);

/// Why readFileInto() read nothing.
struct ReadFailure
{
    enum class Kind { Nothing, NotAFile, TooLarge, Other };

    Kind kind = Kind::Other;
    /// The system's own text, for Other.
    QString text;
};

/// Reads a regular file into the beginning of @p buffer, which grows when needed and is never made
/// smaller. Links are not followed and pipes not waited for. Blocking; callable from any thread.
/// @param largest more bytes than these are not read
/// @param padding bytes that the buffer is to have behind the content
/// @return number of bytes read
tl::expected<qint64, ReadFailure> readFileInto(const QByteArray &path, qint64 largest,
                                               qsizetype padding, QByteArray &buffer);

} // namespace quellora
