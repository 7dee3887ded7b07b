#include "history/CaptureSessionStore.h"

#include "history/SessionFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>

#include <filesystem>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

namespace quellora {

namespace {

using Kind = StoreError::Kind;

tl::unexpected<StoreError> fileError(const QUuid &id, const QString &path, const QString &reason)
{
    return tl::unexpected(
        StoreError{Kind::File, id, 0, path + QStringLiteral(": ") + reason, reason});
}

CaptureSessionStore::Result<void> replaceFile(ThreadFiles &files, const QUuid &id,
                                              const QString &path, const QByteArray &content)
{
    const auto file = files.replacement(path);
    auto written = file->open();
    if (written)
        written = file->write(content);
    if (written)
        written = file->commit();
    if (!written)
        return fileError(id, path, written.error());
    return {};
}

/// Whether a screenshot's file must be written. An existing file is never rewritten unless it is
/// not a regular file or holds only a prefix of the image, i.e. an earlier write was interrupted.
bool isImageMissing(const QString &path, const QByteArray &image)
{
    const QFileInfo info(path);
    if (info.isSymLink() || !info.isFile())
        return true;
    if (info.size() >= image.size())
        return false;
    const auto content = readRegularFile(path);
    return content && image.startsWith(*content);
}

/// Prefix of a deleted thread's folder until its files are removed.
const QString deletedPrefix = QStringLiteral(".deleted-");

std::string nativePath(const QString &path)
{
    return QFile::encodeName(path).toStdString();
}

/// Numbers of the screenshot files in a thread's folder.
QList<qint64> screenshotFilesIn(const QString &folder)
{
    static const QRegularExpression name(QStringLiteral("\\Ascreenshot-(-?\\d+)\\.png\\z"));
    QList<qint64> indices;
    const QStringList names =
        QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::NoSort);
    for (const QString &file : names) {
        const qint64 index = name.match(file).captured(1).toLongLong();
        if (file == CaptureSessionStore::screenshotFileName(index))
            indices.append(index);
    }
    return indices;
}

/// The number after the highest one used by the description or by files of an interrupted save.
qint64 freeScreenshotIndex(const SessionFile &file, const QString &folder)
{
    QList<qint64> taken = screenshotFilesIn(folder);
    for (const auto &screenshot : file.screenshots)
        taken.append(screenshot.index);
    for (const auto &turn : file.turns) {
        for (const auto &version : turn.versions()) {
            if (version.screenshot && version.screenshot->index)
                taken.append(*version.screenshot->index);
        }
    }
    qint64 index = 0;
    for (const qint64 other : std::as_const(taken)) {
        if (other >= index && other < std::numeric_limits<qint64>::max())
            index = other + 1;
    }
    return index;
}

CaptureSessionStore::Result<SessionFile> readDescription(const QUuid &id, const QString &path)
{
    if (!QFileInfo::exists(path))
        return tl::unexpected(StoreError{Kind::SessionNotFound, id, 0, {}});
    const auto content = readRegularFile(path);
    if (!content)
        return fileError(id, path, content.error());
    auto decoded = SessionFile::decode(*content);
    if (!decoded)
        return tl::unexpected(StoreError{Kind::Decoding, id, 0, decoded.error()});
    return *std::move(decoded);
}

} // namespace

QString StoreError::description() const
{
    switch (kind) {
    case Kind::SessionNotFound:
        return QStringLiteral("No saved session found for ") + uuidText(id);
    case Kind::NotPersisting:
        return QStringLiteral("save() called for ") + uuidText(id) +
               QStringLiteral(" but it was never marked for persistence (neither "
                              "beginPersistingNotes() nor beginPersistingTurns()/"
                              "resumeTurnPersistingFromDisk() was called)");
    case Kind::ScreenshotFileMissing:
        return QStringLiteral("Session %1 is missing screenshot-%2.png")
            .arg(uuidText(id), QString::number(screenshotIndex));
    case Kind::Decoding:
    case Kind::File:
        break;
    }
    return detail;
}

