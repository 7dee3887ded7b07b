#include "export/ExportFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <algorithm>

namespace quellora {

namespace {

using Kind = ExportFailure::Kind;

tl::unexpected<ExportFailure> failure(Kind kind, const QString &text)
{
    return tl::unexpected(ExportFailure{kind, text});
}

tl::unexpected<ExportFailure> writeFailure(const QString &path, const QString &reason)
{
    return failure(
        Kind::Write,
        QStringLiteral("\"%1\" can't be written: %2").arg(QFileInfo(path).fileName(), reason));
}

/// Whether something has this name, a link that leads nowhere included.
bool isTaken(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

QString inAddress(const QString &name)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(name));
}

/// The n-th name to try: "name", "name-2", "name-3" …
QString numbered(const QString &name, int attempt)
{
    return attempt == 1 ? name : QStringLiteral("%1-%2").arg(name).arg(attempt);
}

/// A folder for the pictures: one that is there already, or a free name.
QString pictureFolder(const QString &path)
{
    const QFileInfo file(path);
    const QString name = file.completeBaseName() + QStringLiteral("-pictures");
    for (int attempt = 1;; ++attempt) {
        const QString folder = file.dir().filePath(numbered(name, attempt));
        if (QFileInfo(folder).isDir() || !isTaken(folder))
            return folder;
    }
}

bool holds(const QString &path, const QByteArray &content)
{
    const auto found = QFileInfo(path).size() == content.size()
                           ? readRegularFile(path)
                           : tl::expected<QByteArray, QString>(QByteArray());
    return found && *found == content;
}

} // namespace

QString ExportFiles::pictureSuffix(const QByteArray &picture)
{
    if (picture.startsWith("\x89PNG"))
        return QStringLiteral("png");
    if (picture.startsWith("RIFF") && picture.mid(8, 4) == "WEBP")
        return QStringLiteral("webp");
    return QStringLiteral("jpg");
}

ExportFiles::Result ExportFiles::check(const QString &path, Existing existing)
{
    const QFileInfo info(path);
    const QFileInfo folder(info.absolutePath());
    if (info.fileName().isEmpty() || info.isDir())
        return writeFailure(info.absoluteFilePath(), QStringLiteral("it is a folder"));
    if (!folder.exists())
        return writeFailure(
            path, QStringLiteral("the folder \"%1\" is not there").arg(folder.absoluteFilePath()));
    if (!folder.isDir())
        return writeFailure(
            path, QStringLiteral("\"%1\" is not a folder").arg(folder.absoluteFilePath()));
    if (existing == Existing::Keep && isTaken(path))
        return failure(Kind::Exists,
                       QStringLiteral("\"%1\" is there already").arg(info.fileName()));
    if (info.exists() && !info.isFile())
        return writeFailure(path, QStringLiteral("it is not a regular file"));
    return {};
}

tl::expected<void, QString> ExportFiles::replace(const QString &path,
                                                 const QByteArray &content) const
{
    const auto file = m_files.replacement(path);
    auto written = file->open();
    if (written)
        written = file->write(content);
    if (written)
        written = file->commit();
    return written;
}

ExportFiles::Result ExportFiles::write(const QString &path, Existing existing,
                                       const QByteArray &content) const
{
    if (auto possible = check(path, existing); !possible)
        return possible;
    const bool isNew = !isTaken(path);
    if (isNew) {
        // Takes the name, so that a file which another program creates meanwhile is not replaced.
        QFile place(path);
        if (!place.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
            if (isTaken(path) && existing == Existing::Keep)
                return check(path, existing);
            return writeFailure(path, place.errorString());
        }
    }
    if (auto written = replace(path, content); !written) {
        if (isNew)
            QFile::remove(path);
        return writeFailure(path, written.error());
    }
    m_files.syncFolder(QFileInfo(path).absolutePath());
    return {};
}

ExportFiles::Result ExportFiles::addPictures(const QString &folder,
                                             const QHash<qint64, QByteArray> &pictures,
                                             QHash<qint64, QString> &addresses,
                                             QStringList &added) const
{
    QList<qint64> numbers = pictures.keys();
    std::sort(numbers.begin(), numbers.end());
    for (const qint64 number : numbers) {
        const QByteArray &picture = pictures[number];
        for (int attempt = 1;; ++attempt) {
            const QString name =
                numbered(QStringLiteral("screenshot-%1").arg(number + 1), attempt) +
                QLatin1Char('.') + pictureSuffix(picture);
            const QString path = folder + QLatin1Char('/') + name;
            if (isTaken(path) && !holds(path, picture))
                continue;
            if (!isTaken(path)) {
                if (auto written = write(path, Existing::Keep, picture); !written)
                    return written;
                added.append(path);
            }
            addresses.insert(number,
                             inAddress(QFileInfo(folder).fileName()) + QLatin1Char('/') + name);
            break;
        }
    }
    return {};
}

ExportFiles::Result ExportFiles::writeWithPictures(const QString &path, Existing existing,
                                                   const QHash<qint64, QByteArray> &pictures,
                                                   const MakeText &text) const
{
    if (pictures.isEmpty())
        return write(path, existing, text({}));
    if (auto possible = check(path, existing); !possible)
        return possible;
    const QString folder = pictureFolder(path);
    const bool isNewFolder = !isTaken(folder);
    if (isNewFolder) {
        if (auto made = m_files.createFolder(folder); !made)
            return writeFailure(folder, made.error());
    }
    QHash<qint64, QString> addresses;
    QStringList added;
    auto written = addPictures(folder, pictures, addresses, added);
    if (written)
        written = write(path, existing, text(addresses));
    if (written)
        return {};
    for (const QString &file : added)
        QFile::remove(file);
    if (isNewFolder)
        QDir().rmdir(folder);
    return written;
}

} // namespace quellora
