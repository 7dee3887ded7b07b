#pragma once

#include "history/CaptureSession.h"
#include "history/ThreadFiles.h"

#include <QString>

#include <tl/expected.hpp>

#include <memory>
#include <optional>

namespace quellora {

/// Error of writing, reading or changing a stored thread.
struct StoreError
{
    enum class Kind {
        SessionNotFound,
        NotPersisting,
        ScreenshotFileMissing,
        /// The JSON description is malformed.
        Decoding,
        /// A file system operation failed.
        File,
    };

    Kind kind = Kind::File;
    QUuid id;
    /// Number of the screenshot, for ScreenshotFileMissing.
    qint64 screenshotIndex = 0;
    /// Message of the platform or the decoder, for Decoding and File.
    QString detail;
    /// Message of the platform without the path, for File.
    QString reason = {};

    QString description() const;
    /// The reason as shown to the user.
    QString reasonForUser() const { return reason.isEmpty() ? description() : reason; }
};

/// Threads on disk: one folder per thread with a JSON description and one file per kept screenshot.
///
/// Keeps no state in memory; every operation is blocking file I/O. Files are replaced atomically
/// and images are written before the description that refers to them, so a crash or a full disk
/// leaves either the old or the new thread. Files left by an interrupted save are removed by the
/// thread's next save. May be called from any thread, but not concurrently for the same folder.
class CaptureSessionStore
{
public:
    template <typename T>
    using Result = tl::expected<T, StoreError>;

    /// @param applicationSupport per-user Application Support directory; the store is in its
    ///        subfolder "Quellora/sessions"
    /// @param files performs all changes on the disk
    explicit CaptureSessionStore(
        const QString &applicationSupport,
        std::shared_ptr<ThreadFiles> files = std::make_shared<DiskThreadFiles>());

    /// The root folder, created if missing.
    Result<QString> sessionsRoot() const;
    /// Writes the kept part of the thread: the whole description and images not written before.
    /// Removes images that are no longer kept, and the whole folder if nothing is kept and there is
    /// no custom title.
    Result<void> save(const CaptureSession &session) const;
    /// Loads a thread; its persistence cursors are unset.
    Result<CaptureSession> load(const QUuid &id) const;
    /// Ids of all stored threads in directory order. Ignores entries not named by a UUID and
    /// completes interrupted deletions.
    Result<QList<QUuid>> list() const;
    /// Removes a thread's folder; succeeds for an unknown id. If its description cannot be
    /// removed, the thread is left unchanged.
    Result<void> remove(const QUuid &id) const;
    /// Changes only the custom title; nullopt removes it.
    Result<void> updateTitle(const QUuid &id, const std::optional<QString> &customTitle) const;

    /// File name of a screenshot in the thread's folder.
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
