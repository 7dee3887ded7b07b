#include "ServerKit.h"

#include "base/Text.h"

#include <sys/stat.h>

#include <fstream>
#include <mutex>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace quellora::server {
namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char *key = "sk-secret-0123456789";

std::string event(const std::string &text)
{
    return "data: " + json{{"choices", {{{"delta", {{"content", text}}}}}}}.dump() + "\n\n";
}

/// A model server. Its list and its answers can be replaced at any time.
class FakeModels
{
public:
    using Handler = std::function<void(const httplib::Request &, httplib::Response &)>;

    FakeModels()
    {
        onList = reply(R"({"data":[{"id":"alpha"},{"id":"beta","display_name":"Beta Two"}]})");
        onAsk = answer("Red.");
        m_server.Get("/v1/models",
                     [this](const httplib::Request &request, httplib::Response &response) {
                         handlerOf(onList, request)(request, response);
                     });
        m_server.Post("/v1/chat/completions",
                      [this](const httplib::Request &request, httplib::Response &response) {
                          handlerOf(onAsk, request)(request, response);
                      });
        m_server.set_keep_alive_max_count(1);
        m_port = m_server.bind_to_any_port("127.0.0.1");
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
        while (!m_server.is_running())
            std::this_thread::sleep_for(milliseconds(1));
    }
    ~FakeModels()
    {
        m_server.stop();
        m_thread.join();
    }

    static Handler reply(const std::string &body, int status = 200,
                         const std::string &type = "application/json")
    {
        return [=](const httplib::Request &, httplib::Response &response) {
            response.status = status;
            response.set_content(body, type);
        };
    }
    static Handler answer(const std::string &text)
    {
        return reply(event(text) + "data: [DONE]\n\n", 200, "text/event-stream");
    }
    void set(Handler &which, Handler handler)
    {
        const std::lock_guard lock(m_mutex);
        which = std::move(handler);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port); }
    /// The Authorization header of the last request.
    std::string lastKey() const
    {
        const std::lock_guard lock(m_mutex);
        return m_lastKey;
    }

    Handler onList;
    Handler onAsk;

private:
    Handler handlerOf(const Handler &which, const httplib::Request &request)
    {
        const std::lock_guard lock(m_mutex);
        m_lastKey = request.get_header_value("Authorization");
        return which;
    }

    mutable std::mutex m_mutex;
    std::string m_lastKey;
    httplib::Server m_server;
    int m_port = 0;
    std::thread m_thread;
};

/// Answers pictures with @p pictures and bare questions with @p questions.
FakeModels::Handler bySort(const FakeModels::Handler &pictures,
                           const FakeModels::Handler &questions)
{
    return [=](const httplib::Request &request, httplib::Response &response) {
        const bool hasPicture =
            json::parse(request.body).at("messages").at(0).at("content").is_array();
        (hasPicture ? pictures : questions)(request, response);
    };
}

class AccountPage : public testing::Test
{
protected:
    TemporaryDirectory directory;
    ManualClock clock;
    FakeModels models;
    Config config = withChoices(testConfig(directory), models.url());
    std::atomic<bool> ownUser = true;
    std::unique_ptr<RunningServer> server;
    std::string pages;

    /// @p config with choices that lead to @p url instead of the real servers.
    static Config withChoices(Config config, const std::string &url)
    {
        for (ConfiguredProvider &provider : config.providers) {
            if (provider.connector)
                provider.connector->choices.clear();
            if (provider.name == "openai")
                provider.connector->choices = {{"keyed", "Keyed", url, true},
                                               {"server", "Another server"},
                                               {"local", "Local", url, false, true}};
        }
        return config;
    }

    void start()
    {
        server = std::make_unique<RunningServer>(
            config, clock, AnswerFunction(), [this](const Request &) { return ownUser.load(); });
    }
    void SetUp() override { start(); }

    std::filesystem::path file() const { return config.connectionFile(); }

