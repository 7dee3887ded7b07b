#include "platform/FileStatus.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quellora {

namespace {

qint64 modifiedTime(const struct stat &info)
{
#ifdef __APPLE__
    const timespec &time = info.st_mtimespec;
#else
    const timespec &time = info.st_mtim;
#endif
    return qint64{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

tl::unexpected<ReadFailure> failure(int error)
{
    using Kind = ReadFailure::Kind;
    // O_NOFOLLOW fails with ELOOP on a symbolic link.
    const Kind kind = error == ENOENT || error == ENOTDIR ? Kind::Nothing
                      : error == ELOOP || error == ENXIO  ? Kind::NotAFile
                                                          : Kind::Other;
    return tl::unexpected(ReadFailure{kind, qt_error_string(error)});
}

/// Closes the descriptor on destruction.
class OpenFile
{
public:
    explicit OpenFile(const QByteArray &path)
        : m_descriptor(::open(path.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK))
    {}
    ~OpenFile()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;

    int descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

} // namespace

FileStatus fileStatus(const QByteArray &path)
{
    using Kind = FileStatus::Kind;
    struct stat info = {};
    if (::lstat(path.constData(), &info) != 0)
        return {};
    const Kind kind = S_ISREG(info.st_mode)   ? Kind::File
                      : S_ISDIR(info.st_mode) ? Kind::Folder
                                              : Kind::Other;
    return {kind, modifiedTime(info)};
}

tl::expected<qint64, ReadFailure> readFileInto(const QByteArray &path, qint64 largest,
                                               qsizetype padding, QByteArray &buffer)
{
    const OpenFile file(path);
    struct stat info = {};
    if (file.descriptor() < 0 || ::fstat(file.descriptor(), &info) != 0)
        return failure(errno);
    if (!S_ISREG(info.st_mode))
        return tl::unexpected(ReadFailure{ReadFailure::Kind::NotAFile, {}});
    if (info.st_size > largest)
        return tl::unexpected(ReadFailure{ReadFailure::Kind::TooLarge, {}});
    if (buffer.size() < info.st_size + padding)
        buffer.resize(info.st_size + padding);
    qint64 size = 0;
    while (size < info.st_size) {
        const auto wanted = static_cast<size_t>(info.st_size - size);
        const ssize_t got = ::read(file.descriptor(), buffer.data() + size, wanted);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return failure(errno);
        if (got == 0)
            break;
        size += got;
    }
    return size;
}

} // namespace quellora
