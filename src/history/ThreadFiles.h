#pragma once

#include <QByteArray>
#include <QString>

#include <tl/expected.hpp>

#include <memory>

namespace quellora {

/// Atomic replacement of a file: the target is unchanged until commit() succeeds, and an
/// uncommitted replacement is discarded on destruction.
class FileReplacement
{
public:
    /// Success, or the reason of the failure.
    using Result = tl::expected<void, QString>;

    virtual ~FileReplacement() = default;
    virtual Result open() = 0;
    virtual Result write(const QByteArray &content) = 0;
    /// Syncs the content to the disk, then renames it to the target.
    virtual Result commit() = 0;
};

/// All file system changes made while storing threads; an interface so that tests can inject
/// failures. Blocking; may be called from any thread.
class ThreadFiles
{
public:
    using Result = FileReplacement::Result;

    virtual ~ThreadFiles() = default;
    /// Creates a folder and its missing parents; succeeds if it exists.
    virtual Result createFolder(const QString &path) = 0;
    virtual std::unique_ptr<FileReplacement> replacement(const QString &path) = 0;
    virtual Result removeFile(const QString &path) = 0;
    /// Syncs a folder's entries to the disk, so that they survive a power loss where the file
    /// system supports it.
    virtual void syncFolder(const QString &path) = 0;
    /// Removes temporary files of interrupted replacements from a thread's folder.
    virtual void removeLeftovers(const QString &folder) = 0;
};

/// ThreadFiles on the real disk. Files and folders are private to the user. A symbolic link in
/// place of a file is replaced, never followed.
class DiskThreadFiles : public ThreadFiles
{
public:
    Result createFolder(const QString &path) override;
    std::unique_ptr<FileReplacement> replacement(const QString &path) override;
    Result removeFile(const QString &path) override;
    void syncFolder(const QString &path) override;
    void removeLeftovers(const QString &folder) override;
};

/// Reads a regular file. Links, devices and pipes are rejected, because a folder from an untrusted
/// source must not expose the user's other files or block the reader.
tl::expected<QByteArray, QString> readRegularFile(const QString &path);

} // namespace quellora