    std::string get(const std::string &path)
    {
        const auto page = server->client().Get(path);
        if (!page)
            return "";
        pages += page->body;
        return page->body;
    }
    /// The page of the connection, once nothing runs any more.
    std::string settled()
    {
        for (int i = 0; i < 1000; ++i) {
            const auto page = server->client().Get("/account/connect");
            if (!page)
                return "no reply: " + httplib::to_string(page.error());
            pages += page->body;
            if (!page->has_header("Refresh"))
                return page->body;
            std::this_thread::sleep_for(milliseconds(10));
        }
        return "never settled";
    }
    static std::string hiddenValue(const std::string &html, const std::string &name)
    {
        std::smatch match;
        std::regex_search(html, match, std::regex("name=\"" + name + "\" value=\"([^\"]*)\""));
        return match[1];
    }
    httplib::Result post(const std::string &path, const httplib::Params &fields,
                         const httplib::Headers &headers = {})
    {
        auto result = server->client().Post(path, headers, fields);
        // Ends the test; callers read the result.
        if (!result)
            throw std::runtime_error("no reply: " + httplib::to_string(result.error()));
        pages += result->body;
        return result;
    }
    httplib::Result connect(httplib::Params fields)
    {
        fields.emplace("nonce", hiddenValue(get("/account"), "nonce"));
        return post("/account/connect", fields);
    }
    /// The page of the models of a new connection.
    std::string connected()
    {
        EXPECT_EQ(connect({{"choice", "keyed"}, {"key", key}})->status, 303);
        return settled();
    }
    httplib::Result act(const std::string &action, httplib::Params fields = {})
    {
        fields.emplace("setup", hiddenValue(get("/account/connect"), "setup"));
        fields.emplace("action", action);
        return post("/account/connect/models", fields);
    }
    std::string tested(const httplib::Params &ticks = {{"m0", "on"}})
    {
        EXPECT_EQ(act("test", ticks)->status, 303);
        return settled();
    }
    /// Connects the first model.
    void save()
    {
        connected();
        EXPECT_EQ(act("save", {{"m0", "on"}})->get_header_value("Location"), "/account");
    }
    json record()
    {
        return json::parse(server->login(RunningServer::email, RunningServer::password)->body)
            .at("config");
    }
    std::string change(const std::string &action)
    {
        const std::string page = get("/account");
        const auto answer = post("/account/change", {{"nonce", hiddenValue(page, "nonce")},
                                                     {"provider", hiddenValue(page, "provider")},
                                                     {"address", hiddenValue(page, "address")},
                                                     {"action", action}});
        return answer->get_header_value("Location");
    }
    static bool contains(const std::string &text, const std::string &part)
    {
        return text.find(part) != std::string::npos;
    }
};

TEST_F(AccountPage, KeyModelsTestSaveAndTheModelAnswers)
{
    testing::internal::CaptureStderr();
    const std::string page = connected();
    EXPECT_TRUE(contains(page, "alpha")) << page;
    EXPECT_TRUE(contains(page, "Beta Two"));
    EXPECT_TRUE(contains(page, "stay on <b>this machine</b>"));
    EXPECT_EQ(models.lastKey(), std::string("Bearer ") + key);

    const std::string result = tested();
    EXPECT_TRUE(contains(result, "and saw the test picture")) << result;
    EXPECT_TRUE(contains(result, "name=\"m0\" checked"));

    EXPECT_EQ(act("save", {{"m0", "on"}, {"m1", "on"}})->status, 303);
    EXPECT_TRUE(contains(get("/account"), "Saved. alpha answers from now on"));
    EXPECT_FALSE(contains(get("/account"), "Saved."));

    const json offer = record();
    EXPECT_EQ(offer.at("model"), "alpha");
    EXPECT_EQ(offer.at("availableModels"), json::parse(R"([
        {"id":"alpha","displayName":"alpha","descriptor":"Keyed","destination":"127.0.0.1"},
        {"id":"beta","displayName":"Beta Two","descriptor":"Keyed","destination":"127.0.0.1"}])"));
    EXPECT_EQ(answerText(server->query(server->token())->body), "Red.");
    EXPECT_EQ(models.lastKey(), std::string("Bearer ") + key);

    struct stat status = {};
    ASSERT_EQ(::stat(file().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600);
    // Only that file knows the key.
    server.reset();
    EXPECT_FALSE(contains(pages, key));
    EXPECT_FALSE(contains(testing::internal::GetCapturedStderr(), key));
    int files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(file().parent_path()))
        files += entry.path().string().rfind(file().string(), 0) == 0 ? 1 : 0;
    EXPECT_EQ(files, 1);
}

TEST_F(AccountPage, ConnectionsOutliveTheServer)
{
    save();
    server.reset();
    start();
    EXPECT_EQ(record().at("model"), "alpha");
    EXPECT_EQ(answerText(server->query(server->token())->body), "Red.");
}

TEST_F(AccountPage, RunningAnswersFinishOnTheOldModel)
{
    save();
    std::promise<void> going;
    std::promise<void> release;
    auto released = release.get_future().share();
    models.set(models.onAsk, [&, released](const httplib::Request &, httplib::Response &response) {
        response.set_chunked_content_provider(
            "text/event-stream", [&, released](std::size_t, httplib::DataSink &sink) {
                const std::string begin = event("old ");
                sink.write(begin.data(), begin.size());
                going.set_value();
                released.wait();
                const std::string end = event("answer") + "data: [DONE]\n\n";
                sink.write(end.data(), end.size());
                sink.done();
                return true;
            });
    });
    auto answer =
        std::async(std::launch::async, [&] { return server->query(server->token())->body; });
    going.get_future().wait();
    EXPECT_EQ(change("disconnect"), "/account");
    EXPECT_EQ(record().at("model"), "offline");
    release.set_value();
    const std::string stream = answer.get();
    EXPECT_EQ(answerText(stream), "old answer");
    EXPECT_EQ(lastType(stream), "done");
}

