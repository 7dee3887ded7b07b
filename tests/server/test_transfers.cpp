#include "model/EventLoop.h"
#include "model/Transfers.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace quellora::server {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// A port of this machine that nobody accepts connections on, unless its test does.
class Listener
{
public:
    explicit Listener(int backlog = 8) : m_socket(::socket(AF_INET, SOCK_STREAM, 0))
    {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof m_address;
        auto *address = reinterpret_cast<sockaddr *>(&m_address);
        EXPECT_EQ(::bind(m_socket, address, length), 0);
        EXPECT_EQ(::listen(m_socket, backlog), 0);
        ::getsockname(m_socket, address, &length);
    }
    ~Listener()
    {
        for (const int client : m_clients)
            ::close(client);
        ::close(m_socket);
    }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    std::string url(const std::string &scheme) const
    {
        return scheme + "://127.0.0.1:" + std::to_string(ntohs(m_address.sin_port)) + "/";
    }
    int accept() const { return ::accept(m_socket, nullptr, nullptr); }
    /// Connects until the system lets no further connection wait.
    void fill()
    {
        for (int i = 0; i < 16; ++i) {
            const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            m_clients.push_back(client);
            static_cast<void>(::connect(client, reinterpret_cast<const sockaddr *>(&m_address),
                                        sizeof m_address));
            pollfd ready = {client, POLLOUT, 0};
            if (::poll(&ready, 1, 200) == 0)
                return;
        }
        FAIL() << "every connection was taken";
    }

private:
    int m_socket;
    sockaddr_in m_address = {};
    std::vector<int> m_clients;
};

struct Receiver : TransferReceiver
{
    std::promise<TransferEnd> ended;

    void replyBegins(int, const Headers &) override {}
    bool replyGrows(std::string_view) override { return true; }
    void transferEnds(const TransferEnd &end) override { ended.set_value(end); }
};

class TransferPhases : public testing::Test
{
protected:
    TransferPhases()
    {
        request.connect = request.tls = request.firstByte = request.silence = seconds(60);
        request.body = std::make_shared<const std::string>("question");
    }
    /// The reason for which the transfer is given up as silent.
    std::string reason()
    {
        Receiver receiver;
        auto ended = receiver.ended.get_future();
        std::unique_ptr<Transfer> transfer;
        loop.postAndWait([&] { transfer = loop.transfers().start(request, receiver); });
        EXPECT_EQ(ended.wait_for(seconds(20)), std::future_status::ready);
        const TransferEnd end = ended.get();
        loop.postAndWait([&] { transfer.reset(); });
        EXPECT_EQ(end.kind, TransferEnd::Kind::Silent) << end.reason;
        return end.reason;
    }
    static std::string within(const std::string &what)
    {
        return "the transfer failed: " + what + " within the time allowed";
    }

    TransferRequest request;
    EventLoop loop;
};

TEST_F(TransferPhases, ConnectingHasItsOwnLimit)
{
    Listener listener(0);
    listener.fill();
    request.url = listener.url("http");
    request.connect = milliseconds(100);
    EXPECT_EQ(reason(), within("no connection"));
}

TEST_F(TransferPhases, EncryptionHasItsOwnLimit)
{
    const Listener listener;
    request.url = listener.url("https");
    request.tls = milliseconds(100);
    EXPECT_EQ(reason(), within("no encryption"));
}

TEST_F(TransferPhases, RequestThatIsNotTakenIsSilence)
{
    const Listener listener;
    request.url = listener.url("http");
    request.body = std::make_shared<const std::string>(std::string(64U << 20U, 'x'));
    request.silence = milliseconds(200);
    EXPECT_EQ(reason(), within("request not taken"));
}

TEST_F(TransferPhases, FirstByteHasItsOwnLimit)
{
    const Listener listener;
    request.url = listener.url("http");
    request.firstByte = milliseconds(100);
    EXPECT_EQ(reason(), within("no reply"));
    request.body = nullptr;
    EXPECT_EQ(reason(), within("no reply"));
}

TEST_F(TransferPhases, SilenceWithinTheReplyHasItsOwnLimit)
{
    const Listener listener;
    std::thread server([&] {
        const int connection = listener.accept();
        const std::string begin = "HTTP/1.1 200 OK\r\n";
        EXPECT_GT(::write(connection, begin.data(), begin.size()), 0);
        // Until the other side gives up.
        char byte = 0;
        while (::read(connection, &byte, 1) > 0) {
        }
        ::close(connection);
    });
    request.url = listener.url("http");
    request.silence = milliseconds(100);
    EXPECT_EQ(reason(), within("silence"));
    server.join();
}

} // namespace
} // namespace quellora::server
