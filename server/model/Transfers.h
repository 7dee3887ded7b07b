#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace boost::asio {
class io_context;
}

namespace quellora::server {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// What to ask an HTTP server for.
struct TransferRequest
{
    /// http or https.
    std::string url;
    Headers headers;
    /// The body of a POST; null for a GET. Released as soon as it has been sent.
    std::shared_ptr<const std::string> body;
    /// Longest time until the connection stands, name resolution included.
    std::chrono::milliseconds connect = std::chrono::seconds(5);
    /// Longest time for the encryption to be agreed on afterwards.
    std::chrono::milliseconds tls = std::chrono::seconds(5);
    /// Longest time from the end of the request to the first byte of the reply.
    std::chrono::milliseconds firstByte = std::chrono::seconds(60);
    /// Longest time without a byte while the request is sent, and between two bytes of the reply.
    std::chrono::milliseconds silence = std::chrono::seconds(60);
};

/// Why a transfer ended.
struct TransferEnd
{
    enum class Kind {
        /// The server's whole reply has arrived.
        Complete,
        /// The address cannot be used.
        Address,
        /// No connection: unknown host, nothing listening, no network.
        Unreachable,
        /// The server's certificate is not trusted.
        Certificate,
        /// No connection or no byte within the time allowed.
        Silent,
        /// The connection broke, or the reply is no HTTP.
        Interrupted,
        /// The receiver wanted no more.
        Refused
    };

    Kind kind = Kind::Interrupted;
    /// For the log. Holds nothing of the request and the reply.
    std::string reason = {};
};

/// Receives one reply, on the loop of the transfer. No call comes from inside start(), resume() or
/// the destructor of the transfer.
class TransferReceiver
{
public:
    virtual ~TransferReceiver() = default;
    /// Status and fields of the reply, once.
    virtual void replyBegins(int status, const Headers &headers) = 0;
    /// A piece of the body. False ends the transfer as Refused. The transfer may be paused here but
    /// not destroyed.
    virtual bool replyGrows(std::string_view bytes) = 0;
    /// The last call; the transfer may be destroyed in it.
    virtual void transferEnds(const TransferEnd &end) = 0;
};

/// A running transfer. To be used on its loop only. Its destruction ends it without a further call.
class Transfer
{
public:
    virtual ~Transfer() = default;
    /// Stops reading; the server is slowed down by the connection's flow control. The silence of a
    /// paused transfer is not measured.
    virtual void pause() = 0;
    virtual void resume() = 0;
};

/// Transfers from HTTP servers on one event loop, with connections that are kept for further
/// requests. Certificates are verified, redirects not followed. Proxies are taken from the
/// environment, but never for servers on this machine.
class Transfers
{
public:
    explicit Transfers(boost::asio::io_context &context);
    /// No transfer may be left.
    ~Transfers();
    Transfers(const Transfers &) = delete;
    Transfers &operator=(const Transfers &) = delete;

    /// Begins a transfer. The receiver must outlive it.
    std::unique_ptr<Transfer> start(TransferRequest request, TransferReceiver &receiver);

private:
    class Engine;
    std::shared_ptr<Engine> m_engine;
};

} // namespace quellora::server
