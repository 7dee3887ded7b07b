#include "http/HttpConnection.h"

#include "base/Log.h"
#include "base/Text.h"
#include "http/Replies.h"
#include "store/Database.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/status.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <typeinfo>

namespace quellora::server {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using ErrorCode = boost::system::error_code;

constexpr std::size_t headPiece = 4U * 1024U;
constexpr std::size_t bodyPiece = 64U * 1024U;
/// How much of the requests after a stream is kept until the stream has ended.
constexpr std::size_t mostAhead = 16U * 1024U;
/// Larger buffers are given back once they are empty.
constexpr std::size_t keptBuffer = 4U * 1024U;
/// How long a client may take to close a connection that has ended.
constexpr std::chrono::seconds goodbye(2);
constexpr std::chrono::seconds overloadWait(1);
constexpr const char *commonFields = "X-Content-Type-Options: nosniff\r\n"
                                     "Referrer-Policy: same-origin\r\n"
                                     "Cross-Origin-Resource-Policy: same-origin\r\n";

/// A value that cannot end its line.
std::string oneLine(std::string value)
{
    std::replace_if(
        value.begin(), value.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; },
        ' ');
    return value;
}

std::string reasonOf(int status)
{
    const auto reason = http::obsolete_reason(static_cast<http::status>(status));
    return {reason.data(), reason.size()};
}

/// Whether a line of @p text ends without a carriage return.
bool hasBareLineFeed(std::string_view text)
{
    for (std::size_t at = text.find('\n'); at != std::string_view::npos;
         at = text.find('\n', at + 1)) {
        if (at == 0 || text[at - 1] != '\r')
            return true;
    }
    return false;
}

/// Whether a field of @p head goes on in the next line, which servers read differently.
bool hasFoldedField(std::string_view head)
{
    return head.find("\n ") != std::string_view::npos ||
           head.find("\n\t") != std::string_view::npos;
}

/// Runs the handler. What it throws becomes an error reply.
void handle(const Route &route, const Request &request, Response &response)
{
    std::string reason;
    try {
        route.handler(request, response);
        return;
    } catch (const DatabaseError &error) {
        reason = error.what();
    } catch (const std::exception &error) {
        reason = typeid(error).name();
    } catch (...) {
        reason = "not an exception object";
    }
    Log::event("[HttpConnection] ERROR: request failed: " + reason);
    response = Response();
    replyError(response, 500, "internal error");
}

void giveBack(std::string &buffer)
{
    buffer.clear();
    if (buffer.capacity() > keptBuffer)
        std::string().swap(buffer);
}

} // namespace

HttpConnection::HttpConnection(const HttpContext &context, EventLoop &loop, Socket socket,
                               std::function<void()> onClose)
    : m_context(context)
    , m_loop(loop)
    , m_socket(std::move(socket))
    , m_onClose(std::move(onClose))
    , m_timer(loop.context())
{}

HttpConnection::~HttpConnection() = default;

void HttpConnection::start()
{
    ErrorCode ignored;
    m_socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    m_socket.non_blocking(true, ignored);
    awaitRequest();
}

void HttpConnection::beginStop()
{
    m_closesAfterReply = true;
    if (m_phase == Phase::Idle)
        close();
}

void HttpConnection::endStream()
{
    m_endsStreams = true;
    if (m_stream)
        m_stream->serverStops();
}

void HttpConnection::close()
{
    if (m_phase == Phase::Closed)
        return;
    m_phase = Phase::Closed;
    m_timer.cancel();
    ErrorCode ignored;
    m_socket.close(ignored);
    if (const auto stream = std::move(m_stream))
        stream->clientGone();
    m_onClose();
}

void HttpConnection::closeSoon()
{
    asio::post(m_loop.context(), [self = shared_from_this()] { self->close(); });
}

void HttpConnection::awaitRequest()
{
    m_phase = Phase::Idle;
    setDeadline(m_context.limits.idle);
    if (m_in.empty())
        awaitBytes();
    else
        parse();
}

