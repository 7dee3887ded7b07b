#include "ServerKit.h"

#include "model/ModelCatalog.h"
#include "model/ProviderWords.h"
#include "model/UpstreamTransfer.h"
#include "providers/UpstreamSettings.h"
#include "store/Connections.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

namespace quellora::server {
namespace {

using std::chrono::milliseconds;
using Kind = UpstreamProblem::Kind;

const Connection first{"openai", "One", "http://127.0.0.1:1", "key", {{"a", "A"}, {"b", "b"}}};
const Connection second{"anthropic", "Two", "https://x.org", "", {{"a", "a"}}};

class ConnectionStore : public testing::Test
{
protected:
    TemporaryDirectory directory;
    ConnectionFile file{directory.path() / "folder" / "connections.json"};

    void write(const std::string &text)
    {
        std::filesystem::create_directories(file.path().parent_path());
        std::ofstream(file.path()) << text;
    }
    int mode() const
    {
        struct stat status = {};
        return ::stat(file.path().c_str(), &status) == 0 ? status.st_mode & 07777 : -1;
    }
};

TEST_F(ConnectionStore, KeepsConnections)
{
    EXPECT_EQ(file.load().value(), std::vector<Connection>());
    EXPECT_EQ(file.save({first, second}), std::nullopt);
    EXPECT_EQ(file.load().value(), (std::vector<Connection>{first, second}));
    EXPECT_EQ(file.save({}), std::nullopt);
    EXPECT_EQ(file.load().value(), std::vector<Connection>());
}

TEST_F(ConnectionStore, IsPrivateWhateverTheMask)
{
    const mode_t before = ::umask(0777);
    const auto problem = file.save({first});
    ::umask(before);
    // With that mask the folder itself is useless to ordinary users.
    if (!problem) {
        EXPECT_EQ(mode(), 0600);
    }
    ::chmod(file.path().parent_path().c_str(), 0700);
    EXPECT_EQ(file.save({first}), std::nullopt);
    EXPECT_EQ(mode(), 0600);
}

TEST_F(ConnectionStore, TakesForeignRightsAway)
{
    ASSERT_EQ(file.save({first}), std::nullopt);
    ::chmod(file.path().c_str(), 0644);
    EXPECT_EQ(file.load().value().size(), 1U);
    EXPECT_EQ(mode(), 0600);
}

TEST_F(ConnectionStore, UnknownFieldsAreIgnored)
{
    write(R"({"new":1,"connections":[{"provider":"p","title":"t","address":"u","key":"k","new":2,
              "models":[{"name":"n","new":3}]}]})");
    EXPECT_EQ(file.load().value(), (std::vector<Connection>{{"p", "t", "u", "k", {{"n", "n"}}}}));
}

TEST_F(ConnectionStore, DamagedFilesAreReportedWithoutTheirContent)
{
    for (
        const std::string text :
        {"", "secret", "[]", "{}", R"({"connections":{}})", R"({"connections":["secret"]})",
         R"({"connections":[{"provider":"p","title":"t","address":"u","key":"secret"}]})",
         R"({"connections":[{"provider":"p","title":"t","address":"u","key":"secret","models":[]}]})",
         R"({"connections":[{"provider":"p","title":"t","address":"u","key":"s","models":[{}]}]})"}) {
        write(text);
        const auto loaded = file.load();
        ASSERT_FALSE(loaded) << text;
        EXPECT_EQ(loaded.error(), file.path().string() + ": cannot be understood");
    }
    write(R"({"connections":[],"x":")" + std::string(2U << 20U, 'x') + "\"}");
    EXPECT_FALSE(file.load());
    std::filesystem::remove(file.path());
    std::filesystem::create_directory(file.path());
    EXPECT_EQ(file.load().error(), file.path().string() + ": is not a file");
    std::filesystem::remove(file.path());
    // Opening a pipe must not wait for a writer.
    ASSERT_EQ(::mkfifo(file.path().c_str(), 0600), 0);
    EXPECT_EQ(file.load().error(), file.path().string() + ": is not a file");
}

TEST_F(ConnectionStore, FailedSavingLeavesTheOldFile)
{
    const ConnectionFile blocked(directory.path() / "plain" / "connections.json");
    std::ofstream(directory.path() / "plain") << "x";
    EXPECT_TRUE(blocked.save({first}));
    EXPECT_EQ(blocked.load().value(), std::vector<Connection>());
}

class Catalog : public testing::Test
{
protected:
    TemporaryDirectory directory;

