#pragma once

#include "history/CaptureSessionStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <sys/stat.h>

namespace quellora {

inline const QDateTime t0 = QDateTime::fromString("2026-03-01T14:05:09.750Z", Qt::ISODateWithMs);

/// Two screenshots and one turn, not marked for persistence.
inline CaptureSession sample()
{
    CaptureSession session = CaptureSession::create(t0);
    session.addScreenshot("jpeg-0", t0, t0);
    session.addScreenshot("jpeg-1", t0.addSecs(1), t0.addSecs(1));
    session.addTurn("p", "r", t0.addSecs(2), t0.addSecs(2));
    return session;
}

/// sample(), entirely marked for persistence.
inline CaptureSession keptSample()
{
    CaptureSession session = sample();
    session.resumeTurnPersistingFromDisk();
    return session;
}

inline QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable");
}

inline void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("The test could not write a file");
}

/// Inode number, which changes when a file is replaced, even by one with the same content.
inline quint64 inodeOf(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_ino : 0;
}

inline int modeOf(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 0777 : -1;
}

/// A folder in memory if available, else the temporary folder.
inline QString fastFolder()
{
    const QFileInfo memory(QStringLiteral("/dev/shm"));
    return memory.isDir() && memory.isWritable() ? memory.filePath() : QDir::tempPath();
}

/// A store in a temporary folder.
struct StoreFixture
{
    explicit StoreFixture(std::shared_ptr<ThreadFiles> files = std::make_shared<DiskThreadFiles>(),
                          const QString &place = fastFolder())
        : support(place + QStringLiteral("/quellora-test-XXXXXX"))
        , store(support.path(), std::move(files))
    {}

    QTemporaryDir support;
    CaptureSessionStore store;

    QString folder(const QUuid &id) const
    {
        return support.filePath("Quellora/sessions/" + uuidText(id));
    }
    QString description(const QUuid &id) const { return folder(id) + "/session.json"; }
    QJsonObject json(const QUuid &id) const
    {
        return QJsonDocument::fromJson(contentOf(description(id))).object();
    }
    /// Sorted names of all entries in a thread's folder.
    QStringList names(const QUuid &id) const
    {
        return QDir(folder(id))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                       QDir::Name);
    }
};

/// @p loaded with the next screenshot number reset, ignoring numbers used by an interrupted save.
inline CaptureSession withoutReservedNumbers(CaptureSession loaded)
{
    loaded.nextScreenshotIndex = loaded.screenshots.size();
    return loaded;
}

/// @p session as load() returns it: dates in whole seconds, no cursors.
inline CaptureSession asStored(CaptureSession session)
{
    const auto wholeSeconds = [](QDateTime &date) {
        date = QDateTime::fromSecsSinceEpoch(date.toSecsSinceEpoch(), Qt::UTC);
    };
    session.notePersistenceCursor.reset();
    session.turnPersistenceCursor.reset();
    wholeSeconds(session.createdAt);
    wholeSeconds(session.updatedAt);
    for (auto &item : session.screenshots)
        wholeSeconds(item.capturedAt);
    for (auto &item : session.notes)
        wholeSeconds(item.createdAt);
    for (auto &item : session.turns)
        wholeSeconds(item.createdAt);
    return session;
}

} // namespace quellora