TEST_F(AccountPage, FailuresOfTheListAreToldInPlainWords)
{
    const std::string error = R"({"error":{"message":"the provider's <b>words</b>"}})";
    const std::string words = "It says: “the provider&#39;s &lt;b&gt;words&lt;/b&gt;”";
    struct Row
    {
        FakeModels::Handler list;
        std::vector<std::string> expected;
    };
    const std::vector<Row> rows = {
        {FakeModels::reply(error, 401), {"127.0.0.1 does not accept the key (HTTP 401).", words}},
        {FakeModels::reply(error, 403), {"does not allow this with the key (HTTP 403)", words}},
        {FakeModels::reply(error, 402), {"wants to be paid first (HTTP 402)"}},
        {FakeModels::reply(error, 404), {"has no list of models at this address (HTTP 404)"}},
        {FakeModels::reply(error, 429), {"too many questions, or no credit left (HTTP 429)"}},
        {FakeModels::reply(error, 500), {"has a problem of its own (HTTP 500)", words}},
        {FakeModels::reply(error, 418), {"refused the request (HTTP 418)"}},
        {FakeModels::reply("", 301), {"points to another address (HTTP 301)"}},
        {FakeModels::reply("<html>Hello</html>"), {"sent something that is no list of models"}},
        {FakeModels::reply("{}"), {"sent something that is no list of models"}},
        {FakeModels::reply(R"({"data":{}})"), {"sent something that is no list of models"}},
        {FakeModels::reply(std::string(5U << 20U, ' ')), {"sent more than is accepted"}},
        {FakeModels::reply(R"({"data":[]})"), {"It offers no models."}},
        {FakeModels::reply(R"({"error":"a)" + std::string(key) + R"(b"})", 401), {"“a…b”"}},
        {FakeModels::reply("no way", 401, "text/plain"), {"It says: “no way”"}},
        // NOLINTNEXTLINE(misc-misleading-bidirectional): escaped
        {FakeModels::reply("{\"message\":\"x\u202E\\u0007y\"}", 401), {"“x y”"}},
    };
    for (const Row &row : rows) {
        models.set(models.onList, row.list);
        std::string page = connected();
        // Every message of the list also names the way out.
        for (const std::string &part : row.expected)
            EXPECT_TRUE(contains(page, part) ||
                        contains(page, std::regex_replace(part, std::regex("127.0.0.1"), "Keyed")))
                << part << "\n"
                << page;
        act("cancel");
    }
    EXPECT_FALSE(contains(pages, key));
    EXPECT_FALSE(contains(pages, "<b>words"));
}

TEST_F(AccountPage, UnreachableServersAreToldAndCanBeTriedAgain)
{
    std::string gone;
    {
        const FakeModels other;
        gone = other.url();
    }
    connect({{"choice", "server"}, {"address", gone}});
    EXPECT_TRUE(contains(settled(), "127.0.0.1 cannot be reached."));
    connect({{"choice", "server"}, {"address", "https://no-such-host.invalid/v1"}});
    EXPECT_TRUE(contains(settled(), "no-such-host.invalid cannot be reached."));
    models.set(models.onList, FakeModels::reply("{}", 503));
    EXPECT_TRUE(contains(connected(), "HTTP 503"));
    models.set(models.onList, FakeModels::reply(R"({"data":[{"id":"alpha"}]})"));
    EXPECT_EQ(act("retry")->get_header_value("Location"), "/account/connect");
    const std::string page = settled();
    EXPECT_FALSE(contains(page, "HTTP 503"));
    // The only model is chosen at once.
    EXPECT_TRUE(contains(page, "name=\"m0\" checked"));
}

