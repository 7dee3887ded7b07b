#include "model/Transfers.h"

#include "base/Text.h"
#include "providers/UpstreamSettings.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <curl/curl.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace quellora::server {
namespace {

namespace asio = boost::asio;
using Steady = std::chrono::steady_clock;
using Kind = TransferEnd::Kind;

/// How much is read at once. A running answer keeps a buffer of this size.
constexpr long readBytes = 8 * 1024;
/// The library's least. A transfer keeps a buffer of this size until its end.
constexpr long uploadBytes = 16 * 1024;
constexpr std::size_t longestHead = 64U * 1024U;
constexpr long keptConnections = 64;

void initializeLibrary()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

TransferEnd endOf(CURLcode code, bool wasConnected)
{
    const std::string reason = std::string("the transfer failed: ") + curl_easy_strerror(code);
    switch (code) {
    case CURLE_OK:
        return {Kind::Complete};
    case CURLE_URL_MALFORMAT:
        return {Kind::Address, reason};
    case CURLE_UNSUPPORTED_PROTOCOL:
        // Also said of a peer that does not speak HTTP.
        return {wasConnected ? Kind::Interrupted : Kind::Address, reason};
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_CONNECT:
    case CURLE_SSL_CONNECT_ERROR:
        return {Kind::Unreachable, reason};
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
        return {Kind::Certificate, reason};
    case CURLE_OPERATION_TIMEDOUT:
        return {Kind::Silent, reason};
    default:
        return {Kind::Interrupted, reason};
    }
}

/// Whether @p socket has a peer on the network. The library also reads from a pipe to its resolver.
bool isConnected(curl_socket_t socket)
{
    sockaddr_storage peer = {};
    socklen_t length = sizeof peer;
    return ::getpeername(socket, reinterpret_cast<sockaddr *>(&peer), &length) == 0 &&
           (peer.ss_family == AF_INET || peer.ss_family == AF_INET6);
}

/// A line "name: value" for the library.
std::string headerLine(const std::string &name, const std::string &value)
{
    // The library leaves out fields that end with a colon.
    return value.empty() ? name + ";" : name + ": " + value;
}

bool isOneLine(const std::string &text)
{
    return text.find_first_of(std::string("\r\n\0", 3)) == std::string::npos;
}

} // namespace

/// Drives the library's transfers with the sockets and timers of one loop.
class Transfers::Engine : public std::enable_shared_from_this<Engine>
{
public:
    explicit Engine(asio::io_context &context)
        : m_context(context), m_multi(curl_multi_init()), m_timer(context)
    {
        curl_multi_setopt(m_multi, CURLMOPT_SOCKETFUNCTION, &Engine::onSocket);
        curl_multi_setopt(m_multi, CURLMOPT_SOCKETDATA, this);
        curl_multi_setopt(m_multi, CURLMOPT_TIMERFUNCTION, &Engine::onTimer);
        curl_multi_setopt(m_multi, CURLMOPT_TIMERDATA, this);
        curl_multi_setopt(m_multi, CURLMOPT_MAXCONNECTS, keptConnections);
    }
    ~Engine() { curl_multi_cleanup(m_multi); }
    Engine(const Engine &) = delete;
    Engine &operator=(const Engine &) = delete;

    asio::io_context &context() { return m_context; }
    bool add(CURL *easy) { return curl_multi_add_handle(m_multi, easy) == CURLM_OK; }
    void remove(CURL *easy) { curl_multi_remove_handle(m_multi, easy); }

private:
    /// A socket that the library wants to be told about.
    struct Watched
    {
        asio::posix::stream_descriptor descriptor;
        int wanted = CURL_POLL_NONE;
        bool waitsForRead = false;
        bool waitsForWrite = false;

        explicit Watched(asio::io_context &context) : descriptor(context) {}
    };

    static int onSocket(CURL *easy, curl_socket_t socket, int what, void *engine, void *);

