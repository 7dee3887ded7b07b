#include "platform/linux/PortalPicture.h"

#include "base/Log.h"

#include <QFile>
#include <QImageReader>
#include <QUrl>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quellora {
namespace {

QString openFailure()
{
    return QStringLiteral("The picture that the desktop has taken cannot be read");
}

QByteArray localPath(const QString &uri)
{
    const QUrl url(uri);
    return url.isLocalFile() ? QFile::encodeName(url.toLocalFile()) : QByteArray();
}

/// @return a descriptor of a regular file, or -1
int openRegular(const QByteArray &path, struct stat &status)
{
    if (path.isEmpty())
        return -1;
    // Does not wait for the other end of a pipe.
    const int descriptor =
        ::open(path.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0)
        return -1;
    if (::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))
        return descriptor;
    ::close(descriptor);
    return -1;
}

bool isOlder(const timespec &file, const timespec &request)
{
    return file.tv_sec != request.tv_sec ? file.tv_sec < request.tv_sec
                                         : file.tv_nsec < request.tv_nsec;
}

/// @param status of the opened file
void removeOwn(const QByteArray &path, const struct stat &status, const timespec &request)
{
    const auto keep = [](const char *why) {
        Log::event(QStringLiteral("[ScreenSource] WARNING: The desktop's picture file is kept: ") +
                   QLatin1StringView(why));
    };
    if (status.st_uid != ::geteuid())
        return keep("it belongs to another user");
    if (isOlder(status.st_mtim, request))
        return keep("it is older than the request");
    struct stat named = {};
    if (::lstat(path.constData(), &named) != 0 || named.st_dev != status.st_dev ||
        named.st_ino != status.st_ino)
        return keep("its name belongs to another file now");
    if (::unlink(path.constData()) != 0)
        keep("it cannot be removed");
}

} // namespace

timespec PortalPicture::now()
{
    timespec time = {};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &time);
    return time;
}

tl::expected<QImage, QString> PortalPicture::take(const QString &uri, const timespec &request)
{
    const QByteArray path = localPath(uri);
    struct stat status = {};
    const int descriptor = openRegular(path, status);
    if (descriptor < 0)
        return tl::unexpected(openFailure());
    // No longer than necessary: others may read the user's folder of pictures.
    removeOwn(path, status, request);
    QFile file;
    if (!file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(descriptor);
        return tl::unexpected(openFailure());
    }
    QImageReader reader(&file);
    QImage image = reader.read();
    if (image.isNull())
        return tl::unexpected(openFailure() + QStringLiteral(": ") + reader.errorString());
    return image;
}

void PortalPicture::discard(const QString &uri, const timespec &request)
{
    const QByteArray path = localPath(uri);
    struct stat status = {};
    const int descriptor = openRegular(path, status);
    if (descriptor < 0)
        return;
    removeOwn(path, status, request);
    ::close(descriptor);
}

} // namespace quellora
