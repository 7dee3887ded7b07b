#include "history/ThreadFiles.h"

#include "platform/PosixFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

#include <filesystem>
#include <system_error>

namespace quellora {

namespace {

constexpr auto privateFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

/// Suffix of a file that is being written. QSaveFile on the final name would follow a symbolic
/// link there, and the random names that it may leave behind could match a user's own file
/// ("x.backup").
const QString unfinishedSuffix = QStringLiteral(".saving");

class DiskReplacement : public FileReplacement
{
public:
    explicit DiskReplacement(const QString &path) : m_path(path), m_file(path + unfinishedSuffix)
    {
        m_file.setDirectWriteFallback(false);
    }

    Result open() override
    {
        // Unbuffered, so that a write reports its failure and reason at once.
        if (!m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            return failure();
        m_file.setPermissions(privateFile);
        return {};
    }

    Result write(const QByteArray &content) override
    {
        // A full disk causes a short write first; only the next write reports the reason.
        for (qsizetype at = 0; at < content.size();) {
            const qint64 written = m_file.write(content.constData() + at, content.size() - at);
            if (written <= 0)
                return failure();
            at += written;
        }
        return {};
    }

    Result commit() override
    {
        // QSaveFile syncs too but ignores errors.
        if (const QString error = syncFileToDisk(m_file.handle()); !error.isEmpty())
            return tl::unexpected(error);
        if (!m_file.commit())
            return failure();
        std::error_code error;
        std::filesystem::rename(QFile::encodeName(m_file.fileName()).toStdString(),
                                QFile::encodeName(m_path).toStdString(), error);
        if (!error)
            return {};
        QFile::remove(m_file.fileName());
        return tl::unexpected(QString::fromLocal8Bit(error.message().c_str()));
    }

private:
    Result failure() const { return tl::unexpected(m_file.errorString()); }

    QString m_path;
    QSaveFile m_file;
};

} // namespace

ThreadFiles::Result DiskThreadFiles::createFolder(const QString &path)
{
    const QFileInfo info(path);
    if (info.isDir())
        return {};
    if (info.exists() || info.isSymLink())
        return tl::unexpected(QStringLiteral("something else is in the place of the folder"));
    if (const QString parent = info.absolutePath(); parent != path) {
        if (auto made = createFolder(parent); !made)
            return made;
    }
    if (const QString error = makePrivateFolder(path); !error.isEmpty())
        return tl::unexpected(error);
    syncFolder(info.absolutePath());
    return {};
}

std::unique_ptr<FileReplacement> DiskThreadFiles::replacement(const QString &path)
{
    return std::make_unique<DiskReplacement>(path);
}

ThreadFiles::Result DiskThreadFiles::removeFile(const QString &path)
{
    QFile file(path);
    if (!file.remove())
        return tl::unexpected(file.errorString());
    return {};
}

void DiskThreadFiles::syncFolder(const QString &path)
{
    syncFolderToDisk(path);
}

void DiskThreadFiles::removeLeftovers(const QString &folder)
{
    // QSaveFile appends six random letters while it writes.
    static const QRegularExpression leftover(
        QStringLiteral("\\A(session\\.json|screenshot--?\\d+\\.png)\\.saving(\\.[A-Za-z]{6})?\\z"));
    const QDir entries(folder);
    const QStringList names = entries.entryList(QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : names) {
        if (leftover.match(name).hasMatch())
            QFile::remove(entries.filePath(name));
    }
}

tl::expected<QByteArray, QString> readRegularFile(const QString &path)
{
    const QFileInfo info(path);
    if (info.isSymLink() || !info.isFile())
        return tl::unexpected(QStringLiteral("not a regular file"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return tl::unexpected(file.errorString());
    QByteArray content = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return tl::unexpected(file.errorString());
    return content;
}

} // namespace quellora