TEST_F(AccountPage, UnusableEntriesOfTheListAreLeftOut)
{
    json list = json::array({{{"id", ""}},
                             {{"id", 5}},
                             "text",
                             json::object(),
                             {{"id", "a\nb"}},
                             {{"id", std::string(300, 'x')}},
                             {{"id", "text-embedding-3"}},
                             {{"id", "good"}},
                             {{"id", "good"}},
                             {{"id", "/models/Nice-7B.gguf"}},
                             {{"id", "<script>"}}});
    for (int i = 0; i < 3000; ++i)
        list.push_back({{"id", "m" + std::to_string(i)}});
    models.set(models.onList, FakeModels::reply(json{{"data", list}}.dump()));
    std::string page = connected();
    EXPECT_TRUE(contains(page, "Nice-7B<span class=\"dim\">/models/Nice-7B.gguf"));
    EXPECT_TRUE(contains(page, "&lt;script&gt;"));
    EXPECT_FALSE(contains(page, "text-embedding-3"));
    EXPECT_FALSE(contains(page, "xxxxx"));
    EXPECT_FALSE(contains(page, "<script"));
    EXPECT_TRUE(contains(page, "name=\"m1999\"") || contains(page, "name=\"m1998\""));
    EXPECT_FALSE(contains(page, "name=\"m2000\""));
    // A filter makes long lists short; what is ticked stays.
    act("apply", {{"m0", "on"}, {"filter", "NICE"}});
    page = settled();
    EXPECT_TRUE(contains(page, "Nice-7B"));
    EXPECT_TRUE(contains(page, "name=\"m0\" checked"));
    EXPECT_FALSE(contains(page, "name=\"m5\""));
    act("apply", {{"m0", "on"}, {"filter", ""}});
    EXPECT_TRUE(contains(settled(), "name=\"m0\" checked"));
    act("apply", {{"filter", "nothing like it"}});
    EXPECT_TRUE(contains(settled(), "No name contains “nothing like it”."));
}

TEST_F(AccountPage, TestsTellWhatEachModelCanDo)
{
    const std::string words = R"({"error":{"message":"its own words"}})";
    struct Row
    {
        FakeModels::Handler ask;
        std::vector<std::string> expected;
    };
    const auto stream = [](const std::string &text) {
        return FakeModels::reply(text, 200, "text/event-stream");
    };
    const std::vector<Row> rows = {
        {FakeModels::answer("RED"), {"saw the test picture"}},
        {FakeModels::answer("I see <nothing>"),
         {"did not see that the test picture is red. It said: “I see &lt;nothing&gt;”"}},
        {bySort(FakeModels::reply(words, 400), FakeModels::answer("Blue")),
         {"Answers text, but takes no pictures.", "It says: “its own words”"}},
        {FakeModels::reply(words, 400), {"refused the request (HTTP 400).", "its own words"}},
        {FakeModels::reply(words, 401), {"does not accept the key (HTTP 401).", "its own words"}},
        {FakeModels::reply(words, 404), {"does not know this model (HTTP 404).", "its own words"}},
        {FakeModels::reply(words, 429), {"no credit left (HTTP 429).", "its own words"}},
        {FakeModels::reply(words, 413), {"finds the picture too large (HTTP 413)."}},
        {stream("data: " + words + "\n\n"), {"refused the question.", "its own words"}},
        {stream("data: [DONE]\n\n"), {"ended its answer without any text."}},
        {stream("data: nonsense\n\n"), {"sent something that is no answer."}},
        {stream("<html>"), {"sent something that is no answer."}},
        {stream("data: " + std::string(2U << 20U, 'x')), {"sent more than is accepted."}},
    };
    for (const Row &row : rows) {
        connected();
        models.set(models.onAsk, row.ask);
        const std::string page = tested();
        for (const std::string &part : row.expected)
            EXPECT_TRUE(contains(page, part)) << part << "\n" << page;
        // A failed test does not forbid to save.
        EXPECT_TRUE(contains(page, "value=\"save\""));
        act("cancel");
    }
    EXPECT_FALSE(contains(pages, key));
}

TEST_F(AccountPage, LongAnswersEndTheTestEarly)
{
    std::promise<void> left;
    models.set(models.onAsk, [&](const httplib::Request &, httplib::Response &response) {
        response.set_chunked_content_provider(
            "text/event-stream",
            [](std::size_t, httplib::DataSink &sink) {
                const std::string more = event("red and more of it ");
                return sink.write(more.data(), more.size());
            },
            [&left](bool) { left.set_value(); });
    });
    connected();
    EXPECT_TRUE(contains(tested(), "saw the test picture"));
    EXPECT_EQ(left.get_future().wait_for(seconds(10)), std::future_status::ready);
}

