// Provider and clients for bench_backend.py. Each chunk of an answer carries the time at which the
// provider wrote it, which the clients compare with the time at which they read it.
//
//   bench_backend_load provider
//       Prints its port and answers until killed. A question's prompt is "COUNT RATE": so many
//       chunks, so many a second; rate 0 sends all at once.
//   bench_backend_load sequential PORT PATH REQUESTS TOKEN...
//   bench_backend_load streams PORT PATH ANSWERS COUNT RATE TOKEN...
//   bench_backend_load hold PORT PATH ANSWERS IDLE BODY TOKEN...
//       Holds running answers and idle connections; prints "held" and waits for a line on standard
//       input.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <map>
#include <memory>
#include <queue>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

std::int64_t nanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
        .count();
}

[[noreturn]] void fail(const std::string &what)
{
    std::cerr << "bench_backend_load: " << what << ": " << std::strerror(errno) << '\n';
    std::exit(1);
}

sockaddr_in loopback(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void setNoDelay(int socket)
{
    const int yes = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

int connectedTo(int port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = loopback(port);
    if (socket < 0 ||
        ::connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fail("cannot connect");
    setNoDelay(socket);
    return socket;
}

void sendAll(int socket, const std::string &bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        sent += static_cast<std::size_t>(n);
    }
}

std::string chunk(const std::string &text)
{
    char size[24];
    std::snprintf(size, sizeof size, "%zx\r\n", text.size());
    return size + text + "\r\n";
}

std::string event(const std::string &content)
{
    return "data: {\"id\":\"x\",\"object\":\"chat.completion.chunk\",\"model\":\"m\",\"choices\":[{"
           "\"index\":0,\"delta\":{\"content\":\"" +
           content + "\"},\"finish_reason\":null}]}\n\n";
}

const std::string lastEvents =
    "data: {\"choices\":[],\"usage\":{\"prompt_tokens\":7,\"completion_tokens\":3}}\n\n"
    "data: [DONE]\n\n";

/// One answer of the provider.
struct Answer
{
    int left = 0;
    std::chrono::nanoseconds gap{0};
};

class Provider
{
public:
    int run()
    {
        m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        sockaddr_in address = loopback(0);
        socklen_t length = sizeof address;
        if (::bind(m_listener, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
            ::listen(m_listener, 4096) != 0)
            fail("cannot listen");
        ::getsockname(m_listener, reinterpret_cast<sockaddr *>(&address), &length);
        std::cout << ntohs(address.sin_port) << std::endl;
        m_epoll = ::epoll_create1(0);
        watch(m_listener);
        epoll_event events[256];
        while (true) {
            const int count = ::epoll_wait(m_epoll, events, 256, timeout());
            for (int i = 0; i < count; ++i) {
                if (events[i].data.fd == m_listener)
                    accept();
                else
                    read(events[i].data.fd);
            }
            sendDue();
        }
    }

private:
    void watch(int socket)
    {
        epoll_event wanted = {};
        wanted.events = EPOLLIN;
        wanted.data.fd = socket;
        ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, socket, &wanted);
    }
    int timeout() const
    {
        if (m_due.empty())
            return -1;
        const auto wait =
            std::chrono::ceil<std::chrono::milliseconds>(m_due.top().first - Clock::now());
        return static_cast<int>(std::max<std::int64_t>(0, wait.count()));
    }
    void accept()
    {
        int socket = 0;
        while ((socket = ::accept4(m_listener, nullptr, nullptr, 0)) >= 0) {
            setNoDelay(socket);
            watch(socket);
        }
    }
    void read(int socket)
    {
        char buffer[65536];
        const ssize_t n = ::recv(socket, buffer, sizeof buffer, 0);
        if (n <= 0) {
            m_requests.erase(socket);
            m_answers.erase(socket);
            ::close(socket);
            return;
        }
        std::string &request = m_requests[socket];
        request.append(buffer, static_cast<std::size_t>(n));
        const std::size_t head = request.find("\r\n\r\n");
        const std::size_t field = request.find("Content-Length: ");
        if (head == std::string::npos || field == std::string::npos)
            return;
        if (request.size() < head + 4 + std::stoul(request.substr(field + 16)))
            return;
        // The prompt stands in quotation marks behind its key, in either format.
        const std::size_t prompt = request.find("<<", head);
        const int chunks = std::stoi(request.substr(prompt + 2));
        const int rate = std::stoi(request.substr(request.find(' ', prompt)));
        m_requests.erase(socket);
        sendAll(socket, "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
                        "Transfer-Encoding: chunked\r\n\r\n");
        if (rate == 0) {
            for (int i = 0; i < chunks; ++i)
                sendChunk(socket);
            sendAll(socket, chunk(lastEvents) + "0\r\n\r\n");
            return;
        }
        m_answers[socket] = {chunks, std::chrono::nanoseconds(1000000000LL / rate)};
        m_due.emplace(Clock::now(), socket);
    }
    static void sendChunk(int socket)
    {
        std::string text("@");
        text.append(std::to_string(nanoseconds())).append("@ some words ");
        sendAll(socket, chunk(event(text)));
    }
    void sendDue()
    {
        while (!m_due.empty() && m_due.top().first <= Clock::now()) {
            const auto [time, socket] = m_due.top();
            m_due.pop();
            const auto found = m_answers.find(socket);
            if (found == m_answers.end())
                continue;
            sendChunk(socket);
            if (--found->second.left > 0) {
                m_due.emplace(time + found->second.gap, socket);
                continue;
            }
            m_answers.erase(found);
            sendAll(socket, chunk(lastEvents) + "0\r\n\r\n");
        }
    }

    using Due = std::pair<Clock::time_point, int>;
    int m_listener = -1;
    int m_epoll = -1;
    std::unordered_map<int, std::string> m_requests;
    std::unordered_map<int, Answer> m_answers;
    std::priority_queue<Due, std::vector<Due>, std::greater<>> m_due;
};

std::string question(const std::string &path, const std::string &prompt, const std::string &token)
{
    // Understood by the backend and by the provider itself.
    const std::string body = "{\"prompt\":\"" + prompt + "\"}";
    return "POST " + path +
           " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
           "Authorization: Bearer " +
           token + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

/// Reads times out of the bytes of a stream.
class Delays
{
public:
    void read(std::string &rest, const char *bytes, std::size_t length)
    {
        const std::int64_t now = nanoseconds();
        rest.append(bytes, length);
        while (true) {
            const std::size_t begin = rest.find('@');
            const std::size_t end = begin == std::string::npos ? begin : rest.find('@', begin + 1);
            if (end == std::string::npos)
                break;
            values.push_back(now - std::stoll(rest.substr(begin + 1, end - begin - 1)));
            rest.erase(0, end + 1);
        }
        // The end of a reply is looked for in what is left.
        if (rest.size() > 512 && rest.find('@') == std::string::npos)
            rest.erase(0, rest.size() - 256);
    }
    double percentile(double share)
    {
        if (values.empty())
            return 0;
        std::sort(values.begin(), values.end());
        const auto at = static_cast<std::size_t>(share * static_cast<double>(values.size() - 1));
        return static_cast<double>(values[at]) / 1e6;
    }

    std::vector<std::int64_t> values;
};

bool isOver(const std::string &rest)
{
    return rest.size() >= 5 && rest.compare(rest.size() - 5, 5, "0\r\n\r\n") == 0;
}

int sequential(int port, const std::string &path, int requests,
               const std::vector<std::string> &tokens)
{
    const int socket = connectedTo(port);
    std::vector<std::int64_t> times;
    for (int i = 0; i < requests; ++i) {
        const std::string text =
            question(path, "<<1 0 ", tokens[static_cast<std::size_t>(i) % tokens.size()]);
        const std::int64_t begin = nanoseconds();
        sendAll(socket, text);
        std::string reply;
        char buffer[65536];
        while (!isOver(reply)) {
            const ssize_t n = ::recv(socket, buffer, sizeof buffer, 0);
            if (n <= 0)
                fail("the connection ended: " + reply);
            reply.append(buffer, static_cast<std::size_t>(n));
        }
        if (reply.find(" 200 ") == std::string::npos)
            fail("unexpected reply: " + reply);
        times.push_back(nanoseconds() - begin);
    }
    std::sort(times.begin(), times.end());
    const auto at = [&times](double share) {
        return static_cast<double>(
                   times[static_cast<std::size_t>(share * static_cast<double>(times.size() - 1))]) /
               1e6;
    };
    std::printf("%.4f %.4f\n", at(0.5), at(0.99));
    return 0;
}

int streams(int port, const std::string &path, int answers, int count, int rate,
            const std::vector<std::string> &tokens)
{
    const int epoll = ::epoll_create1(0);
    std::map<int, std::string> open;
    for (int i = 0; i < answers; ++i) {
        const int socket = connectedTo(port);
        epoll_event wanted = {};
        wanted.events = EPOLLIN;
        wanted.data.fd = socket;
        ::epoll_ctl(epoll, EPOLL_CTL_ADD, socket, &wanted);
        open[socket];
        sendAll(socket,
                question(path, "<<" + std::to_string(count) + ' ' + std::to_string(rate) + ' ',
                         tokens[static_cast<std::size_t>(i) % tokens.size()]));
        ::usleep(static_cast<useconds_t>(1000000 / rate / std::max(1, answers / 10)));
    }
    Delays delays;
    epoll_event events[256];
    char buffer[65536];
    int broken = 0;
    while (!open.empty()) {
        const int ready = ::epoll_wait(epoll, events, 256, 60000);
        if (ready <= 0)
            fail("the answers stopped");
        for (int i = 0; i < ready; ++i) {
            const int socket = events[i].data.fd;
            const ssize_t n = ::recv(socket, buffer, sizeof buffer, 0);
            std::string &rest = open[socket];
            if (n > 0)
                delays.read(rest, buffer, static_cast<std::size_t>(n));
            if (n > 0 && !isOver(rest))
                continue;
            broken += n <= 0 ? 1 : 0;
            open.erase(socket);
            ::close(socket);
        }
    }
    std::printf("%.4f %.4f %zu %d\n", delays.percentile(0.5), delays.percentile(0.99),
                delays.values.size(), broken);
    return 0;
}

int hold(int port, const std::string &path, int answers, int idle, int body,
         const std::vector<std::string> &tokens)
{
    std::vector<int> sockets;
    for (int i = 0; i < idle; ++i) {
        sockets.push_back(connectedTo(port));
        if (i % 100 == 99)
            ::usleep(1000);
    }
    std::cout << "idle" << std::endl;
    std::string line;
    std::getline(std::cin, line);
    int running = 0;
    for (int i = 0; i < answers; ++i) {
        const int socket = connectedTo(port);
        sockets.push_back(socket);
        sendAll(socket,
                question(path, "<<100000 1 " + std::string(static_cast<std::size_t>(body), 'x'),
                         tokens[static_cast<std::size_t>(i) % tokens.size()]));
        // Questions that come all at once are refused when too many wait for a worker.
        ::usleep(3000);
    }
    for (std::size_t i = sockets.size() - static_cast<std::size_t>(answers); i < sockets.size();
         ++i) {
        std::string reply;
        char buffer[4096];
        while (reply.find('@') == std::string::npos) {
            const ssize_t n = ::recv(sockets[i], buffer, sizeof buffer, 0);
            if (n <= 0)
                break;
            reply.append(buffer, static_cast<std::size_t>(n));
            if (reply.find(" 200 ") == std::string::npos)
                break;
        }
        running += reply.find('@') != std::string::npos ? 1 : 0;
    }
    std::cout << running << std::endl;
    std::getline(std::cin, line);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    rlimit files = {};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &files);
    const std::vector<std::string> words(argv + 1, argv + argc);
    const auto number = [&words](std::size_t at) { return std::stoi(words.at(at)); };
    const auto rest = [&words](std::size_t at) {
        return std::vector<std::string>(words.begin() + static_cast<std::ptrdiff_t>(at),
                                        words.end());
    };
    if (words.size() == 1 && words[0] == "provider")
        return Provider().run();
    if (words.size() > 4 && words[0] == "sequential")
        return sequential(number(1), words[2], number(3), rest(4));
    if (words.size() > 6 && words[0] == "streams")
        return streams(number(1), words[2], number(3), number(4), number(5), rest(6));
    if (words.size() > 6 && words[0] == "hold")
        return hold(number(1), words[2], number(3), number(4), number(5), rest(6));
    std::cerr << "usage: see the top of bench_backend_load.cpp\n";
    return 2;
}
