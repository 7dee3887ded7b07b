#pragma once

#include "history/CaptureSession.h"
#include "platform/PosixFiles.h"

#include <QString>

#include <optional>

namespace quellora {

/// Copies of a thread's screenshots in the temporary folder, so that a click on a thumbnail can
/// open one in the user's image viewer. A picture is written only when it is opened.
///
/// Each object has its own folder, which only the user can enter. The object holds a claim on the
/// folder while it exists, so that a later start recognises what a killed process left behind. All
/// functions but pathOf() block on the disk and must be called on one worker.
class PreviewFiles
{
public:
    /// @param temporaryDirectory folder below which everything is written
    explicit PreviewFiles(const QString &temporaryDirectory);

    /// Path of a screenshot's preview, whether it exists or not. Thread-safe.
    QString pathOf(const QUuid &threadId, qint64 index) const;
    /// Writes a preview unless it exists. Logs and returns false if the folder or the file cannot
    /// be written, or if the folder belongs to another user.
    bool write(const QString &path, const QByteArray &image);
    /// Removes the previews of a thread.
    void removeThread(const QUuid &threadId);
    /// Removes the preview of one screenshot.
    void removeScreenshot(const QUuid &threadId, qint64 index);
    /// Removes everything this object has written.
    void removeAll();

    /// Removes the folders of processes that no longer run. Everything else is left alone.
    static void removeAbandoned(const QString &temporaryDirectory);

private:
    QString claimFolder();

    QString m_temporaryDirectory;
    QString m_root;
    QString m_folder;
    std::optional<FolderClaim> m_claim;
};

} // namespace quellora
