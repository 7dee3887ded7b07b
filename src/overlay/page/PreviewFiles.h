#pragma once

#include "history/CaptureSession.h"

#include <QSet>
#include <QString>

#include <optional>

namespace quellora {

/// Copies of a thread's screenshots in the temporary folder, so that a click on a thumbnail can
/// open one in the user's image viewer. They are readable by the user only.
class PreviewFiles
{
public:
    /// @param temporaryDirectory folder below which everything is written
    explicit PreviewFiles(const QString &temporaryDirectory);

    /// Path of the preview file, written if it is not there yet. Nothing, after a log line, when
    /// the folder or the file cannot be written, or when the folder belongs to somebody else.
    /// Callable from any thread.
    std::optional<QString> tempFileURL(const CaptureSession::Screenshot &screenshot,
                                       const CaptureSession &session) const;

    /// Notes paths that a page was given. Main thread.
    void remember(const QSet<QString> &paths) { m_known.unite(paths); }
    /// Whether a page was given exactly this path. Main thread.
    bool isKnown(const QString &path) const { return m_known.contains(path); }

private:
    QString m_root;
    QSet<QString> m_known;
};

} // namespace quellora