    ModelCatalog catalog(const std::string &toml, const std::vector<Connection> &connections)
    {
        CircuitBreakers breakers;
        return ModelCatalog(testConfig(directory, toml), connections, breakers);
    }
    static std::string ids(const ModelCatalog &catalog)
    {
        std::string text;
        for (const ModelSettings &model : catalog.models())
            text += model.id + "(" + model.destination + ") ";
        return text + "default " + catalog.defaultModel();
    }
};

TEST_F(Catalog, ConnectedModelsReplaceTheReader)
{
    EXPECT_EQ(ids(catalog("", {})), "offline(localhost) default offline");
    EXPECT_TRUE(catalog("", {}).lacksModel());
    const ModelCatalog both = catalog("", {first, second});
    EXPECT_EQ(ids(both), "a(127.0.0.1) b(127.0.0.1) a@x.org(x.org) default a");
    EXPECT_FALSE(both.lacksModel());
    EXPECT_EQ(both.choose("a@x.org").id, "a@x.org");
    EXPECT_EQ(both.models().back().upstream, "a");
    EXPECT_FALSE(both.choose("b").usedFallback);
    EXPECT_EQ(both.choose("offline").id, "a");
    EXPECT_TRUE(both.choose("offline").usedFallback);
}

TEST_F(Catalog, EqualNamesGetDifferentIds)
{
    Connection again = second;
    again.baseUrl = "https://x.org/other";
    EXPECT_EQ(ids(catalog("", {second, again, again})),
              "a(x.org) a@x.org(x.org) a@x.org#2(x.org) default a");
}

TEST_F(Catalog, ConfiguredModelsStay)
{
    const std::string toml = "[openai]\nbase_url = 'https://y.org:8443/v1'\nmodel = 'a'";
    EXPECT_EQ(ids(catalog(toml, {first})),
              "a(y.org) a@127.0.0.1(127.0.0.1) b(127.0.0.1) default a");
    EXPECT_FALSE(catalog(toml, {}).lacksModel());
}

TEST_F(Catalog, UnknownProvidersAndOfflineAreLeftOut)
{
    Connection strange = first;
    strange.provider = "gone";
    EXPECT_EQ(ids(catalog("", {strange})), "offline(localhost) default offline");
    EXPECT_TRUE(catalog("", {strange}).lacksModel());
    const ModelCatalog offline = catalog("[offline]\nforce = true", {first});
    EXPECT_EQ(ids(offline), "offline(localhost) default offline");
    EXPECT_FALSE(offline.lacksModel());
}

TEST(Destinations, AreTheHostsOfAddresses)
{
    EXPECT_EQ(hostOfUrl("https://API.example.com/v1"), "api.example.com");
    EXPECT_EQ(hostOfUrl("http://127.0.0.1:8080"), "127.0.0.1");
    EXPECT_EQ(hostOfUrl("http://[::1]:8080/x"), "[::1]");
    EXPECT_EQ(hostOfUrl("http://"), "");
    EXPECT_EQ(hostOfUrl(""), "");
    for (const char *host : {"127.0.0.1", "127.1.2.3", "localhost", "[::1]"})
        EXPECT_TRUE(isLoopbackHost(host)) << host;
    for (const char *host :
         {"128.0.0.1", "127.0.0.1.example.com", "localhost.example.com", "", "::", "10.127.0.1"})
        EXPECT_FALSE(isLoopbackHost(host)) << host;
}

TEST(DisplayText, IsOneBoundedLineWithoutTricks)
{
    EXPECT_EQ(displayText(" a\r\n\tb ", 10), "a b");
    // NOLINTNEXTLINE(misc-misleading-bidirectional): escaped
    EXPECT_EQ(displayText("a\u202Eb\u200Bc\u2066d\uFEFF", 20), "abcd");
    EXPECT_EQ(displayText("a\x01\x7F\xC2\x85z", 10), "a z");
    EXPECT_EQ(displayText("\xFF\xC0\x80ok\xE2\x82", 10), "ok");
    EXPECT_EQ(displayText("\xED\xA0\x80\xF4\x90\x80\x80x", 10), "x");
    EXPECT_EQ(displayText("grün 東京 😀", 40), "grün 東京 😀");
    EXPECT_EQ(displayText("abcdef", 3), "abc…");
    EXPECT_EQ(displayText("aü", 2), "a…");
    EXPECT_EQ(displayText("", 3), "");
}

