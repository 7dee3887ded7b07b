#include "Fuzz.h"
#include "admin/AdminStore.h"
#include "base/Text.h"
#include "http/BackendServer.h"
#include "model/BlockingAnswer.h"
#include "store/FormNonces.h"
#include "store/OpenDatabase.h"

#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>

using namespace quellora::server;
using namespace quellora::fuzz;

namespace {

/// No page shows this unescaped. Part of the dictionary.
constexpr const char *mark = "<q7x";

Config configIn(const std::filesystem::path &folder)
{
    const Environment nothing = [](const char *) { return std::nullopt; };
    Config config = Config::parse("", "fuzz.toml", nothing, builtInProviders()).value();
    config.server.port = 0;
    config.server.threads = 2;
    config.security.passwordCost = {1, 8192};
    config.dataFile = folder / "backend.sqlite";
    // Nothing is asked for over the network.
    config.takesConnections = false;
    LimitSettings &limits = config.limits;
    for (int *limit :
         {&limits.queriesPerMinute, &limits.loginFailures, &limits.authRequestsPerMinute})
        *limit = std::numeric_limits<int>::max();
    for (ConfiguredProvider &provider : config.providers) {
        provider.makeAnswer = [](const Config &) {
            return answerOnWorkers([](const ModelRequest &, const TextSink &sink, StopToken) {
                sink("An answer.");
                AnswerOutcome outcome;
                outcome.kind = AnswerOutcome::Kind::Complete;
                outcome.tokens = TokenCount{1, 2};
                return outcome;
            });
        };
    }
    return config;
}

/// The result of a system call that is repeated when a signal interrupted it.
ssize_t uninterrupted(const std::function<ssize_t()> &call)
{
    ssize_t result = 0;
    do
        result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

/// The backend as it serves, with an account and an administrator who are both signed in.
class Backend
{
public:
    Backend()
        : m_config(configIn(m_folder.path))
        , m_hasher(m_config.security.passwordCost)
        , m_database(openDatabase(m_config))
        , m_store(m_config, *m_database, m_hasher, m_clock,
                  [] { return std::vector<ModelSettings>(); })
        , m_server(m_config, *m_database, m_hasher, m_clock, [](const Request &) { return true; })
    {
        m_store.administrators.enrol("root@example.org", "correct horse");
        const std::string address = (m_server.bind(), m_server.address());
        m_port = static_cast<std::uint16_t>(std::stoi(address.substr(address.rfind(':') + 1)));
    }
    ~Backend() { m_server.stop(); }
    Backend(const Backend &) = delete;
    Backend &operator=(const Backend &) = delete;

    /// @p text with what only somebody who is signed in knows in place of $B (session of the app),
    /// $C (session of the administrator), $F (what its forms carry), $N, $M and $O (forms without
    /// one).
    std::string completed(const std::string &text)
    {
        // An earlier input may have ended or removed them.
        if (!m_store.sessions.find(m_bearer)) {
            const std::string email = "ann@example.org";
            const auto account = m_store.accounts.findByEmail(email);
            m_bearer =
                m_store.sessions
                    .issue(account
                               ? account->id
                               : m_store.accounts.create(email, "correct horse", "local", 0)->id)
                    .token;
        }
        if (!m_store.adminSessions.find(m_session))
            m_session = m_store.adminSessions.begin(m_store.administrators.all().at(0).id);
        std::string result;
        for (std::size_t at = 0; at < text.size(); ++at) {
            const char name = text[at] == '$' && at + 1 < text.size() ? text[++at] : '\0';
            switch (name) {
            case '\0':
                result += text[at];
                break;
            case 'B':
                result += m_bearer;
                break;
            case 'C':
                result += m_session;
                break;
            case 'F':
                result += AdminSessions::formToken(m_session);
                break;
            case 'N':
                result += m_signIn.issue();
                break;
            case 'M':
                result += m_account.issue();
                break;
            case 'O':
                result += m_adminSignIn.issue();
                break;
            default:
                result += {'$', name};
            }
        }
        return result;
    }

    /// What comes back for @p bytes. The client hangs up at once when it @p hangsUp, else with the
    /// reply.
    std::string replies(std::string_view bytes, bool hangsUp) const
    {
        const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const timeval patience{15, 0};
        ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        // A reset at the end, so that no port waits until it may be used again.
        const linger noGoodbye{1, 0};
        ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &noGoodbye, sizeof noGoodbye);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(m_port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        // libFuzzer's timer interrupts what waits.
        require(uninterrupted([&] {
                    return ::connect(socket, reinterpret_cast<sockaddr *>(&address),
                                     sizeof address);
                }) == 0);
        ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (hangsUp)
            ::shutdown(socket, SHUT_WR);
        std::string arrived;
        char buffer[16384];
        ssize_t length = 0;
        while ((length = uninterrupted([&] { return ::recv(socket, buffer, sizeof buffer, 0); })) >
               0) {
            arrived.append(buffer, static_cast<std::size_t>(length));
            // The request may have asked to keep the connection.
            if (!hangsUp && arrived.find("\r\nContent-Length: ") != std::string::npos) {
                hangsUp = true;
                ::shutdown(socket, SHUT_WR);
            }
        }
        // It closes every connection, or resets it when bytes of a refused request are left.
        require(length == 0 || errno == ECONNRESET);
        ::close(socket);
        return arrived;
    }

private:
    struct Folder
    {
        std::filesystem::path path;
        Folder()
        {
            std::string pattern =
                (std::filesystem::temp_directory_path() / "quellora-fuzz-XXXXXX").string();
            path = ::mkdtemp(pattern.data());
        }
        ~Folder() { std::filesystem::remove_all(path); }
    };

    Folder m_folder;
    Config m_config;
    SystemClock m_clock;
    PasswordHasher m_hasher;
    std::unique_ptr<Database> m_database;
    AdminStore m_store;
    BackendServer m_server;
    FormNonces m_signIn{*m_database, m_clock, "sign-in"};
    FormNonces m_account{*m_database, m_clock, "account"};
    FormNonces m_adminSignIn{*m_database, m_clock, "admin-sign-in"};
    std::string m_bearer;
    std::string m_session;
    std::uint16_t m_port = 0;
};

/// What holds for every reply, here for the first in @p bytes; of its body when it @p hasBody.
void check(const std::string &bytes, bool hasBody)
{
    const std::size_t end = bytes.find("\r\n\r\n");
    require(end != std::string::npos && bytes.starts_with("HTTP/1.1 "));
    const std::string head = lowered(bytes.substr(0, end + 2));
    const int status = std::stoi(head.substr(9, 3));
    require(status >= 100 && status < 600);
    // The database, a library or an assumption failed.
    require(status != 500);
    if (status == 100)
        return;
    require(head.find("\r\nx-content-type-options: nosniff\r\n") != std::string::npos);
    const std::string body = bytes.substr(end + 4);
    const std::size_t name = head.find("\r\ncontent-length: ");
    if (name == std::string::npos || !hasBody)
        return;
    const std::string whole = body.substr(0, std::stoul(head.substr(name + 18)));
    if (head.find("\r\ncontent-type: text/html") != std::string::npos) {
        require(isUtf8(whole));
        require(whole.find(mark) == std::string::npos);
        require(head.find("\r\ncontent-security-policy: default-src 'none'") != std::string::npos);
    }
    if (head.find("\r\ncontent-type: application/json") != std::string::npos)
        require(nlohmann::json::accept(whole));
}

/// Puts the lines of @p text into a request of the right length: method and target, fields, an
/// empty line, the body.
std::string framed(const std::string &text)
{
    const std::size_t end = std::min(text.find("\n\n"), text.size());
    const std::string body = end < text.size() ? text.substr(end + 2) : "";
    const std::string lines = text.substr(0, end);
    const std::size_t first = std::min(lines.find('\n'), lines.size());
    std::string request = lines.substr(0, first) +
                          " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" +
                          "Content-Length: " + std::to_string(body.size());
    for (std::size_t at = first; at < lines.size(); ++at)
        request += lines[at] == '\n' ? std::string("\r\n") : std::string(1, lines[at]);
    return request + "\r\n\r\n" + body;
}

} // namespace

/// The input as bytes of a client, or as one request, over a socket to the backend.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Backend backend;
    const std::string_view input = view(data, size);
    const bool isRaw = input.starts_with('!');
    const std::string text = backend.completed(std::string(input.substr(isRaw ? 1 : 0)));
    if (isRaw) {
        const std::string replies = backend.replies(text, true);
        if (!replies.empty())
            check(replies, false);
    } else {
        check(backend.replies(framed(text), false), !text.starts_with("HEAD"));
    }
    return 0;
}