    static int onTimer(CURLM *, long milliseconds, void *engine)
    {
        static_cast<Engine *>(engine)->wakeIn(milliseconds);
        return 0;
    }

    void watch(curl_socket_t socket, int what)
    {
        auto found = m_watched.find(socket);
        if (what == CURL_POLL_REMOVE) {
            if (found == m_watched.end())
                return;
            found->second->wanted = CURL_POLL_NONE;
            // The library closes its sockets itself.
            found->second->descriptor.release();
            m_watched.erase(found);
            return;
        }
        if (found == m_watched.end()) {
            auto fresh = std::make_shared<Watched>(m_context);
            boost::system::error_code ignored;
            fresh->descriptor.assign(socket, ignored);
            found = m_watched.emplace(socket, std::move(fresh)).first;
        }
        found->second->wanted = what;
        wait(socket, found->second);
    }

    void wait(curl_socket_t socket, const std::shared_ptr<Watched> &watched)
    {
        using Descriptor = asio::posix::stream_descriptor;
        if ((watched->wanted & CURL_POLL_IN) != 0 && !watched->waitsForRead) {
            watched->waitsForRead = true;
            watched->descriptor.async_wait(
                Descriptor::wait_read,
                [weak = weak_from_this(), socket, watched](const boost::system::error_code &error) {
                    watched->waitsForRead = false;
                    if (const auto engine = weak.lock(); engine && !error)
                        engine->act(socket, watched, CURL_POLL_IN, CURL_CSELECT_IN);
                });
        }
        if ((watched->wanted & CURL_POLL_OUT) != 0 && !watched->waitsForWrite) {
            watched->waitsForWrite = true;
            watched->descriptor.async_wait(
                Descriptor::wait_write,
                [weak = weak_from_this(), socket, watched](const boost::system::error_code &error) {
                    watched->waitsForWrite = false;
                    if (const auto engine = weak.lock(); engine && !error)
                        engine->act(socket, watched, CURL_POLL_OUT, CURL_CSELECT_OUT);
                });
        }
    }

    void act(curl_socket_t socket, const std::shared_ptr<Watched> &watched, int wanted, int event)
    {
        if ((watched->wanted & wanted) == 0)
            return;
        int running = 0;
        curl_multi_socket_action(m_multi, socket, event, &running);
        reportEnds();
        if (watched->wanted != CURL_POLL_NONE)
            wait(socket, watched);
    }

    void wakeIn(long milliseconds)
    {
        m_timer.cancel();
        if (milliseconds < 0)
            return;
        m_timer.expires_after(std::chrono::milliseconds(milliseconds));
        m_timer.async_wait([weak = weak_from_this()](const boost::system::error_code &error) {
            const auto engine = weak.lock();
            if (error || !engine)
                return;
            int running = 0;
            curl_multi_socket_action(engine->m_multi, CURL_SOCKET_TIMEOUT, 0, &running);
            engine->reportEnds();
        });
    }

    void reportEnds();

    asio::io_context &m_context;
    CURLM *m_multi;
    asio::steady_timer m_timer;
    std::unordered_map<curl_socket_t, std::shared_ptr<Watched>> m_watched;

    friend class Transfers;
    class Running;
};

/// One transfer.
class Transfers::Engine::Running : public Transfer, public std::enable_shared_from_this<Running>
{
public:
    Running(std::shared_ptr<Engine> engine, TransferRequest request, TransferReceiver &receiver)
        : m_engine(std::move(engine))
        , m_receiver(&receiver)
        , m_limits{request.connect, request.tls, request.firstByte, request.silence}
        , m_body(std::move(request.body))
        , m_easy(curl_easy_init())
        , m_phaseTimer(m_engine->context())
    {
        configure(request);
    }

    ~Running() override
    {
        leave();
        curl_slist_free_all(m_fields);
        curl_easy_cleanup(m_easy);
    }

    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;