void HttpConnection::awaitBytes()
{
    if (m_waitsForBytes)
        return;
    m_waitsForBytes = true;
    m_socket.async_wait(Socket::wait_read, [self = shared_from_this()](const ErrorCode &error) {
        self->m_waitsForBytes = false;
        if (error)
            self->close();
        else
            self->onBytes();
    });
}

void HttpConnection::onBytes()
{
    // Bytes of later requests stay with the system until it is their turn.
    if (m_phase == Phase::Closed || m_phase == Phase::Handling || m_phase == Phase::Replying)
        return;
    const std::size_t before = m_in.size();
    m_in.resize(before +
                (m_phase == Phase::Body || m_phase == Phase::Lingering ? bodyPiece : headPiece));
    ErrorCode error;
    const std::size_t length =
        m_socket.read_some(asio::buffer(m_in.data() + before, m_in.size() - before), error);
    m_in.resize(before + length);
    if (error == asio::error::would_block) {
        awaitBytes();
        return;
    }
    if (error) {
        // Whoever has closed its half of the connection is gone, also while it waits for an answer.
        close();
        return;
    }
    if (m_phase == Phase::Lingering) {
        m_in.clear();
        awaitBytes();
    } else if (m_phase == Phase::Streaming) {
        if (m_in.size() < mostAhead)
            awaitBytes();
    } else {
        parse();
    }
}

void HttpConnection::parse()
{
    if (m_phase == Phase::Idle) {
        m_phase = Phase::Head;
        m_requestBegin = Steady::now();
        m_headBytes = 0;
        setDeadline(m_context.limits.head);
        m_parser = std::make_unique<Parser>();
        m_parser->header_limit(static_cast<std::uint32_t>(m_context.limits.headBytes));
        // Set once the route is known.
        m_parser->body_limit(std::numeric_limits<std::uint64_t>::max());
        m_parser->eager(false);
    }
    while (!m_in.empty()) {
        ErrorCode error;
        const std::size_t taken = m_parser->put(asio::buffer(m_in), error);
        const bool isFolded =
            m_phase == Phase::Head && hasFoldedField(std::string_view(m_in).substr(0, taken));
        m_in.erase(0, taken);
        if (m_phase == Phase::Body)
            m_bodyBytes += taken;
        // The parser's own limit holds for the part that it has not taken yet.
        if (m_phase == Phase::Head)
            m_headBytes += taken;
        const bool isHeadTooLong =
            m_phase == Phase::Head && m_headBytes + (m_parser->is_header_done() ? 0 : m_in.size()) >
                                          m_context.limits.headBytes;
        // What waits for more is the head, the size of a chunk or what follows the chunks.
        const bool isWaiting = error == http::error::need_more && !isHeadTooLong;
        const bool isUnreadable =
            isFolded ||
            (isWaiting && (hasBareLineFeed(m_in) || m_in.size() > m_context.limits.headBytes));
        if (isWaiting && !isUnreadable)
            break;
        if (isHeadTooLong || error == http::error::header_limit) {
            refuse(431, "the head of the request is too long", true);
            return;
        }
        if (error == http::error::body_limit) {
            refuse(413, "the body is too long", true);
            return;
        }
        if (error || isUnreadable) {
            refuse(400, "the request is malformed", true);
            return;
        }
        if (m_phase == Phase::Head && m_parser->is_header_done()) {
            onHead();
            if (m_phase != Phase::Body)
                return;
        }
        if (m_parser->is_done()) {
            dispatch();
            return;
        }
        if (taken == 0)
            break;
    }
    if (m_phase == Phase::Body)
        setDeadline(timeForBody());
    awaitBytes();
}

