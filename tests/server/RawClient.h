#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace quellora::server {

/// A reply as it came over the wire.
struct RawReply
{
    /// 0 when the connection was closed instead.
    int status = 0;
    /// Lower case.
    std::string head;
    std::string body;

    bool has(const std::string &text) const { return head.find(text) != std::string::npos; }
    /// The value of a field.
    std::string field(const std::string &name) const
    {
        const std::size_t begin = head.find("\r\n" + name + ": ");
        if (begin == std::string::npos)
            return "";
        const std::size_t value = begin + name.size() + 4;
        return head.substr(value, head.find("\r\n", value) - value);
    }
};

/// A connection to this machine that sends and reads exactly what it is told.
class RawClient
{
public:
    /// @p receiveBuffer: bytes that the system takes for a client that does not read; 0 for its
    /// own choice.
    explicit RawClient(int port, int receiveBuffer = 0)
        : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        if (receiveBuffer > 0)
            ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        const timeval patience{20, 0};
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        m_isConnected =
            ::connect(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    }
    ~RawClient() { close(); }
    RawClient(RawClient &&other) noexcept
        : m_socket(std::exchange(other.m_socket, -1))
        , m_isConnected(other.m_isConnected)
        , m_arrived(std::move(other.m_arrived))
    {}
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;

    bool isConnected() const { return m_isConnected; }
    void close()
    {
        if (m_socket >= 0)
            ::close(std::exchange(m_socket, -1));
    }
    void endSending() const { ::shutdown(m_socket, SHUT_WR); }
    /// False when the server has closed the connection.
    bool send(std::string_view bytes) const
    {
        while (!bytes.empty()) {
            const ssize_t sent = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0)
                return false;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }
    /// Reads until @p text has arrived; false at the end of the connection.
    bool readUntil(const std::string &text)
    {
        while (m_arrived.find(text) == std::string::npos) {
            if (!more())
                return false;
        }
        return true;
    }
    /// Everything until the server closes the connection.
    std::string readAll()
    {
        while (more()) {
        }
        return std::exchange(m_arrived, {});
    }
    /// The next reply, with a body of Content-Length or in chunks.
    RawReply readReply(bool hasBody = true)
    {
        RawReply reply;
        if (!readUntil("\r\n\r\n"))
            return reply;
        reply.head = take(m_arrived.find("\r\n\r\n") + 4);
        reply.status = std::stoi(reply.head.substr(9, 3));
        std::transform(reply.head.begin(), reply.head.end(), reply.head.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (!hasBody || reply.status == 100)
            return reply;
        if (reply.has("transfer-encoding: chunked")) {
            std::size_t length = 1;
            while (length > 0 && readUntil("\r\n")) {
                length = std::stoul(take(m_arrived.find("\r\n") + 2), nullptr, 16);
                await(length + 2);
                reply.body += take(length + 2).substr(0, length);
            }
        } else {
            const std::string length = reply.field("content-length");
            await(length.empty() ? 0 : std::stoul(length));
            reply.body = take(length.empty() ? 0 : std::stoul(length));
        }
        return reply;
    }
    const std::string &arrived() const { return m_arrived; }

private:
    bool more()
    {
        char buffer[16384];
        const ssize_t length = ::recv(m_socket, buffer, sizeof buffer, 0);
        if (length > 0)
            m_arrived.append(buffer, static_cast<std::size_t>(length));
        return length > 0;
    }
    void await(std::size_t length)
    {
        while (m_arrived.size() < length && more()) {
        }
    }
    std::string take(std::size_t length)
    {
        std::string part = m_arrived.substr(0, length);
        m_arrived.erase(0, length);
        return part;
    }

    int m_socket;
    bool m_isConnected = false;
    std::string m_arrived;
};

} // namespace quellora::server