    void begin()
    {
        m_begin = m_lastByte = Steady::now();
        m_isAdded = m_isUsable && m_engine->add(m_easy);
        if (!m_isAdded) {
            asio::post(m_engine->context(), [weak = weak_from_this()] {
                if (const auto self = weak.lock())
                    self->end({Kind::Address, "the address cannot be used"});
            });
            return;
        }
        watchPhase();
    }

    /// Ends the transfer without a further call to the receiver.
    void abandon()
    {
        m_receiver = nullptr;
        leave();
    }

    void pause() override
    {
        if (m_isPaused || !m_isAdded)
            return;
        m_isPaused = true;
        curl_easy_pause(m_easy, CURLPAUSE_RECV);
    }

    void resume() override
    {
        if (!m_isPaused)
            return;
        m_isPaused = false;
        m_lastByte = Steady::now();
        // The library may deliver what it has kept from inside the call.
        asio::post(m_engine->context(), [weak = weak_from_this()] {
            const auto self = weak.lock();
            if (self && self->m_isAdded && !self->m_isPaused)
                curl_easy_pause(self->m_easy, CURLPAUSE_CONT);
        });
    }

    void connected()
    {
        if (m_connected)
            return;
        m_connected = m_lastByte = Steady::now();
        watchPhase();
    }

    void finished(CURLcode code)
    {
        if (m_wasRefused) {
            end({Kind::Refused});
            return;
        }
        curl_off_t connected = 0;
        curl_easy_getinfo(m_easy, CURLINFO_CONNECT_TIME_T, &connected);
        end(endOf(code, connected > 0 || m_status > 0));
    }

private:
    template <typename Value>
    void set(CURLoption option, Value value)
    {
        curl_easy_setopt(m_easy, option, value);
    }

