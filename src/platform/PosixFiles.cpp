#include "platform/PosixFiles.h"

#include <QFile>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quellora {

QString syncFileToDisk(int descriptor)
{
    while (::fsync(descriptor) != 0) {
        if (errno == EINTR)
            continue;
        const bool isUnknownThere = errno == EINVAL || errno == ENOTSUP || errno == ENOSYS;
        return isUnknownThere ? QString() : qt_error_string(errno);
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
    const bool isThere =
        ::mkdir(QFile::encodeName(path).constData(), S_IRWXU) == 0 || errno == EEXIST;
    return isThere ? QString() : qt_error_string(errno);
}

} // namespace quellora
