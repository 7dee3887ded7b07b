#pragma once

#include "http/HttpServer.h"
#include "http/ResponseStream.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quellora::server {

/// One connection of a client. Lives on one loop; all functions are called there. Requests that
/// are sent ahead wait until the ones before them are answered.
class HttpConnection : public std::enable_shared_from_this<HttpConnection>, private StreamOutput
{
public:
    using Socket = boost::asio::ip::tcp::socket;

    /// @p onClose is called once, when the connection is over.
    HttpConnection(const HttpContext &context, EventLoop &loop, Socket socket,
                   std::function<void()> onClose);
    ~HttpConnection() override;
    HttpConnection(const HttpConnection &) = delete;
    HttpConnection &operator=(const HttpConnection &) = delete;

    void start();
    /// Closes the connection when it is idle, else after the reply or stream that it is busy with.
    void beginStop();
    /// Tells its stream to end, or the one that the running handler attaches.
    void endStream();
    void close();

private:
    using Steady = std::chrono::steady_clock;
    using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;
    enum class Phase { Idle, Head, Body, Handling, Replying, Streaming, Lingering, Closed };

    // StreamOutput
    void reply(Response response) override;
    void begin(const Response &response) override;
    void write(std::string_view bytes) override;
    std::size_t buffered() const override { return m_out.size() - m_written; }
    void finish() override;

    void awaitRequest();
    void awaitBytes();
    void onBytes();
    /// Parses what has arrived.
    void parse();
    /// How long the next bytes of the body may take.
    std::chrono::milliseconds timeForBody() const;
    void onHead();
    /// Why the head just read is refused: a status, or nothing.
    std::optional<int> refusalOfHead() const;
    void dispatch();
    void onHandled(Response response);
    /// Replies without a handler. The connection is closed afterwards when @p isLast.
    void refuse(int status, const std::string &text, bool isLast);
    void send(const Response &response);
    std::string head(const Response &response, const std::string &framing) const;
    void flush();
    void onRoom();
    void nextRequest();
    void linger();
    void setDeadline(std::chrono::milliseconds time);
    void watchDeadline();
    void onDeadline();
    void closeSoon();
    void count(int status);

    const HttpContext &m_context;
    EventLoop &m_loop;
    Socket m_socket;
    std::function<void()> m_onClose;
    Phase m_phase = Phase::Idle;
    std::unique_ptr<Parser> m_parser;
    const Route *m_route = nullptr;
    Request m_request;
    std::string m_method;
    std::string m_routeName;
    Steady::time_point m_requestBegin;
    std::string m_requestId;
    std::string m_in;
    std::string m_out;
    std::size_t m_written = 0;
    std::size_t m_headBytes = 0;
    std::size_t m_bodyBytes = 0;
    bool m_waitsForBytes = false;
    bool m_waitsForRoom = false;
    bool m_isHead = false;
    bool m_isChunked = false;
    bool m_isHttp10 = false;
    bool m_closesAfterReply = false;
    bool m_lingersAfterReply = false;
    bool m_endsStreams = false;
    bool m_isEnded = false;
    bool m_wasFull = false;
    std::size_t m_requests = 0;
    std::shared_ptr<ResponseStream> m_stream;
    boost::asio::steady_timer m_timer;
    Steady::time_point m_deadline = Steady::time_point::max();
    Steady::time_point m_bodyBegin;
    Steady::time_point m_timerSetTo = Steady::time_point::max();
};

} // namespace quellora::server