TEST(ProviderWords, AreFoundInTheUsualPlaces)
{
    EXPECT_EQ(providerWords(R"({"error":{"message":"m"}})"), "m");
    EXPECT_EQ(providerWords(R"({"type":"error","error":{"type":"t","message":"m"}})"), "m");
    EXPECT_EQ(providerWords(R"({"error":"m"})"), "m");
    EXPECT_EQ(providerWords(R"({"message":"m"})"), "m");
    EXPECT_EQ(providerWords(R"({"detail":"m"})"), "m");
    EXPECT_EQ(providerWords(R"({"error":{"message":5},"detail":{}})"), "");
    EXPECT_EQ(providerWords("plain words\n"), "plain words");
    EXPECT_EQ(providerWords("<html>no</html>"), "");
    EXPECT_EQ(providerWords(std::string(5000, 'x')), "");
    EXPECT_LT(providerWords(R"({"error":")" + std::string(5000, 'x') + "\"}").size(), 500U);
    EXPECT_EQ(providerWords(""), "");
}

TEST(Deadline, StopsATokenAndWakesItsWaiters)
{
    const StopSource source;
    const StopToken token = source.token();
    EXPECT_FALSE(token.expired());
    const auto soon = std::chrono::steady_clock::now() + milliseconds(20);
    const StopToken limited = token.before(soon);
    limited.waitForStop([] { return false; });
    EXPECT_GE(std::chrono::steady_clock::now(), soon);
    EXPECT_TRUE(limited.stopRequested());
    EXPECT_TRUE(limited.expired());
    EXPECT_FALSE(token.stopRequested());
    // The earlier deadline counts.
    EXPECT_TRUE(limited.before(soon + std::chrono::hours(1)).expired());
}

/// Accepts one connection and runs @p peer with it.
class RawServer
{
public:
    explicit RawServer(std::function<void(int connection)> peer)
    {
        m_listener = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(::bind(m_listener, reinterpret_cast<sockaddr *>(&address), length), 0);
        ::listen(m_listener, 4);
        ::getsockname(m_listener, reinterpret_cast<sockaddr *>(&address), &length);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this, peer = std::move(peer)] {
            const int connection = ::accept(m_listener, nullptr, nullptr);
            peer(connection);
            ::close(connection);
        });
    }
    ~RawServer()
    {
        m_thread.join();
        ::close(m_listener);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port); }

private:
    int m_listener = -1;
    int m_port = 0;
    std::thread m_thread;
};

void send(int connection, const std::string &text)
{
    [[maybe_unused]] const auto sent = ::send(connection, text.data(), text.size(), MSG_NOSIGNAL);
}

TEST(Document, ASlowTrickleEndsAtTheTimeLimit)
{
    EventLoop loop;
    for (const std::string begin : {"HTTP/1.1 200 OK\r\nX: ", "HTTP/1.1 200 OK\r\n\r\n"}) {
        const RawServer server([begin](int connection) {
            send(connection, begin);
            // A byte now and then defeats every limit on silence alone.
            char byte = 0;
            while (::recv(connection, &byte, 1, MSG_DONTWAIT) != 0 &&
                   ::send(connection, "H", 1, MSG_NOSIGNAL) == 1)
                std::this_thread::sleep_for(milliseconds(20));
        });
        DocumentLimits limits;
        limits.total = milliseconds(200);
        const auto start = std::chrono::steady_clock::now();
        const auto document = getDocument(loop, server.url(), "/", {}, limits, StopToken());
        ASSERT_FALSE(document);
        EXPECT_EQ(document.error().kind, Kind::Silent);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    }
}

TEST(Document, OtherFailuresHaveTheirKind)
{
    EventLoop loop;
    const auto kind = [&loop](const std::string &url) {
        const auto document = getDocument(loop, url, "/", {}, DocumentLimits(), StopToken());
        return document ? std::string("none") : std::to_string(int(document.error().kind));
    };
    EXPECT_EQ(kind("http://127.0.0.1:1"), std::to_string(int(Kind::Unreachable)));
    EXPECT_EQ(kind("ftp://x.org"), std::to_string(int(Kind::Address)));
    const RawServer talker([](int connection) { send(connection, "SSH-2.0-hello\r\n"); });
    EXPECT_EQ(kind(talker.url()), std::to_string(int(Kind::Interrupted)));
    // Not encrypted although it should be.
    const RawServer plain([](int connection) { send(connection, "HTTP/1.1 200 OK\r\n\r\n"); });
    EXPECT_EQ(kind("https" + plain.url().substr(4)), std::to_string(int(Kind::Unreachable)));
}

TEST(Document, AStopEndsTheTransfer)
{
    EventLoop loop;
    StopSource source;
    const RawServer server([&source](int connection) {
        source.requestStop();
        char byte = 0;
        while (::recv(connection, &byte, 1, 0) > 0) {
        }
    });
    EXPECT_FALSE(getDocument(loop, server.url(), "/", {}, DocumentLimits(), source.token()));
}

} // namespace
} // namespace quellora::server
