#pragma once

#include <QByteArray>
#include <QString>

#include <tl/expected.hpp>

#include <memory>

namespace quellora {

/// A file that takes the place of another one, or of none, as a whole: until commit() has succeeded
/// nothing of it can be seen, and what is not committed leaves no trace.
class FileReplacement
{
public:
    /// Nothing, or why not.
    using Result = tl::expected<void, QString>;

    virtual ~FileReplacement() = default;
    virtual Result open() = 0;
    virtual Result write(const QByteArray &content) = 0;
    /// The content is on the disk before the name shows it.
    virtual Result commit() = 0;
};

/// Every change that storing a thread makes on the file system, so that a test can let each one
/// fail. Blocking; callable from any thread.
class ThreadFiles
{
public:
    using Result = FileReplacement::Result;

    virtual ~ThreadFiles() = default;
    /// Makes the folder and those above it that are missing; an existing one is a success.
    virtual Result createFolder(const QString &path) = 0;
    virtual std::unique_ptr<FileReplacement> replacement(const QString &path) = 0;
    virtual Result removeFile(const QString &path) = 0;
    /// Makes the names in a folder survive a loss of power, as far as the file system can.
    virtual void syncFolder(const QString &path) = 0;
    /// Removes what interrupted replacements left in a thread's folder.
    virtual void removeLeftovers(const QString &folder) = 0;
};

/// ThreadFiles on the real disk. What it makes is readable by the user only. A symbolic link in the
/// place of a file is replaced, never written through.
class DiskThreadFiles : public ThreadFiles
{
public:
    Result createFolder(const QString &path) override;
    std::unique_ptr<FileReplacement> replacement(const QString &path) override;
    Result removeFile(const QString &path) override;
    void syncFolder(const QString &path) override;
    void removeLeftovers(const QString &folder) override;
};

/// The content of a regular file. Links, devices and pipes are refused: a folder that came from
/// elsewhere must not show other files of the user, or block the reader.
tl::expected<QByteArray, QString> readRegularFile(const QString &path);

} // namespace quellora