std::chrono::milliseconds HttpConnection::timeForBody() const
{
    using std::chrono::milliseconds;
    const HttpLimits &limits = m_context.limits;
    // A byte now and then does not keep the connection.
    const auto earned = limits.bodySilence + milliseconds(m_bodyBytes * 1000 / limits.bodyRate);
    const auto end = m_bodyBegin + std::min<milliseconds>(limits.body, earned);
    return std::clamp(std::chrono::duration_cast<milliseconds>(end - Steady::now()),
                      milliseconds(0), limits.bodySilence);
}

void HttpConnection::onHead()
{
    const auto &message = m_parser->get();
    const auto text = [](boost::beast::string_view view) { return std::string(view); };
    m_request = Request();
    m_request.method = text(message.method_string());
    const std::string target = text(message.target());
    const std::size_t query = std::min(target.find('?'), target.size());
    m_request.path = percentDecoded(target.substr(0, query));
    if (query < target.size())
        m_request.parameters = formFields(std::string_view(target).substr(query + 1));
    for (const auto &field : message)
        m_request.headers.add(text(field.name_string()), text(field.value()));
    ErrorCode ignored;
    const auto peer = m_socket.remote_endpoint(ignored);
    m_request.peerAddress = peer.address().to_string();
    m_request.peerPort = peer.port();
    m_request.localPort = m_socket.local_endpoint(ignored).port();
    m_requestId = LoggedRequest::idFor(m_request.header("X-Request-Id"));
    m_request.id = m_requestId;
    m_method = m_request.method;
    m_isHead = m_method == "HEAD";
    m_isHttp10 = message.version() == 10;
    m_closesAfterReply = m_closesAfterReply || m_isHttp10 || !message.keep_alive() ||
                         ++m_requests >= m_context.limits.requestsPerConnection;

    if (const auto status = refusalOfHead()) {
        refuse(*status, "the request is malformed", true);
        return;
    }
    m_route = m_context.router.find(m_request.method, m_request.path);
    const bool hasBody = m_parser->chunked() || m_parser->content_length().value_or(0) > 0;
    if (!m_route) {
        refuse(404, "HTTP 404", hasBody);
        return;
    }
    m_routeName = m_route->path;
    if (m_parser->content_length().value_or(0) > m_route->bodyLimit) {
        refuse(413, "the body is too long", true);
        return;
    }
    const std::string expected = lowered(m_request.header("Expect"));
    if (!expected.empty() && expected != "100-continue") {
        refuse(417, "HTTP 417", true);
        return;
    }
    m_phase = Phase::Body;
    m_bodyBegin = Steady::now();
    m_bodyBytes = 0;
    m_parser->body_limit(m_route->bodyLimit);
    m_parser->eager(true);
    if (!expected.empty() && !m_isHttp10 && !m_parser->is_done() && m_in.empty()) {
        m_out += "HTTP/1.1 100 Continue\r\n\r\n";
        flush();
    }
}

std::optional<int> HttpConnection::refusalOfHead() const
{
    const auto &message = m_parser->get();
    if (message.version() != 10 && message.version() != 11)
        return 505;
    // Two servers that read such heads differently take one's body for the other's next request.
    const std::size_t hosts = m_request.headers.count("Host");
    const std::size_t lengths = m_request.headers.count("Content-Length");
    const std::size_t encodings = m_request.headers.count("Transfer-Encoding");
    if (hosts > 1 || (hosts == 0 && !m_isHttp10) || lengths > 1 || (lengths > 0 && encodings > 0))
        return 400;
    // "3, 3" is a list to some and a number to others.
    if (m_request.header("Content-Length").find_first_not_of("0123456789") != std::string::npos)
        return 400;
    if (encodings > 0 && (encodings > 1 || m_isHttp10 ||
                          lowered(trimmed(m_request.header("Transfer-Encoding"))) != "chunked"))
        return 400;
    const bool hasControls = std::any_of(m_request.path.begin(), m_request.path.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
    });
    return hasControls ? std::optional(400) : std::nullopt;
}

