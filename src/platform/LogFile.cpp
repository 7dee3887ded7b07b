#include "platform/LogFile.h"

#include <cerrno>
#include <memory>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quellora {
namespace {

constexpr auto fileName = "pipeline.log";
constexpr auto olderName = "pipeline.log.1";
constexpr int noDescriptor = -1;

/// Closes the descriptor on destruction unless take() was called.
class Descriptor
{
public:
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
    ~Descriptor()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return m_descriptor; }
    bool isOpen() const { return m_descriptor >= 0; }
    int take() { return std::exchange(m_descriptor, noDescriptor); }

private:
    int m_descriptor;
};

tl::unexpected<QString> failure(const QByteArray &what)
{
    const QString reason = qt_error_string(errno);
    return tl::unexpected(QStringLiteral("%1: %2").arg(QString::fromLocal8Bit(what), reason));
}

int openLog(int folder, int moreFlags = 0)
{
    // O_NONBLOCK: if the path is a pipe, open() must not wait for a reader.
    return ::openat(folder, fileName,
                    O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | moreFlags,
                    S_IRUSR | S_IWUSR);
}

int lock(int folder, int operation)
{
    int status = 0;
    do {
        status = ::flock(folder, operation);
    } while (status != 0 && errno == EINTR);
    return status;
}

/// Sets mode 0600 on a regular file and returns its size; nullopt with errno set on failure.
std::optional<qint64> privateSize(int file)
{
    struct stat info = {};
    if (file < 0 || ::fstat(file, &info) != 0)
        return std::nullopt;
    if (!S_ISREG(info.st_mode)) {
        errno = EINVAL;
        return std::nullopt;
    }
    if (::fchmod(file, S_IRUSR | S_IWUSR) != 0)
        return std::nullopt;
    return qint64{info.st_size};
}

} // namespace

tl::expected<LogFile, QString> LogFile::open(const QByteArray &home, qint64 largestKept)
{
    if (!home.startsWith('/'))
        return tl::unexpected(QStringLiteral("The user has no home folder"));
    QByteArray path = home;
    for (const char *part : {"/Library", "/Logs", "/Vantiro"}) {
        path += part;
        if (::mkdir(path.constData(), S_IRWXU) != 0 && errno != EEXIST)
            return failure(path);
    }
    Descriptor folder(::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    if (!folder.isOpen() || ::fchmod(folder.get(), S_IRWXU) != 0)
        return failure(path);

    // A running process holds the lock and writes to the file, so a second one must not rotate it.
    const bool isFirst = lock(folder.get(), LOCK_EX | LOCK_NB) == 0;
    if (!isFirst)
        lock(folder.get(), LOCK_SH);
    const QByteArray filePath = path + '/' + fileName;
    auto file = std::make_unique<Descriptor>(openLog(folder.get()));
    const std::optional<qint64> size = privateSize(file->get());
    if (!size)
        return failure(filePath);
    if (isFirst && *size > largestKept &&
        ::renameat(folder.get(), fileName, folder.get(), olderName) == 0) {
        file = std::make_unique<Descriptor>(openLog(folder.get(), O_EXCL));
        if (!file->isOpen())
            return failure(filePath);
    }
    if (isFirst)
        lock(folder.get(), LOCK_SH);
    return LogFile(folder.take(), file->take());
}

LogFile::LogFile(LogFile &&other) noexcept
    : m_folder(std::exchange(other.m_folder, noDescriptor))
    , m_file(std::exchange(other.m_file, noDescriptor))
{}

LogFile::~LogFile()
{
    for (const int descriptor : {m_file, m_folder}) {
        if (descriptor >= 0)
            ::close(descriptor);
    }
}

QString LogFile::redirect(int descriptor)
{
    if (::dup2(m_file, descriptor) < 0)
        return qt_error_string(errno);
    // Stays open so that the lock lasts until the process ends.
    m_folder = noDescriptor;
    return {};
}

bool LogFile::isDiscarded(int descriptor)
{
    struct stat info = {};
    if (::fstat(descriptor, &info) != 0)
        return errno == EBADF;
    struct stat null = {};
    return S_ISCHR(info.st_mode) && ::stat("/dev/null", &null) == 0 && S_ISCHR(null.st_mode) &&
           info.st_rdev == null.st_rdev;
}

QString LogFile::redirectIfDiscarded(int descriptor, const QByteArray &home)
{
    if (!isDiscarded(descriptor))
        return {};
    // open() reuses the lowest free descriptor, so occupy it first.
    if (const int null = ::open("/dev/null", O_RDWR); null >= 0 && null != descriptor) {
        ::dup2(null, descriptor);
        ::close(null);
    }
    auto log = open(home);
    return log ? log->redirect(descriptor) : log.error();
}

} // namespace quellora
