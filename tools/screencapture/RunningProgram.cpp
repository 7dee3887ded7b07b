#include "RunningProgram.h"

#include "Sha256.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

namespace quellora::screencapture {

namespace {

/// Time between two parts of the answer; the user may have to answer the desktop's question first.
constexpr int answerSeconds = 150;
constexpr std::size_t maxHeader = 1024;
/// Pixels per side of the largest picture.
constexpr int maxSide = 32767;

tl::unexpected<Failure> unreadable(std::string message)
{
    return tl::unexpected(Failure{ExitStatus::ScreenUnreadable, std::move(message)});
}

std::string_view requestFor(Options::Area area)
{
    switch (area) {
    case Options::Area::PointedScreen:
        break;
    case Options::Area::AllScreens:
        return "picture-all\n";
    case Options::Area::FrontWindow:
        return "picture-window\n";
    }
    return "picture\n";
}

class Socket
{
public:
    explicit Socket(const std::string &path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.empty() || path.size() >= sizeof address.sun_path)
            return;
        std::memcpy(address.sun_path, path.data(), path.size());
        m_descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        m_isConnected = m_descriptor >= 0 &&
                        ::connect(m_descriptor, reinterpret_cast<const sockaddr *>(&address),
                                  sizeof address) == 0;
    }
    ~Socket()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    bool isConnected() const { return m_isConnected; }
    void limit(int seconds) const
    {
        const timeval time{seconds, 0};
        ::setsockopt(m_descriptor, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
        ::setsockopt(m_descriptor, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
    }
    bool send(std::string_view text) const
    {
        return ::send(m_descriptor, text.data(), text.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(text.size());
    }
    /// Fills @p target; false at the end of the stream and on an error.
    bool read(char *target, std::size_t count) const
    {
        while (count > 0) {
            const ssize_t got = ::read(m_descriptor, target, count);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return false;
            target += got;
            count -= static_cast<std::size_t>(got);
        }
        return true;
    }

private:
    int m_descriptor = -1;
    bool m_isConnected = false;
};

std::string variable(const char *name)
{
    const char *value = std::getenv(name);
    return value ? value : "";
}

/// "WIDTH HEIGHT" with positive numbers.
bool parseSize(std::string_view text, int &width, int &height)
{
    const auto number = [&text](int &value) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        return error == std::errc() && value > 0 && value <= maxSide;
    };
    if (!number(width) || text.empty() || text.front() != ' ')
        return false;
    text.remove_prefix(1);
    return number(height) && text.empty();
}

} // namespace

std::optional<std::string> waylandSession()
{
    std::string name = variable("WAYLAND_DISPLAY");
    const std::string folder = variable("XDG_RUNTIME_DIR");
    if (name.empty() || (folder.empty() && name.front() != '/'))
        return std::nullopt;
    if (!Socket(name.front() == '/' ? name : folder + '/' + name).isConnected())
        return std::nullopt;
    if (!folder.empty() && name.starts_with(folder + '/'))
        name.erase(0, folder.size() + 1);
    return name;
}

std::string runningProgramSocket(const std::string &session)
{
    const std::string folder = variable("XDG_RUNTIME_DIR");
    return folder.empty() ? std::string()
                          : folder + "/quellora-" + sha256(session).substr(0, 16) + ".socket";
}

std::optional<tl::expected<void, Failure>>
pictureFromProgram(const std::string &socketPath, Options::Area area,
                   const std::function<tl::expected<void, Failure>(const Canvas &)> &done)
{
    const Socket socket(socketPath);
    if (!socket.isConnected())
        return std::nullopt;
    socket.limit(answerSeconds);
    if (!socket.send(requestFor(area)))
        return unreadable("the running program does not answer");
    std::string header;
    for (char next = 0; socket.read(&next, 1) && next != '\n' && header.size() < maxHeader;)
        header += next;
    constexpr std::string_view refused = "refused: ";
    if (header.starts_with(refused))
        return unreadable(header.substr(refused.size()));
    constexpr std::string_view picture = "picture ";
    int width = 0;
    int height = 0;
    if (!header.starts_with(picture) ||
        !parseSize(std::string_view(header).substr(picture.size()), width, height))
        return unreadable("the running program does not take pictures");
    const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    std::vector<std::uint32_t> pixels(count);
    if (!socket.read(reinterpret_cast<char *>(pixels.data()), count * sizeof(std::uint32_t)))
        return unreadable("the picture of the running program is not complete");
    return done(Canvas{pixels.data(), Rect{0, 0, width, height}, static_cast<std::size_t>(width)});
}

} // namespace quellora::screencapture