void HttpConnection::dispatch()
{
    m_phase = Phase::Handling;
    m_deadline = Steady::time_point::max();
    m_request.body = std::move(m_parser->get().body());
    m_parser.reset();
    if (m_in.empty())
        giveBack(m_in);
    const Route &route = *m_route;
    if (route.lane == Lane::Immediate) {
        Response response;
        {
            const LoggedRequest scope(m_requestId);
            handle(route, m_request, response);
        }
        m_request = Request();
        onHandled(std::move(response));
        return;
    }
    WorkerPool &pool =
        route.lane == Lane::Passwords ? m_context.passwordWorkers : m_context.workers;
    // The job's copy of the reference must not be the last one, because sockets belong to the
    // loop.
    const auto held = std::make_shared<std::shared_ptr<HttpConnection>>(shared_from_this());
    const auto request = std::make_shared<Request>(std::move(m_request));
    const bool isTaken = pool.post([held, request, &route] {
        const LoggedRequest scope(request->id);
        const auto response = std::make_shared<Response>();
        handle(route, *request, *response);
        *request = Request();
        EventLoop &loop = (*held)->m_loop;
        loop.post([self = std::move(*held), response] { self->onHandled(std::move(*response)); });
    });
    if (isTaken)
        return;
    ++m_context.metrics.refusedForLoad;
    Response response;
    replyOverloaded(response, overloadWait);
    send(response);
}

void HttpConnection::onHandled(Response response)
{
    if (m_phase == Phase::Closed)
        return;
    if (!response.stream) {
        send(response);
        return;
    }
    m_phase = Phase::Streaming;
    m_stream = std::move(response.stream);
    if (m_in.size() < mostAhead)
        awaitBytes();
    const auto stream = m_stream;
    stream->start(*this, m_loop);
    // An end that came while the handler ran has not reached the stream.
    if (m_stream && m_endsStreams)
        stream->serverStops();
}

void HttpConnection::refuse(int status, const std::string &text, bool isLast)
{
    m_parser.reset();
    if (m_requestId.empty())
        m_requestId = LoggedRequest::idFor("");
    if (isLast) {
        m_closesAfterReply = true;
        m_lingersAfterReply = true;
        giveBack(m_in);
    }
    Response response;
    replyError(response, status, text);
    send(response);
}

void HttpConnection::send(const Response &response)
{
    m_phase = Phase::Replying;
    m_isEnded = true;
    m_out += head(response, "Content-Length: " + std::to_string(response.body.size()) + "\r\n");
    if (!m_isHead)
        m_out += response.body;
    count(response.status);
    flush();
}

std::string HttpConnection::head(const Response &response, const std::string &framing) const
{
    std::string text =
        "HTTP/1.1 " + std::to_string(response.status) + ' ' + reasonOf(response.status) + "\r\n";
    for (const auto &[name, value] : response.headers)
        text += name + ": " + oneLine(value) + "\r\n";
    text += commonFields;
    text += "X-Request-Id: " + m_requestId + "\r\n";
    if (m_closesAfterReply)
        text += "Connection: close\r\n";
    return text + framing + "\r\n";
}

void HttpConnection::count(int status)
{
    const std::string route = m_routeName.empty() ? "other" : m_routeName;
    m_context.metrics.requests.add({route, std::to_string(status)});
    const LoggedRequest logged(m_requestId);
    Log::request(m_method, route, status,
                 std::chrono::duration<double>(Steady::now() - m_requestBegin).count());
}

void HttpConnection::reply(Response response)
{
    if (m_phase != Phase::Streaming)
        return;
    // The stream is the caller.
    asio::post(m_loop.context(), [stream = std::move(m_stream)] {});
    send(response);
}

void HttpConnection::begin(const Response &response)
{
    if (m_phase != Phase::Streaming)
        return;
    m_isChunked = !m_isHttp10;
    m_out += head(response, m_isChunked ? "Transfer-Encoding: chunked\r\n" : "");
    count(response.status);
}

