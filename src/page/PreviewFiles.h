#pragma once

#include "history/CaptureSession.h"
#include "platform/PosixFiles.h"

#include <QString>

#include <optional>

namespace quellora {

/// Copies of a thread's screenshots in the temporary folder, so that a click on a thumbnail can
/// open one in the user's image viewer. A picture is written only when it is opened.
///
/// They lie in a folder of this object's own that only the user can enter. The folder is claimed
/// as long as the object lives, so that a later start can tell what a process left behind that was
/// killed. Everything but pathOf() blocks for the disk and belongs on one worker.
class PreviewFiles
{
public:
    /// @param temporaryDirectory folder below which everything is written
    explicit PreviewFiles(const QString &temporaryDirectory);

    /// Where the preview of a screenshot is, or would be. Callable from any thread.
    QString pathOf(const QUuid &threadId, qint64 index) const;
    /// Writes a preview unless it is there. False, after a log line, when the folder or the file
    /// cannot be written, or when the folder belongs to somebody else.
    bool write(const QString &path, const QByteArray &image);
    /// Removes the previews of a thread.
    void removeThread(const QUuid &threadId);
    /// Removes the preview of one screenshot.
    void removeScreenshot(const QUuid &threadId, qint64 index);
    /// Removes everything this object has written.
    void removeAll();

    /// Removes what processes wrote that are gone. Other files are left alone, and so are the
    /// folders of processes that are alive.
    static void removeAbandoned(const QString &temporaryDirectory);

private:
    QString claimFolder();

    QString m_temporaryDirectory;
    QString m_root;
    QString m_folder;
    std::optional<FolderClaim> m_claim;
};

} // namespace quellora