TEST_F(AccountPage, TestRunsInTheBackgroundAndCanBeStopped)
{
    std::promise<void> release;
    auto released = release.get_future().share();
    models.set(models.onAsk, [released](const httplib::Request &, httplib::Response &response) {
        released.wait();
        response.status = 500;
    });
    connected();
    act("test", {{"m0", "on"}, {"m1", "on"}});
    const auto page = server->client().Get("/account/connect");
    EXPECT_EQ(page->get_header_value("Refresh"), "1");
    EXPECT_TRUE(contains(page->body, "Asking it about a test picture…"));
    EXPECT_TRUE(contains(page->body, "Waiting for its turn"));
    EXPECT_FALSE(contains(page->body, "value=\"save\""));
    // Nothing is saved while it runs.
    act("save", {{"m0", "on"}});
    EXPECT_EQ(record().at("model"), "offline");
    act("stop");
    const std::string after = settled();
    EXPECT_TRUE(contains(after, "value=\"save\""));
    EXPECT_FALSE(contains(after, "Waiting for its turn"));
    release.set_value();
    // What the stopped test still brings does not count.
    EXPECT_FALSE(contains(settled(), "HTTP 500"));
}

TEST_F(AccountPage, StoppingTheServerWaitsForAProviderThatStopsLate)
{
    server.reset();
    std::promise<void> listing;
    for (ConfiguredProvider &provider : config.providers) {
        if (provider.name == "openai")
            provider.connector->listModels = [&listing](auto &, const UpstreamSettings &settings,
                                                        auto &, const StopToken &stop)
                -> tl::expected<std::vector<OfferedModel>, UpstreamProblem> {
                // Servers on this machine are asked without a key, for the list of choices.
                if (settings.apiKey.empty())
                    return {};
                listing.set_value();
                stop.waitForStop([] { return false; });
                // Until the server waits for it.
                std::this_thread::sleep_for(milliseconds(300));
                return {};
            };
    }
    start();
    connect({{"choice", "keyed"}, {"key", key}});
    listing.get_future().wait();
    server.reset();
}

TEST_F(AccountPage, StoppingTheServerEndsARunningTest)
{
    std::promise<void> release;
    auto released = release.get_future().share();
    models.set(models.onAsk, [released](const httplib::Request &, httplib::Response &) {
        released.wait_for(seconds(20));
    });
    connected();
    act("test", {{"m0", "on"}});
    const auto begin = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(10));
    release.set_value();
}

TEST_F(AccountPage, ModelsThatPassedTheTestComeFirst)
{
    connected();
    models.set(models.onAsk, [](const httplib::Request &request, httplib::Response &response) {
        const bool isBeta = json::parse(request.body).at("model") == "beta";
        FakeModels::answer(isBeta ? "red" : "what?")(request, response);
    });
    tested({{"m0", "on"}, {"m1", "on"}});
    act("save", {{"m0", "on"}, {"m1", "on"}});
    EXPECT_EQ(record().at("model"), "beta");
}

