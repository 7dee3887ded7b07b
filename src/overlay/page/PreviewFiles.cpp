#include "overlay/page/PreviewFiles.h"

#include "app/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace quellora {

namespace {

constexpr QFile::Permissions ownerOnly = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;

/// Makes sure that @p path is a folder of this user that nobody else can look into; returns the
/// reason when it is not. The temporary folder is shared, so somebody else may have been there
/// first.
QString ensurePrivateDirectory(const QString &path)
{
    if (!QDir().mkdir(path, ownerOnly) && errno != EEXIST)
        return path + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(errno));
    const QFileInfo info(path);
    if (info.isSymLink() || !info.isDir())
        return path + QStringLiteral(": not a folder");
    if (info.ownerId() != ::geteuid())
        return path + QStringLiteral(": belongs to another user");
    if (!QFile::setPermissions(path, ownerOnly))
        return path + QStringLiteral(": permissions cannot be set");
    return {};
}

} // namespace

PreviewFiles::PreviewFiles(const QString &temporaryDirectory)
    : m_root(QDir(temporaryDirectory).filePath(QStringLiteral("quellora-thread-preview")))
{}

std::optional<QString> PreviewFiles::tempFileURL(const CaptureSession::Screenshot &screenshot,
                                                 const CaptureSession &session) const
{
    const QString directory = m_root + QLatin1Char('/') + uuidText(session.id);
    QDir().mkpath(QFileInfo(m_root).path());
    QString problem = ensurePrivateDirectory(m_root);
    if (problem.isEmpty())
        problem = ensurePrivateDirectory(directory);
    if (!problem.isEmpty()) {
        Log::event(QStringLiteral("[OverlayWindowController] ERROR: Could not create "
                                  "thread-preview temp dir: ") +
                   problem);
        return std::nullopt;
    }

    const QString path =
        QStringLiteral("%1/screenshot-%2.jpg").arg(directory).arg(screenshot.index);
    if (QFile::exists(path))
        return path;
    // Written beside and renamed, so that a file that is reused later is never half a picture.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(screenshot.imageData) < 0 ||
        !file.commit()) {
        Log::event(QStringLiteral("[OverlayWindowController] ERROR: Could not write "
                                  "thread-preview temp file: ") +
                   file.errorString());
        return std::nullopt;
    }
    return path;
}

} // namespace quellora
