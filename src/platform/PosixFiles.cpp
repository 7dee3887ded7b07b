#include "platform/PosixFiles.h"

#include <QFile>

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quellora {

namespace {

/// Opens a folder without following symbolic links; -1 with errno set on failure.
int openFolder(const QString &path)
{
    return ::open(QFile::encodeName(path).constData(),
                  O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

/// Whether an open folder belongs to this user and is still the one at @p path.
bool isOwnFolder(int descriptor, const QString &path)
{
    struct stat opened = {};
    struct stat named = {};
    return ::fstat(descriptor, &opened) == 0 &&
           ::lstat(QFile::encodeName(path).constData(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino &&
           opened.st_uid == ::geteuid();
}

} // namespace

QString syncFileToDisk(int descriptor)
{
    while (::fsync(descriptor) != 0) {
        if (errno == EINTR)
            continue;
        const bool isUnsupported = errno == EINVAL || errno == ENOTSUP || errno == ENOSYS;
        return isUnsupported ? QString() : qt_error_string(errno);
    }
    return {};
}

void syncFolderToDisk(const QString &path)
{
    const int descriptor = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    syncFileToDisk(descriptor);
    ::close(descriptor);
}

QString makePrivateFolder(const QString &path)
{
    const bool exists =
        ::mkdir(QFile::encodeName(path).constData(), S_IRWXU) == 0 || errno == EEXIST;
    return exists ? QString() : qt_error_string(errno);
}

tl::expected<FolderClaim, QString> FolderClaim::make(const QString &path)
{
    // Another process may consider the folder abandoned and remove it before it is locked here.
    constexpr int attempts = 100;
    for (int i = 0; i < attempts; ++i) {
        if (const QString problem = makePrivateFolder(path); !problem.isEmpty())
            return tl::unexpected(problem);
        FolderClaim claim(openFolder(path));
        if (claim.m_descriptor < 0) {
            if (errno == ENOENT)
                continue;
            return tl::unexpected(qt_error_string(errno));
        }
        while (::flock(claim.m_descriptor, LOCK_EX) != 0) {
            if (errno != EINTR)
                return tl::unexpected(qt_error_string(errno));
        }
        if (isOwnFolder(claim.m_descriptor, path))
            return claim;
    }
    return tl::unexpected(QStringLiteral("the folder does not stay"));
}

std::optional<FolderClaim> FolderClaim::takeOver(const QString &path)
{
    FolderClaim claim(openFolder(path));
    if (claim.m_descriptor < 0 || ::flock(claim.m_descriptor, LOCK_EX | LOCK_NB) != 0 ||
        !isOwnFolder(claim.m_descriptor, path))
        return std::nullopt;
    return claim;
}

FolderClaim::FolderClaim(FolderClaim &&other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1))
{}

FolderClaim &FolderClaim::operator=(FolderClaim &&other) noexcept
{
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
}

FolderClaim::~FolderClaim()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

} // namespace quellora
