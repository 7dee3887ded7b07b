#pragma once

#include "export/ExportFormat.h"
#include "history/ThreadFiles.h"

#include <QByteArray>
#include <QHash>
#include <QString>

#include <tl/expected.hpp>

#include <functional>

namespace quellora {

/// Why nothing was exported.
struct ExportFailure
{
    enum class Kind {
        /// The page engine failed to show the thread.
        Engine,
        /// There is a file of this name, and the user has not agreed to replace it.
        Exists,
        /// The file could not be written.
        Write,
    };

    Kind kind = Kind::Write;
    /// For the user: a sentence without its full stop.
    QString text;
};

/// Writes the files of an export. What was there before stays as it is until the new file is
/// complete, and files other than the chosen one are never replaced. Blocking; may be called from
/// any thread.
class ExportFiles
{
public:
    using Result = tl::expected<void, ExportFailure>;
    /// Makes the text once it is known where the pictures are: file addresses, relative to the
    /// text's folder, by number.
    using MakeText = std::function<QByteArray(const QHash<qint64, QString> &)>;

    /// Whether a file that is already there may be replaced.
    enum class Existing { Keep, Replace };

    /// @param files makes all changes on the disk; must outlive this object
    explicit ExportFiles(ThreadFiles &files) : m_files(files) {}

    /// Fails if write() certainly would, without changing anything.
    static Result check(const QString &path, Existing existing);
    /// Writes one file.
    Result write(const QString &path, Existing existing, const QByteArray &content) const;
    /// Writes a text and its pictures, which go to a folder beside it that is named after it. A
    /// picture that the folder already holds is used; one of the same name with other contents is
    /// left alone. On failure, what has been added is removed.
    Result writeWithPictures(const QString &path, Existing existing,
                             const QHash<qint64, QByteArray> &pictures, const MakeText &text) const;

    /// Ending of a picture's file by its contents: "jpg", "png" or "webp".
    static QString pictureSuffix(const QByteArray &picture);

private:
    tl::expected<void, QString> replace(const QString &path, const QByteArray &content) const;
    Result addPictures(const QString &folder, const QHash<qint64, QByteArray> &pictures,
                       QHash<qint64, QString> &addresses, QStringList &added) const;

    ThreadFiles &m_files;
};

} // namespace quellora