CaptureSessionStore::CaptureSessionStore(const QString &applicationSupport,
                                         std::shared_ptr<ThreadFiles> files)
    : m_root(applicationSupport + QStringLiteral("/Quellora/sessions")), m_files(std::move(files))
{}

CaptureSessionStore::Result<QString> CaptureSessionStore::sessionsRoot() const
{
    if (const auto made = m_files->createFolder(m_root); !made)
        return fileError({}, m_root, made.error());
    return m_root;
}

QString CaptureSessionStore::folderOf(const QUuid &id) const
{
    return m_root + QLatin1Char('/') + uuidText(id);
}

QString CaptureSessionStore::descriptionFileOf(const QUuid &id) const
{
    return folderOf(id) + QStringLiteral("/session.json");
}

QString CaptureSessionStore::screenshotFileName(qint64 index)
{
    return QStringLiteral("screenshot-%1.png").arg(index);
}

CaptureSessionStore::Result<void> CaptureSessionStore::save(const CaptureSession &session) const
{
    if (!session.isMarkedForPersistence() && !session.storedPart)
        return tl::unexpected(StoreError{Kind::NotPersisting, session.id, 0, {}});
    const CaptureSession::KeptPart kept = session.keptPart();
    if (kept.isEmpty() && !session.customTitle)
        return remove(session.id);
    const auto root = sessionsRoot();
    if (!root)
        return tl::unexpected(root.error());
    const QString folder = folderOf(session.id);
    if (const auto made = m_files->createFolder(folder); !made)
        return fileError(session.id, folder, made.error());
    m_files->removeLeftovers(folder);

    if (auto written = saveImages(session.id, kept.screenshots); !written)
        return written;

    SessionFile file;
    for (const auto &screenshot : kept.screenshots)
        file.screenshots.append({screenshot.index, screenshot.capturedAt});
    file.id = session.id;
    file.createdAt = session.createdAt;
    file.updatedAt = kept.updatedAt;
    file.notes = kept.notes;
    file.turns = kept.turns;
    file.customTitle = session.customTitle;
    auto saved = replaceFile(*m_files, session.id, descriptionFileOf(session.id), file.encode());
    if (!saved)
        return saved;
    // The description must be durable before images that the former one refers to are removed.
    m_files->syncFolder(folder);
    return removeOtherImages(session.id, kept.screenshots);
}

CaptureSessionStore::Result<void>
CaptureSessionStore::saveImages(const QUuid &id,
                                const QList<CaptureSession::Screenshot> &screenshots) const
{
    bool wroteAny = false;
    for (const auto &screenshot : screenshots) {
        const QString path = folderOf(id) + QLatin1Char('/') + screenshotFileName(screenshot.index);
        if (!isImageMissing(path, screenshot.imageData))
            continue;
        if (auto written = replaceFile(*m_files, id, path, screenshot.imageData); !written)
            return written;
        wroteAny = true;
    }
    // The images must be durable before the description that refers to them.
    if (wroteAny)
        m_files->syncFolder(folderOf(id));
    return {};
}

CaptureSessionStore::Result<void>
CaptureSessionStore::removeOtherImages(const QUuid &id,
                                       const QList<CaptureSession::Screenshot> &kept) const
{
    QSet<qint64> indices;
    for (const auto &screenshot : kept)
        indices.insert(screenshot.index);
    const QList<qint64> files = screenshotFilesIn(folderOf(id));
    for (const qint64 index : files) {
        if (indices.contains(index))
            continue;
        const QString path = folderOf(id) + QLatin1Char('/') + screenshotFileName(index);
        if (const auto removed = m_files->removeFile(path); !removed)
            return fileError(id, path, removed.error());
    }
    return {};
}

