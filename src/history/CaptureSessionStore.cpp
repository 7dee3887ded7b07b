#include "history/CaptureSessionStore.h"

#include "history/SessionFile.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>

#include <algorithm>

namespace quellora {

namespace {

using Kind = StoreError::Kind;

tl::unexpected<StoreError> fileError(const QUuid &id, const QString &path, const QString &reason)
{
    return tl::unexpected(StoreError{Kind::File, id, 0, path + QStringLiteral(": ") + reason});
}

CaptureSessionStore::Result<void> replaceFile(const QUuid &id, const QString &path,
                                              const QByteArray &content)
{
    QSaveFile file(path);
    file.setDirectWriteFallback(false);
    if (!file.open(QIODevice::WriteOnly))
        return fileError(id, path, file.errorString());
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (file.write(content) != content.size() || !file.commit())
        return fileError(id, path, file.errorString());
    return {};
}

/// The elements of @p list from @p start on; nothing when the start lies at or past the end.
template <typename T>
QList<T> from(const QList<T> &list, qint64 start)
{
    return list.mid(std::clamp<qint64>(start, 0, list.size()));
}

CaptureSessionStore::Result<SessionFile> readDescription(const QUuid &id, const QString &path)
{
    QFile file(path);
    if (!file.exists())
        return tl::unexpected(StoreError{Kind::SessionNotFound, id, 0, {}});
    if (!file.open(QIODevice::ReadOnly))
        return fileError(id, path, file.errorString());
    auto decoded = SessionFile::decode(file.readAll());
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

CaptureSessionStore::CaptureSessionStore(const QString &applicationSupport)
    : m_root(applicationSupport + QStringLiteral("/Quellora/sessions"))
{}

CaptureSessionStore::Result<QString> CaptureSessionStore::sessionsRoot() const
{
    if (!QDir().mkpath(m_root))
        return fileError({}, m_root, QStringLiteral("the folder could not be created"));
    // What people ask and see is nobody else's business.
    QFile::setPermissions(m_root,
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
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
    const auto &notes = session.notePersistenceCursor;
    const auto &turns = session.turnPersistenceCursor;
    if (!session.isMarkedForPersistence())
        return tl::unexpected(StoreError{Kind::NotPersisting, session.id, 0, {}});
    if (const auto root = sessionsRoot(); !root)
        return tl::unexpected(root.error());
    const QString folder = folderOf(session.id);
    if (!QDir().mkpath(folder))
        return fileError(session.id, folder, QStringLiteral("the folder could not be created"));

    const qint64 firstScreenshot =
        notes && turns ? std::min(notes->sinceScreenshotIndex, turns->sinceScreenshotIndex)
                       : (notes ? notes->sinceScreenshotIndex : turns->sinceScreenshotIndex);
    SessionFile file;
    for (const auto &screenshot : from(session.screenshots, firstScreenshot)) {
        const QString path = folder + QLatin1Char('/') + screenshotFileName(screenshot.index);
        // A screenshot never changes once it is written.
        if (!QFile::exists(path)) {
            if (auto written = replaceFile(session.id, path, screenshot.imageData); !written)
                return written;
        }
        file.screenshots.append({screenshot.index, screenshot.capturedAt});
    }
    file.id = session.id;
    file.createdAt = session.createdAt;
    file.updatedAt = session.updatedAt;
    if (notes)
        file.notes = from(session.notes, notes->sinceNoteIndex);
    if (turns)
        file.turns = from(session.turns, turns->sinceTurnIndex);
    file.customTitle = session.customTitle;
    return replaceFile(session.id, descriptionFileOf(session.id), file.encode());
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
        QFile image(folderOf(id) + QLatin1Char('/') + screenshotFileName(metadata.index));
        if (!image.open(QIODevice::ReadOnly)) {
            return tl::unexpected(StoreError{Kind::ScreenshotFileMissing, id, metadata.index, {}});
        }
        session.screenshots.append({metadata.index, image.readAll(), metadata.capturedAt});
    }
    return session;
}

CaptureSessionStore::Result<QList<QUuid>> CaptureSessionStore::list() const
{
    const auto root = sessionsRoot();
    if (!root)
        return tl::unexpected(root.error());
    const QDir folder(*root);
    if (!folder.isReadable())
        return fileError({}, *root, QStringLiteral("the folder could not be read"));
    QList<QUuid> ids;
    const QStringList names =
        folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QString &name : names) {
        constexpr qsizetype uuidLength = 36;
        const QUuid id(name.size() == uuidLength ? name : QString());
        if (!id.isNull())
            ids.append(id);
    }
    return ids;
}

CaptureSessionStore::Result<void> CaptureSessionStore::remove(const QUuid &id) const
{
    QDir folder(folderOf(id));
    if (folder.exists() && !folder.removeRecursively())
        return fileError(id, folder.path(), QStringLiteral("the folder could not be removed"));
    return {};
}

CaptureSessionStore::Result<void>
CaptureSessionStore::updateTitle(const QUuid &id, const std::optional<QString> &customTitle) const
{
    auto file = readDescription(id, descriptionFileOf(id));
    if (!file)
        return tl::unexpected(file.error());
    file->customTitle = customTitle;
    return replaceFile(id, descriptionFileOf(id), file->encode());
}

} // namespace quellora
