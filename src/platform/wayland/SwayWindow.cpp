#include "platform/wayland/SwayWindow.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPromise>
#include <QThreadPool>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

namespace quellora {
namespace {

constexpr std::array<char, 6> magic{'i', '3', '-', 'i', 'p', 'c'};
constexpr quint32 getTree = 4;
constexpr int patienceSeconds = 1;
constexpr quint32 maxTree = 16 * 1024 * 1024;
/// Deepest nesting of windows that is followed.
constexpr int maxDepth = 64;

QString noWindow()
{
    return QStringLiteral("No window is in front");
}

QString noAnswer()
{
    return QStringLiteral("sway does not tell which window is in front");
}

/// A message's head: the magic bytes, the length of the body and the kind, in the machine's order.
struct Header
{
    std::array<char, 6> start = magic;
    std::array<char, 8> numbers{};

    Header() = default;
    Header(quint32 length, quint32 kind)
    {
        std::memcpy(numbers.data(), &length, sizeof length);
        std::memcpy(numbers.data() + sizeof length, &kind, sizeof kind);
    }
    quint32 length() const
    {
        quint32 value = 0;
        std::memcpy(&value, numbers.data(), sizeof value);
        return value;
    }
};
static_assert(sizeof(Header) == 14);

class Socket
{
public:
    explicit Socket(const QByteArray &path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.isEmpty() || static_cast<std::size_t>(path.size()) >= sizeof address.sun_path)
            return;
        std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
        m_descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (m_descriptor < 0)
            return;
        const timeval limit{patienceSeconds, 0};
        ::setsockopt(m_descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        ::setsockopt(m_descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        m_isConnected = ::connect(m_descriptor, reinterpret_cast<const sockaddr *>(&address),
                                  sizeof address) == 0;
    }
    ~Socket()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    bool send(const Header &header) const
    {
        return m_isConnected && ::send(m_descriptor, &header, sizeof header, MSG_NOSIGNAL) ==
                                    static_cast<ssize_t>(sizeof header);
    }
    bool read(void *target, std::size_t size) const
    {
        auto *bytes = static_cast<char *>(target);
        while (size > 0) {
            const ssize_t count = ::recv(m_descriptor, bytes, size, 0);
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                return false;
            bytes += count;
            size -= static_cast<std::size_t>(count);
        }
        return true;
    }

private:
    int m_descriptor = -1;
    bool m_isConnected = false;
};

SwayWindow::Place ask(const QString &path)
{
    const Socket socket(QFile::encodeName(path));
    Header header;
    if (!socket.send(Header(0, getTree)) || !socket.read(&header, sizeof header) ||
        header.start != magic || header.length() > maxTree)
        return tl::unexpected(noAnswer());
    QByteArray tree(static_cast<qsizetype>(header.length()), Qt::Uninitialized);
    if (!socket.read(tree.data(), static_cast<std::size_t>(tree.size())))
        return tl::unexpected(noAnswer());
    return SwayWindow::fromTree(tree);
}

/// The child that had the focus last; empty if there is none.
QJsonObject focusedChild(const QJsonObject &node)
{
    const QJsonValue id = node.value(u"focus").toArray().first();
    if (!id.isDouble())
        return {};
    for (const char *list : {"nodes", "floating_nodes"}) {
        const QJsonArray children = node.value(QLatin1StringView(list)).toArray();
        for (const QJsonValue &child : children) {
            if (child.toObject().value(u"id") == id)
                return child.toObject();
        }
    }
    return {};
}

} // namespace

QString SwayWindow::socketPath()
{
    return qEnvironmentVariable("SWAYSOCK");
}

QFuture<SwayWindow::Place> SwayWindow::find(const QString &socketPath)
{
    if (socketPath.isEmpty())
        return QtFuture::makeReadyFuture<Place>(tl::unexpected(
            QStringLiteral("This desktop does not tell programs which window is in front. Capture "
                           "a region instead")));
    const auto promise = std::make_shared<QPromise<Place>>();
    promise->start();
    QThreadPool::globalInstance()->start([promise, socketPath] {
        promise->addResult(ask(socketPath));
        promise->finish();
    });
    return promise->future();
}

SwayWindow::Place SwayWindow::fromTree(const QByteArray &tree)
{
    QJsonObject node = QJsonDocument::fromJson(tree).object();
    if (node.isEmpty())
        return tl::unexpected(noAnswer());
    for (int depth = 0; depth < maxDepth; ++depth) {
        const QJsonObject child = focusedChild(node);
        if (child.isEmpty())
            break;
        node = child;
    }
    // Only windows have a process.
    const QJsonObject rect = node.value(u"rect").toObject();
    const QRect place(rect.value(u"x").toInt(), rect.value(u"y").toInt(),
                      rect.value(u"width").toInt(), rect.value(u"height").toInt());
    if (!node.contains(u"pid") || place.isEmpty())
        return tl::unexpected(noWindow());
    return place;
}

} // namespace quellora