CaptureSessionStore::Result<CaptureSession> CaptureSessionStore::load(const QUuid &id) const
{
    const auto file = readDescription(id, descriptionFileOf(id));
    if (!file)
        return tl::unexpected(file.error());
    CaptureSession session;
    session.id = file->id;
    session.createdAt = file->createdAt;
    session.updatedAt = file->updatedAt;
    session.notes = file->notes;
    session.turns = file->turns;
    session.customTitle = file->customTitle;
    for (const auto &metadata : file->screenshots) {
        const auto image =
            readRegularFile(folderOf(id) + QLatin1Char('/') + screenshotFileName(metadata.index));
        if (!image)
            return tl::unexpected(StoreError{Kind::ScreenshotFileMissing, id, metadata.index, {}});
        session.screenshots.append({metadata.index, *image, metadata.capturedAt});
    }
    session.nextScreenshotIndex = freeScreenshotIndex(*file, folderOf(id));
    return session;
}

CaptureSessionStore::Result<QList<QUuid>> CaptureSessionStore::list() const
{
    const auto root = sessionsRoot();
    if (!root)
        return tl::unexpected(root.error());
    // Five times as fast as QDir, which would take half the time of a long listing before its first
    // thread is read.
    std::error_code error;
    std::filesystem::directory_iterator entry(nativePath(*root), error);
    QList<QUuid> ids;
    QStringList deleted;
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const QString text = QString::fromUtf8(name.data(), qsizetype(name.size()));
        if (const auto id = uuidFromText(text))
            ids.append(*id);
        else if (text.startsWith(deletedPrefix) && uuidFromText(text.mid(deletedPrefix.size())))
            deleted.append(text);
    }
    // Complete interrupted deletions.
    for (const QString &name : std::as_const(deleted))
        QDir(*root + QLatin1Char('/') + name).removeRecursively();
    if (error)
        return fileError({}, *root, QStringLiteral("the folder could not be read"));
    return ids;
}

CaptureSessionStore::Result<void> CaptureSessionStore::remove(const QUuid &id) const
{
    const QString folder = folderOf(id);
    const QFileInfo info(folder);
    if (info.isDir() && !info.isSymLink()) {
        return removeFolder(id);
    }
    // A file or a link in place of the folder: remove the link itself, not its target.
    if (QFile file(folder); (info.exists() || info.isSymLink()) && !file.remove())
        return fileError(id, folder, file.errorString());
    return {};
}

CaptureSessionStore::Result<void> CaptureSessionStore::removeFolder(const QUuid &id) const
{
    // Rename first, then delete file by file, so that the thread leaves the list atomically.
    const QString folder = folderOf(id);
    const QString deletedFolder = m_root + QLatin1Char('/') + deletedPrefix + uuidText(id);
    // What an interrupted deletion of an earlier thread with this id has left is in the way.
    QDir(deletedFolder).removeRecursively();
    std::error_code error;
    std::filesystem::rename(nativePath(folder), nativePath(deletedFolder), error);
    const auto failure = [&] {
        return fileError(id, folder, QString::fromLocal8Bit(error.message().c_str()));
    };
    if (error)
        return failure();
    std::filesystem::remove(nativePath(deletedFolder + QStringLiteral("/session.json")), error);
    if (error) {
        // Roll back if nothing can be deleted in the folder.
        std::error_code ignored;
        std::filesystem::rename(nativePath(deletedFolder), nativePath(folder), ignored);
        return failure();
    }
    m_files->syncFolder(m_root);
    QDir(deletedFolder).removeRecursively();
    return {};
}

CaptureSessionStore::Result<void>
CaptureSessionStore::updateTitle(const QUuid &id, const std::optional<QString> &customTitle) const
{
    auto file = readDescription(id, descriptionFileOf(id));
    if (!file)
        return tl::unexpected(file.error());
    file->customTitle = customTitle;
    auto saved = replaceFile(*m_files, id, descriptionFileOf(id), file->encode());
    if (saved)
        m_files->syncFolder(folderOf(id));
    return saved;
}

} // namespace quellora
