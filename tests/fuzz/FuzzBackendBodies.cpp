#include "FakeUpstream.h"
#include "Fuzz.h"
#include "base/Log.h"
#include "http/AccountRoutes.h"
#include "http/AuthRoutes.h"
#include "http/PageRoutes.h"
#include "http/QueryRoutes.h"
#include "http/UploadRoutes.h"

#include <nlohmann/json.hpp>

#include <filesystem>

using namespace quellora::server;
using namespace quellora::fuzz;

namespace {

/// A clock that moves a second with every look, so that no rate is ever exceeded.
class RunningClock : public Clock
{
public:
    TimePoint now() const override { return TimePoint(std::chrono::seconds(++m_seconds)); }

private:
    mutable std::atomic<std::int64_t> m_seconds{1768478400};
};

Config config(const std::filesystem::path &folder)
{
    const auto none = [](const char *) -> std::optional<std::string> { return std::nullopt; };
    Config config = Config::parse("", "none", none).value();
    config.security.passwordCost = PasswordCost{1, 8192};
    config.dataFile = folder / "backend.sqlite";
    for (ConfiguredProvider &provider : config.providers) {
        provider.makeAnswer = [](const Config &) -> AnswerFunction {
            return [](const ModelRequest &request, const TextSink &sink, const StopToken &) {
                sink(request.prompt);
                AnswerOutcome outcome;
                outcome.kind = AnswerOutcome::Kind::Complete;
                return outcome;
            };
        };
    }
    return config;
}

struct Folder
{
    Folder()
    {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quellora-fuzz-XXXXXX").string();
        path = ::mkdtemp(pattern.data());
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::filesystem::path path;
};

/// The backend without its sockets, with an account.
struct Backend
{
    Backend()
        : settings(config(folder.path))
        , hasher(settings.security.passwordCost)
        , database(settings.dataFile)
        , services(settings, database, hasher, clock, [](const Request &) { return true; })
        , auth(services)
        , query(services)
        , uploads(services)
        , pages(services)
        , account(services)
    {
        database.execute("PRAGMA synchronous = OFF");
        const auto created = services.accounts.create("ann@example.org", "correct", "local", 0);
        require(created.has_value());
        token = services.sessions.issue(created->id).token;
    }
    ~Backend() { account.stop(); }

    Folder folder;
    RunningClock clock;
    Config settings;
    PasswordHasher hasher;
    Database database;
    Services services;
    AuthRoutes auth;
    QueryRoutes query;
    UploadRoutes uploads;
    PageRoutes pages;
    AccountRoutes account;
    std::string token;
};

/// A form's single-use token, as the page of the account carries it.
std::string nonceOf(Backend &backend, const Request &request)
{
    Response page;
    backend.account.overview(request, page);
    const std::string mark = "name=\"nonce\" value=\"";
    const std::size_t begin = page.body.find(mark);
    if (begin == std::string::npos)
        return {};
    const std::size_t from = begin + mark.size();
    return page.body.substr(from, page.body.find('"', from) - from);
}

void drain(Response &response)
{
    if (!response.stream)
        return;
    bool isOpen = true;
    BodySink sink{[&response](std::string_view bytes) {
                      response.body += bytes;
                      return true;
                  },
                  [&isOpen] { isOpen = false; }};
    while (isOpen && response.stream(sink)) {
    }
}

} // namespace

/// The input as the body of each kind of request. A reply is always made, and in valid UTF-8.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static Backend backend;
    Choices choices(view(data, size));
    const int route = choices.byte() % 9;
    Request request;
    request.method = "POST";
    request.peerAddress = "127.0.0.1";
    request.body = std::string(choices.rest());
    request.headers.add("Host", "127.0.0.1:9878");
    request.headers.add("Authorization", "Bearer " + backend.token);
    request.headers.add("X-App-Version", "1.0.0");
    const bool isForm = route >= 5;
    request.headers.add("Content-Type",
                        isForm ? "application/x-www-form-urlencoded" : "application/json");
    if (isForm) {
        setUpstreamReply({R"({"data":[{"id":"one"},{"id":"two"}]})"});
        const std::size_t place = request.body.find("NONCE");
        if (place != std::string::npos)
            request.body.replace(place, 5, nonceOf(backend, request));
    }
    Response response;
    switch (route) {
    case 0:
        backend.auth.login(request, response);
        break;
    case 1:
        backend.auth.verify(request, response);
        break;
    case 2:
        backend.query.query(request, response);
        break;
    case 3:
        backend.uploads.telemetry(request, response);
        break;
    case 4:
        backend.uploads.logs(request, response);
        break;
    case 5:
        backend.pages.loginSubmit(request, response);
        break;
    case 6:
        backend.account.connect(request, response);
        break;
    case 7:
        backend.account.choose(request, response);
        break;
    default:
        backend.account.change(request, response);
        break;
    }
    drain(response);
    require(response.status >= 200 && response.status < 500);
    try {
        static_cast<void>(nlohmann::json(response.body).dump());
    } catch (const nlohmann::json::type_error &) {
        require(false);
    }
    return 0;
}