    void configure(const TransferRequest &request)
    {
        set(CURLOPT_PRIVATE, static_cast<void *>(this));
        m_isUsable = isOneLine(request.url) &&
                     curl_easy_setopt(m_easy, CURLOPT_URL, request.url.c_str()) == CURLE_OK;
        for (const auto &[name, value] : request.headers) {
            m_isUsable = m_isUsable && isOneLine(name) && isOneLine(value);
            m_fields = curl_slist_append(m_fields, headerLine(name, value).c_str());
        }
        set(CURLOPT_PROTOCOLS_STR, "http,https");
        set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        set(CURLOPT_FOLLOWLOCATION, 0L);
        set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
        set(CURLOPT_NOSIGNAL, 1L);
        // Without this, giving up a name that is being resolved waits for the resolver.
        set(CURLOPT_QUICK_EXIT, 1L);
        // Covers both phases, which the timer tells apart.
        set<long>(CURLOPT_CONNECTTIMEOUT_MS, (request.connect + request.tls).count());
        set(CURLOPT_BUFFERSIZE, readBytes);
        set(CURLOPT_UPLOAD_BUFFERSIZE, uploadBytes);
        if (isLoopbackHost(hostOfUrl(request.url)))
            set(CURLOPT_NOPROXY, "*");
        if (const char *file = std::getenv("SSL_CERT_FILE"); file && *file)
            set(CURLOPT_CAINFO, file);
        set(CURLOPT_HEADERFUNCTION, &Running::onHeader);
        set(CURLOPT_HEADERDATA, static_cast<void *>(this));
        set(CURLOPT_WRITEFUNCTION, &Running::onBody);
        set(CURLOPT_WRITEDATA, static_cast<void *>(this));
        if (m_body) {
            set(CURLOPT_POST, 1L);
            set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_body->size()));
            set(CURLOPT_READFUNCTION, &Running::onUpload);
            set(CURLOPT_READDATA, static_cast<void *>(this));
            set(CURLOPT_SEEKFUNCTION, &Running::onSeek);
            set(CURLOPT_SEEKDATA, static_cast<void *>(this));
            m_fields = curl_slist_append(m_fields, "Expect:");
        }
        set(CURLOPT_HTTPHEADER, m_fields);
    }

    /// What a transfer is waiting for.
    enum class Phase { Connecting, Securing, Sending, Answering, Receiving };

    struct Limits
    {
        std::chrono::milliseconds connect;
        std::chrono::milliseconds tls;
        std::chrono::milliseconds firstByte;
        std::chrono::milliseconds silence;
    };

    Phase phase() const
    {
        if (m_headBytes > 0)
            return Phase::Receiving;
        if (m_body && m_sent > 0)
            return m_sent == m_body->size() ? Phase::Answering : Phase::Sending;
        curl_off_t untilRequest = 0;
        curl_easy_getinfo(m_easy, CURLINFO_PRETRANSFER_TIME_T, &untilRequest);
        if (untilRequest > 0)
            return m_body ? Phase::Sending : Phase::Answering;
        return m_connected ? Phase::Securing : Phase::Connecting;
    }

    Steady::time_point deadlineOf(Phase phase) const
    {
        switch (phase) {
        case Phase::Connecting:
            return m_begin + m_limits.connect;
        case Phase::Securing:
            return *m_connected + m_limits.tls;
        case Phase::Answering:
            return m_lastByte + m_limits.firstByte;
        case Phase::Sending:
        case Phase::Receiving:
            break;
        }
        return m_lastByte + m_limits.silence;
    }

    static std::string reasonOf(Phase phase)
    {
        static constexpr std::array names = {"no connection", "no encryption", "request not taken",
                                             "no reply", "silence"};
        return std::string("the transfer failed: ") + names.at(static_cast<std::size_t>(phase)) +
               " within the time allowed";
    }

    /// Sets the timer for the current phase. To be called when another one has begun.
    void watchPhase()
    {
        m_phaseTimer.expires_at(deadlineOf(phase()));
        m_phaseTimer.async_wait([weak = weak_from_this()](const auto &error) {
            const auto self = weak.lock();
            if (error || !self || !self->m_isAdded)
                return;
            if (self->m_isPaused)
                self->m_lastByte = Steady::now();
            const Phase phase = self->phase();
            if (Steady::now() < self->deadlineOf(phase))
                self->watchPhase();
            else
                self->end({Kind::Silent, reasonOf(phase)});
        });
    }

    void leave()
    {
        if (!m_isAdded)
            return;
        m_isAdded = false;
        m_phaseTimer.cancel();
        m_engine->remove(m_easy);
        m_body.reset();
    }

    void end(const TransferEnd &how)
    {
        const auto self = shared_from_this();
        leave();
        if (TransferReceiver *receiver = std::exchange(m_receiver, nullptr))
            receiver->transferEnds(how);
    }

    static std::size_t onHeader(char *data, std::size_t, std::size_t length, void *running)
    {
        return static_cast<Running *>(running)->takeHeader({data, length}) ? length : 0;
    }

    static std::size_t onBody(char *data, std::size_t, std::size_t length, void *running)
    {
        return static_cast<Running *>(running)->takeBody({data, length}) ? length : 0;
    }

    static std::size_t onUpload(char *buffer, std::size_t, std::size_t room, void *running)
    {
        return static_cast<Running *>(running)->giveBody(buffer, room);
    }

    static int onSeek(void *running, curl_off_t offset, int)
    {
        auto *self = static_cast<Running *>(running);
        if (!self->m_body)
            return CURL_SEEKFUNC_FAIL;
        // Begins anew on another connection.
        self->m_sent = static_cast<std::size_t>(offset);
        self->m_begin = Steady::now();
        self->m_connected.reset();
        return CURL_SEEKFUNC_OK;
    }

    bool takeHeader(std::string_view line)
    {
        m_lastByte = Steady::now();
        const bool isFirst = m_headBytes == 0;
        m_headBytes += line.size();
        if (isFirst)
            watchPhase();
        if (m_headBytes > longestHead)
            return false;
        if (line.rfind("HTTP/", 0) == 0) {
            m_replyFields.clear();
            return true;
        }
        const std::size_t colon = line.find(':');
        if (colon != std::string_view::npos) {
            m_replyFields.emplace_back(lowered(line.substr(0, colon)),
                                       trimmed(line.substr(colon + 1)));
            return true;
        }
        long status = 0;
        curl_easy_getinfo(m_easy, CURLINFO_RESPONSE_CODE, &status);
        // Fields that follow a chunked body have no meaning here.
        if (!trimmed(line).empty() || status < 200 || m_status > 0)
            return true;
        m_status = static_cast<int>(status);
        releaseBody();
        if (m_receiver)
            m_receiver->replyBegins(m_status, m_replyFields);
        Headers().swap(m_replyFields);
        return true;
    }

    bool takeBody(std::string_view bytes)
    {
        m_lastByte = Steady::now();
        m_wasRefused = !m_receiver || !m_receiver->replyGrows(bytes);
        return !m_wasRefused;
    }

    std::size_t giveBody(char *buffer, std::size_t room)
    {
        m_lastByte = Steady::now();
        if (!m_body)
            return 0;
        const std::size_t length = std::min(room, m_body->size() - m_sent);
        std::copy_n(m_body->data() + m_sent, length, buffer);
        m_sent += length;
        releaseBody();
        if (m_sent == length || (m_body && m_sent == m_body->size()))
            watchPhase();
        return length;
    }

    /// Before the reply begins the body may be needed again: a kept connection may turn out to be
    /// closed.
    void releaseBody()
    {
        if (m_body && m_status > 0 && m_sent == m_body->size())
            m_body.reset();
    }

    std::shared_ptr<Engine> m_engine;
    TransferReceiver *m_receiver;
    Limits m_limits;
    std::shared_ptr<const std::string> m_body;
    std::size_t m_sent = 0;
    CURL *m_easy;
    curl_slist *m_fields = nullptr;
    asio::steady_timer m_phaseTimer;
    Steady::time_point m_begin;
    std::optional<Steady::time_point> m_connected;
    Steady::time_point m_lastByte;
    Headers m_replyFields;
    std::size_t m_headBytes = 0;
    int m_status = 0;
    bool m_isUsable = false;
    bool m_isAdded = false;
    bool m_isPaused = false;
    bool m_wasRefused = false;
};