void HttpConnection::write(std::string_view bytes)
{
    if (m_phase != Phase::Streaming || bytes.empty())
        return;
    if (m_isChunked) {
        char size[24];
        std::snprintf(size, sizeof size, "%zx\r\n", bytes.size());
        m_out += size;
        m_out += bytes;
        m_out += "\r\n";
    } else {
        m_out += bytes;
    }
    flush();
    m_wasFull = m_wasFull || buffered() > 0;
}

void HttpConnection::finish()
{
    if (m_phase != Phase::Streaming)
        return;
    if (m_isChunked)
        m_out += "0\r\n\r\n";
    asio::post(m_loop.context(), [stream = std::move(m_stream)] {});
    m_phase = Phase::Replying;
    m_isEnded = true;
    flush();
}

void HttpConnection::flush()
{
    while (buffered() > 0 && !m_waitsForRoom) {
        ErrorCode error;
        m_written += m_socket.write_some(
            asio::buffer(m_out.data() + m_written, m_out.size() - m_written), error);
        if (error == asio::error::would_block) {
            m_waitsForRoom = true;
            setDeadline(m_context.limits.writeSilence);
            m_socket.async_wait(Socket::wait_write,
                                [self = shared_from_this()](const ErrorCode &failure) {
                                    self->m_waitsForRoom = false;
                                    if (self->m_phase == Phase::Closed)
                                        return;
                                    if (failure) {
                                        self->close();
                                    } else {
                                        self->flush();
                                        self->onRoom();
                                    }
                                });
        } else if (error) {
            giveBack(m_out);
            m_written = 0;
            closeSoon();
            return;
        }
    }
    if (buffered() > 0)
        return;
    giveBack(m_out);
    m_written = 0;
    if (m_phase == Phase::Streaming)
        m_deadline = Steady::time_point::max();
    if (m_phase == Phase::Replying && m_isEnded) {
        m_isEnded = false;
        asio::post(m_loop.context(), [self = shared_from_this()] { self->nextRequest(); });
    }
}

void HttpConnection::onRoom()
{
    if (m_phase != Phase::Streaming || !m_wasFull || buffered() > 0)
        return;
    m_wasFull = false;
    const auto stream = m_stream;
    stream->drained();
}

void HttpConnection::nextRequest()
{
    if (m_phase != Phase::Replying)
        return;
    m_method.clear();
    m_routeName.clear();
    m_requestId.clear();
    m_isHead = false;
    if (m_closesAfterReply)
        linger();
    else
        awaitRequest();
}

void HttpConnection::linger()
{
    // Closing while bytes of the client arrive would make the system discard the reply.
    m_phase = Phase::Lingering;
    ErrorCode error;
    m_socket.shutdown(Socket::shutdown_send, error);
    giveBack(m_in);
    setDeadline(m_lingersAfterReply
                    ? m_context.limits.linger
                    : std::min<std::chrono::milliseconds>(goodbye, m_context.limits.linger));
    if (error)
        close();
    else
        awaitBytes();
}

void HttpConnection::setDeadline(std::chrono::milliseconds time)
{
    m_deadline = Steady::now() + time;
    if (m_deadline < m_timerSetTo)
        watchDeadline();
}

void HttpConnection::watchDeadline()
{
    m_timerSetTo = m_deadline;
    m_timer.expires_at(m_deadline);
    m_timer.async_wait([self = shared_from_this()](const ErrorCode &error) {
        if (error || self->m_phase == Phase::Closed)
            return;
        self->m_timerSetTo = Steady::time_point::max();
        if (self->m_deadline == Steady::time_point::max())
            return;
        if (Steady::now() < self->m_deadline)
            self->watchDeadline();
        else
            self->onDeadline();
    });
}

void HttpConnection::onDeadline()
{
    m_deadline = Steady::time_point::max();
    if (m_phase == Phase::Head || m_phase == Phase::Body)
        refuse(408, "the request took too long", true);
    else
        close();
}

} // namespace quellora::server
