#pragma once

#include "history/CaptureSession.h"
#include "history/ThreadFiles.h"

#include <QString>

#include <tl/expected.hpp>

#include <memory>
#include <optional>

namespace quellora {

/// Why a stored thread could not be written, read or changed.
struct StoreError
{
    enum class Kind {
        SessionNotFound,
        NotPersisting,
        ScreenshotFileMissing,
        /// The description is not what it should be.
        Decoding,
        /// The file system refused.
        File,
    };

    Kind kind = Kind::File;
    QUuid id;
    /// Index of the screenshot, for ScreenshotFileMissing.
    qint64 screenshotIndex = 0;
    /// The platform's or decoder's own text, for Decoding and File.
    QString detail;
    /// The platform's text alone, without the file, for File.
    QString reason = {};

    QString description() const;
    /// What the user is told.
    QString reasonForUser() const { return reason.isEmpty() ? description() : reason; }
};

/// Threads on disk: one folder per thread with a JSON description and one file per kept screenshot.
///
/// Stateless over its root folder; every operation works on the file system directly and blocks
/// for it. Files are replaced as a whole and images come before the description that names them, so
/// that a crash or a full disk leaves the old thread or the new one. What an interrupted save
/// leaves behind goes with the thread's next one. Callable from any thread, one call per thread
/// folder at a time.
class CaptureSessionStore
{
public:
    template <typename T>
    using Result = tl::expected<T, StoreError>;

    /// @param applicationSupport per-user Application Support directory; the store lies in
    ///        "Quellora/sessions" below it
    /// @param files what the store changes on the disk goes through this
    explicit CaptureSessionStore(
        const QString &applicationSupport,
        std::shared_ptr<ThreadFiles> files = std::make_shared<DiskThreadFiles>());

    /// The root folder, created when needed.
    Result<QString> sessionsRoot() const;
    /// Writes what is kept of the thread: complete description, images not written before. Images
    /// that the thread no longer has are removed, and so is a thread of which nothing is kept, not
    /// even a title.
    Result<void> save(const CaptureSession &session) const;
    /// Reads a thread back, without cursors.
    Result<CaptureSession> load(const QUuid &id) const;
    /// Ids of all stored threads in directory order; entries not named by a UUID are ignored.
    Result<QList<QUuid>> list() const;
    /// Removes a thread with everything in its folder; an unknown id is a success. When its files
    /// cannot be removed, the thread stays as it was.
    Result<void> remove(const QUuid &id) const;
    /// Sets or removes the custom title and nothing else.
    Result<void> updateTitle(const QUuid &id, const std::optional<QString> &customTitle) const;

    /// Name of a screenshot's file in the thread's folder.
    static QString screenshotFileName(qint64 index);

private:
    QString folderOf(const QUuid &id) const;
    QString descriptionFileOf(const QUuid &id) const;
    Result<void> removeFolder(const QUuid &id) const;
    Result<void> saveImages(const QUuid &id,
                            const QList<CaptureSession::Screenshot> &screenshots) const;
    Result<void> removeOtherImages(const QUuid &id,
                                   const QList<CaptureSession::Screenshot> &kept) const;

    QString m_root;
    std::shared_ptr<ThreadFiles> m_files;
};

} // namespace quellora
