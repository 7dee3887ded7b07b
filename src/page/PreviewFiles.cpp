#include "page/PreviewFiles.h"

#include "base/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <unistd.h>

#include <utility>

namespace quellora {

namespace {

/// Prefix of each process's folder name; a UUID follows.
constexpr QLatin1StringView folderPrefix("process-");

QString rootIn(const QString &temporaryDirectory)
{
    return QDir(temporaryDirectory).filePath(QStringLiteral("quellora-thread-preview"));
}

/// Ensures that @p path is a folder that only this user can access; returns the problem otherwise.
/// The temporary folder is shared, so another user may have created the path first.
QString ensurePrivateDirectory(const QString &path)
{
    if (const QString problem = makePrivateFolder(path); !problem.isEmpty())
        return path + QStringLiteral(": ") + problem;
    const QFileInfo info(path);
    if (info.isSymLink() || !info.isDir())
        return path + QStringLiteral(": not a folder");
    if (info.ownerId() != ::geteuid())
        return path + QStringLiteral(": belongs to another user");
    if (!QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))
        return path + QStringLiteral(": permissions cannot be set");
    return {};
}

} // namespace

PreviewFiles::PreviewFiles(const QString &temporaryDirectory)
    : m_temporaryDirectory(temporaryDirectory)
    , m_root(rootIn(temporaryDirectory))
    , m_folder(m_root + QLatin1Char('/') + folderPrefix + uuidText(QUuid::createUuid()))
{}

QString PreviewFiles::pathOf(const QUuid &threadId, qint64 index) const
{
    return QStringLiteral("%1/%2/screenshot-%3.jpg").arg(m_folder, uuidText(threadId)).arg(index);
}

QString PreviewFiles::claimFolder()
{
    if (m_claim)
        return {};
    QDir().mkpath(m_temporaryDirectory);
    if (const QString problem = ensurePrivateDirectory(m_root); !problem.isEmpty())
        return problem;
    auto claim = FolderClaim::make(m_folder);
    if (!claim)
        return m_folder + QStringLiteral(": ") + claim.error();
    m_claim = *std::move(claim);
    return {};
}

bool PreviewFiles::write(const QString &path, const QByteArray &image)
{
    QString problem = claimFolder();
    if (problem.isEmpty())
        problem = ensurePrivateDirectory(QFileInfo(path).path());
    if (!problem.isEmpty()) {
        Log::event(QStringLiteral("[OverlayWindowController] ERROR: Could not create "
                                  "thread-preview temp dir: ") +
                   problem);
        return false;
    }
    if (QFile::exists(path))
        return true;
    // Written beside and renamed, so that an existing file is always complete.
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
        file.write(image) == image.size() && file.commit())
        return true;
    Log::event(QStringLiteral("[OverlayWindowController] ERROR: Could not write "
                              "thread-preview temp file: ") +
               file.errorString());
    return false;
}

void PreviewFiles::removeThread(const QUuid &threadId)
{
    if (m_claim)
        QDir(m_folder + QLatin1Char('/') + uuidText(threadId)).removeRecursively();
}

void PreviewFiles::removeScreenshot(const QUuid &threadId, qint64 index)
{
    if (m_claim)
        QFile::remove(pathOf(threadId, index));
}

void PreviewFiles::removeAll()
{
    if (!m_claim)
        return;
    QDir(m_folder).removeRecursively();
    m_claim.reset();
    // Fails while another process still has a folder in it, as intended.
    QDir().rmdir(m_root);
}

void PreviewFiles::removeAbandoned(const QString &temporaryDirectory)
{
    const QFileInfo root(rootIn(temporaryDirectory));
    if (root.isSymLink() || !root.isDir() || root.ownerId() != ::geteuid())
        return;
    const QStringList names =
        QDir(root.filePath())
            .entryList(QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot | QDir::NoSymLinks);
    for (const QString &name : names) {
        if (!name.startsWith(folderPrefix) || !uuidFromText(name.mid(folderPrefix.size())))
            continue;
        const QString folder = root.filePath() + QLatin1Char('/') + name;
        if (const auto claim = FolderClaim::takeOver(folder))
            QDir(folder).removeRecursively();
    }
    QDir().rmdir(root.filePath());
}

} // namespace quellora