TEST_F(AccountPage, NothingChosenOrTooMuchIsNotSaved)
{
    models.set(models.onList, [] {
        json list = json::array();
        for (int i = 0; i < 30; ++i)
            list.push_back({{"id", "m" + std::to_string(i)}});
        return FakeModels::reply(json{{"data", list}}.dump());
    }());
    connected();
    for (const char *action : {"save", "test"}) {
        EXPECT_EQ(act(action)->get_header_value("Location"), "/account/connect");
        EXPECT_TRUE(contains(settled(), "Choose a model first."));
        httplib::Params ticks;
        for (int i = 0; i < 25; ++i)
            ticks.emplace("m" + std::to_string(i), "on");
        act(action, ticks);
        EXPECT_TRUE(contains(settled(), "Choose at most 24 models."));
        act("apply");
    }
    EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(AccountPage, ModelsOutsideTheListCanBeNamed)
{
    models.set(models.onList, FakeModels::reply("{}", 404));
    EXPECT_FALSE(contains(connected(), "value=\"save\""));
    act("apply", {{"name", " my/model:1 "}});
    EXPECT_TRUE(contains(settled(), "my/model:1"));
    EXPECT_TRUE(contains(settled(), "value=\"save\""));
    act("apply", {{"m0", "on"}, {"name", "two\nlines"}});
    EXPECT_TRUE(contains(settled(), "That is no name of a model."));
    act("save", {{"m0", "on"}});
    EXPECT_EQ(record().at("model"), "my/model:1");
}

TEST_F(AccountPage, KeysAndAddressesAreChecked)
{
    const auto problem = [&](const httplib::Params &fields) {
        const auto answer = connect(fields);
        EXPECT_EQ(answer->status, 400);
        std::smatch match;
        std::regex_search(answer->body, match, std::regex("role=\"alert\">([^<]*)<"));
        return match[1].str();
    };
    EXPECT_EQ(problem({{"choice", "keyed"}, {"key", "  "}}), "Paste the key first.");
    for (const std::string bad : {"two words", "line\r\nX-Header: y", "schlüssel"})
        EXPECT_TRUE(contains(problem({{"choice", "keyed"}, {"key", bad}}), "That is no key"));
    EXPECT_TRUE(
        contains(problem({{"choice", "keyed"}, {"key", std::string(600, 'k')}}), "That is no key"));
    EXPECT_EQ(problem({{"choice", "nothing"}, {"key", "k"}}), "Choose what to connect.");
    for (const std::string bad :
         {"", " ", "ftp://x.org", "javascript:alert(1)", "http://me@x.org", "http://x.org/?a=b",
          "https://", "http:///v1", "http://a b", "http://\u00fc.de"})
        EXPECT_TRUE(contains(problem({{"choice", "server"}, {"address", bad}}),
                             "That is no address of a server."))
            << bad;
    EXPECT_TRUE(contains(problem({{"choice", "server"}, {"address", std::string(400, 'a')}}),
                         "That is no address"));
    // What was entered can be corrected, the key excepted.
    const auto again = connect({{"choice", "server"}, {"address", "ftp://\"x"}, {"key", "pasted"}});
    EXPECT_TRUE(contains(again->body, "value=\"ftp://&quot;x\""));
    EXPECT_TRUE(contains(again->body, "<details open>"));
    EXPECT_FALSE(contains(again->body, "pasted"));
}

TEST_F(AccountPage, AddressesAreUnderstoodAsPeoplePasteThem)
{
    const std::string place = models.url().substr(std::string("http://").size());
    for (const std::string &typed : std::vector<std::string>{
             place, models.url() + "/v1", models.url() + "/v1/", " " + models.url() + "/v1/models ",
             models.url() + "/v1/chat/completions"}) {
        connect({{"choice", "server"}, {"address", typed}});
        EXPECT_TRUE(contains(settled(), "alpha")) << typed;
        act("save", {{"m0", "on"}});
    }
    // All are the same connection, without a key.
    const json stored = json::parse(std::ifstream(file()));
    ASSERT_EQ(stored.at("connections").size(), 1U);
    EXPECT_EQ(stored.at("connections").at(0).at("address"), models.url());
    EXPECT_EQ(models.lastKey(), "");
    // A name in the open network is asked over an encrypted connection.
    connect({{"choice", "server"}, {"address", "no-such-host.invalid"}});
    EXPECT_FALSE(contains(settled(), "not encrypted"));
    connect({{"choice", "server"}, {"address", "http://no-such-host.invalid"}, {"key", "k"}});
    settled();
    act("apply", {{"name", "x"}});
    EXPECT_TRUE(contains(get("/account/connect"), "cannot be reached"));
}

TEST_F(AccountPage, LocalServersAreFoundAndOffered)
{
    std::string page = get("/account");
    EXPECT_TRUE(contains(page, "Use Local")) << page;
    EXPECT_TRUE(contains(page, "2 models · pictures stay on this machine"));
    EXPECT_EQ(connect({{"choice", "local"}})->status, 303);
    settled();
    act("save", {{"m0", "on"}});
    EXPECT_FALSE(contains(get("/account"), "Use Local"));
    EXPECT_EQ(models.lastKey(), "");
    change("disconnect");
    // A web server that is no model server is not offered.
    models.set(models.onList, FakeModels::reply("<html>"));
    EXPECT_TRUE(contains(get("/account"), "No answer from Local (port "));
}

TEST_F(AccountPage, SilentLocalServersDoNotHoldThePageUp)
{
    std::promise<void> release;
    auto released = release.get_future().share();
    models.set(models.onList, [released](const httplib::Request &, httplib::Response &) {
        released.wait_for(seconds(20));
    });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(contains(get("/account"), "No answer from Local"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(8));
    release.set_value();
}

TEST_F(AccountPage, OnlyPagesProbeTheMachine)
{
    const auto page = server->client().Get("/account", {{"Sec-Fetch-Dest", "image"}});
    EXPECT_TRUE(contains(page->body, "No answer from Local"));
}

TEST_F(AccountPage, OnlyTheOwnerConnects)
{
    const std::string nonce = hiddenValue(get("/account"), "nonce");
    connected();
    const std::string setup = hiddenValue(get("/account/connect"), "setup");
    const auto refused = [&](const httplib::Headers &headers) {
        const auto page = server->client().Get("/account", headers);
        EXPECT_EQ(page->status, 200);
        EXPECT_FALSE(contains(page->body, "<form"));
        EXPECT_EQ(server->client().Get("/account/connect", headers)->status, 303);
        EXPECT_EQ(
            post("/account/connect", {{"nonce", nonce}, {"choice", "keyed"}, {"key", "k"}}, headers)
                ->status,
            403);
        EXPECT_EQ(post("/account/connect/models",
                       {{"setup", setup}, {"action", "save"}, {"m0", "on"}}, headers)
                      ->status,
                  403);
        EXPECT_EQ(post("/account/change", {{"nonce", nonce}}, headers)->status, 403);
        EXPECT_FALSE(std::filesystem::exists(file()));
    };
    ownUser = false;
    refused({});
    ownUser = true;
    // Behind a proxy everybody would look like the owner.
    for (const char *header :
         {"Forwarded", "X-Forwarded-For", "X-Forwarded-Host", "X-Real-IP", "Via"})
        refused({{header, "x"}});
    server.reset();
    config.server.oneClickSignIn = false;
    start();
    EXPECT_FALSE(contains(get("/account"), "<form"));
    server.reset();
    config.server.oneClickSignIn = true;
    config.server.allowedHosts = {"models.lan"};
    start();
    const auto named = server->client().Get("/account", {{"Host", "models.lan"}});
    EXPECT_EQ(named->status, 200);
    EXPECT_FALSE(contains(named->body, "<form"));
}

TEST_F(AccountPage, ForgedSubmissionsAreRefused)
{
    const std::string nonce = hiddenValue(get("/account"), "nonce");
    const httplib::Params fields = {{"nonce", nonce}, {"choice", "keyed"}, {"key", key}};
    for (const char *path : {"/account/connect", "/account/connect/models", "/account/change"}) {
        EXPECT_EQ(post(path, fields, {{"Origin", "http://evil.example"}})->status, 403);
        EXPECT_EQ(post(path, fields, {{"Origin", "null"}})->status, 403);
        EXPECT_EQ(post(path, fields, {{"Sec-Fetch-Site", "cross-site"}})->status, 403);
        EXPECT_EQ(post(path, fields, {{"Host", "evil.example"}})->status, 421);
        EXPECT_EQ(post(path, {{"nonce", "guess"}, {"setup", "guess"}, {"action", "save"}})->status,
                  400);
    }
    EXPECT_EQ(server->client().Get("/account", {{"Host", "evil.example"}})->status, 421);
    EXPECT_EQ(server->client().Get("/account/connect", {{"Host", "evil.example"}})->status, 421);
    EXPECT_EQ(post("/account/connect", fields)->status, 303);
    // A token is good for one submission, and not for long.
    EXPECT_EQ(post("/account/connect", fields)->status, 400);
    const std::string late = hiddenValue(get("/account"), "nonce");
    clock.advance(std::chrono::minutes(11));
    EXPECT_EQ(
        post("/account/connect", {{"nonce", late}, {"choice", "keyed"}, {"key", key}})->status,
        400);
    EXPECT_FALSE(contains(pages, key));
}

TEST_F(AccountPage, PagesRunNoScriptAndAreNotKept)
{
    connected();
    for (const char *path : {"/account", "/account/connect"}) {
        const auto page = server->client().Get(path);
        EXPECT_EQ(page->get_header_value("Content-Security-Policy"),
                  "default-src 'none'; style-src 'self'; base-uri 'none'; frame-ancestors 'none'; "
                  "form-action 'self'");
        EXPECT_EQ(page->get_header_value("X-Frame-Options"), "DENY");
        EXPECT_EQ(page->get_header_value("Cache-Control"), "no-store");
        EXPECT_EQ(page->get_header_value("Access-Control-Allow-Origin"), "");
        EXPECT_FALSE(contains(page->body, "<script"));
        EXPECT_FALSE(contains(page->body, "style=\""));
    }
}

TEST_F(AccountPage, AnotherPageThatStartedOverWins)
{
    connected();
    const std::string first = hiddenValue(get("/account/connect"), "setup");
    connected();
    const auto late =
        post("/account/connect/models", {{"setup", first}, {"action", "save"}, {"m0", "on"}});
    EXPECT_EQ(late->status, 400);
    EXPECT_TRUE(contains(late->body, "This page has expired"));
    EXPECT_FALSE(std::filesystem::exists(file()));
    EXPECT_EQ(act("cancel")->get_header_value("Location"), "/account");
    EXPECT_EQ(server->client().Get("/account/connect")->get_header_value("Location"), "/account");
}

TEST_F(AccountPage, ConnectionsAreChangedAndDisconnected)
{
    save();
    EXPECT_EQ(change("change"), "/account/connect");
    const std::string page = settled();
    EXPECT_TRUE(contains(page, "<h1>Change Keyed</h1>"));
    EXPECT_TRUE(contains(page, "name=\"m0\" checked"));
    EXPECT_EQ(models.lastKey(), std::string("Bearer ") + key);
    act("save", {{"m1", "on"}});
    EXPECT_EQ(record().at("model"), "beta");
    EXPECT_EQ(record().at("availableModels").size(), 1U);

    EXPECT_EQ(change("disconnect"), "/account");
    EXPECT_TRUE(contains(get("/account"), "Keyed is disconnected and its key deleted."));
    EXPECT_EQ(record().at("model"), "offline");
    std::stringstream stored;
    stored << std::ifstream(file()).rdbuf();
    EXPECT_FALSE(contains(stored.str(), key));
    const auto gone = post("/account/change",
                           {{"nonce", hiddenValue(get("/account"), "nonce")}, {"address", "x"}});
    EXPECT_EQ(gone->status, 404);
    EXPECT_FALSE(contains(pages, key));
}

TEST_F(AccountPage, ModelsNoLongerListedStayChosenOnChange)
{
    save();
    models.set(models.onList, FakeModels::reply(R"({"data":[{"id":"gamma"},{"id":"delta"}]})"));
    change("change");
    const std::string page = settled();
    EXPECT_TRUE(contains(page, "name=\"m2\" checked><span class=\"grow\">alpha")) << page;
}

TEST_F(AccountPage, FailedSavingKeepsEverythingAsItWas)
{
    connected();
    std::filesystem::create_directories(file());
    EXPECT_EQ(act("save", {{"m0", "on"}})->get_header_value("Location"), "/account/connect");
    EXPECT_TRUE(contains(settled(), "Not saved: cannot replace"));
    EXPECT_EQ(record().at("model"), "offline");
    std::filesystem::remove(file());
    act("save", {{"m0", "on"}});
    EXPECT_EQ(record().at("model"), "alpha");
}

TEST_F(AccountPage, UnreadableConnectionsAreToldAndKept)
{
    server.reset();
    std::filesystem::create_directories(file().parent_path());
    std::ofstream(file()) << "{ broken";
    start();
    EXPECT_TRUE(contains(get("/account"), "connections.json: cannot be understood"));
    EXPECT_EQ(record().at("model"), "offline");
    save();
    EXPECT_FALSE(contains(get("/account"), "cannot be understood"));
    std::stringstream kept;
    kept << std::ifstream(file().string() + ".unreadable").rdbuf();
    EXPECT_EQ(kept.str(), "{ broken");
}

TEST_F(AccountPage, TheAppIsToldWhenNothingIsConnected)
{
    EXPECT_EQ(record().at("connectModel"), true);
    EXPECT_EQ(json::parse(server->verify(server->token())->body).at("config").at("connectModel"),
              true);
    ownUser = false;
    EXPECT_FALSE(record().contains("connectModel"));
    ownUser = true;
    save();
    EXPECT_FALSE(record().contains("connectModel"));
}

TEST_F(AccountPage, OfflineAnswersLeadToThePage)
{
    const std::string page = "http://127.0.0.1:" + std::to_string(server->port()) + "/account";
    const auto lastLine = [&] {
        std::string text = answerText(server->query(server->token())->body);
        text.pop_back();
        return text.substr(text.rfind('\n') + 1);
    };
    EXPECT_EQ(lastLine(), "This answer was made on this machine, without a model. For real answers "
                          "choose **Connect a model** in the menu, or open <" +
                              page + ">.");
    ownUser = false;
    EXPECT_TRUE(contains(lastLine(), "set `ANTHROPIC_API_KEY`"));
}

TEST_F(AccountPage, ConfiguredModelsStayAndComeFirst)
{
    server.reset();
    config = withChoices(
        testConfig(directory, "[openai]\nbase_url = '" + models.url() + "'\nmodel = 'alpha'"),
        models.url());
    start();
    const std::string page = get("/account");
    EXPECT_TRUE(contains(page, "Configured models"));
    EXPECT_FALSE(contains(page, "No model is connected yet"));
    EXPECT_FALSE(record().contains("connectModel"));
    save();
    EXPECT_TRUE(
        contains(get("/account"), "Saved. The models are in the app&#39;s model list now."));
    EXPECT_EQ(record().at("model"), "alpha");
    const json list = record().at("availableModels");
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list.at(1).at("id"), "alpha@127.0.0.1");
    const auto answer = server->query(server->token(), "Why?", {{"model", "alpha@127.0.0.1"}});
    EXPECT_EQ(answerText(answer->body), "Red.");
    EXPECT_EQ(models.lastKey(), std::string("Bearer ") + key);
}

TEST_F(AccountPage, OfflineOnPurposeConnectsNothing)
{
    save();
    server.reset();
    config.useFallbackProvider();
    start();
    EXPECT_EQ(record().at("model"), "offline");
    EXPECT_FALSE(record().contains("connectModel"));
    const std::string page = get("/account");
    EXPECT_TRUE(contains(page, "started to work offline"));
    EXPECT_FALSE(contains(page, "<form"));
}

} // namespace
} // namespace quellora::server