int Transfers::Engine::onSocket(CURL *easy, curl_socket_t socket, int what, void *engine, void *)
{
    static_cast<Engine *>(engine)->watch(socket, what);
    Running *running = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &running);
    // The first thing to be read on a connection that is to be encrypted is the other side's part
    // in that.
    if (running && (what & CURL_POLL_IN) != 0 && isConnected(socket))
        running->connected();
    return 0;
}

void Transfers::Engine::reportEnds()
{
    int left = 0;
    while (const CURLMsg *message = curl_multi_info_read(m_multi, &left)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        Running *running = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &running);
        running->finished(message->data.result);
    }
}

Transfers::Transfers(asio::io_context &context)
{
    initializeLibrary();
    m_engine = std::make_shared<Engine>(context);
}

Transfers::~Transfers() = default;

std::unique_ptr<Transfer> Transfers::start(TransferRequest request, TransferReceiver &receiver)
{
    /// What the caller holds.
    class Handle : public Transfer
    {
    public:
        explicit Handle(std::shared_ptr<Engine::Running> running) : m_running(std::move(running)) {}
        ~Handle() override { m_running->abandon(); }
        Handle(const Handle &) = delete;
        Handle &operator=(const Handle &) = delete;
        void pause() override { m_running->pause(); }
        void resume() override { m_running->resume(); }

    private:
        std::shared_ptr<Engine::Running> m_running;
    };

    const auto running = std::make_shared<Engine::Running>(m_engine, std::move(request), receiver);
    running->begin();
    return std::make_unique<Handle>(running);
}

} // namespace quellora::server
