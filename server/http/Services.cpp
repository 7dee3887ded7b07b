#include "http/Services.h"

#include "base/Text.h"

#include <algorithm>
#include <thread>

namespace quellora::server {
namespace {

using std::chrono::seconds;
constexpr int uploadsPerMinute = 120;

/// How many requests may wait for each worker.
constexpr std::size_t queuePerWorker = 32;
/// As many as the hasher lets run at a time, and about ten seconds of sign-ins that wait.
constexpr std::size_t passwordThreads = 2;
constexpr std::size_t passwordQueue = 128;
constexpr std::size_t answerThreads = 4;

} // namespace

Services::Services(Config configuration, Database &store, const PasswordHasher &hasher,
                   const Clock &wallClock, OwnUserCheck ownUserCheck)
    : config(std::move(configuration))
    , database(store)
    , clock(wallClock)
    , loops(std::max(1U, std::thread::hardware_concurrency()))
    , workers(config.server.threads, config.server.threads * queuePerWorker)
    , passwordWorkers(passwordThreads, passwordQueue)
    , answerWorkers(answerThreads, answerThreads * queuePerWorker)
    , accounts(database, hasher, wallClock)
    , sessions(database, wallClock, config.security.sessionLifetime,
               config.security.handoverLifetime)
    , usage(database, wallClock)
    , answers(database, wallClock, randomUuid(), config.limits.concurrentQueries)
    , telemetry(database, wallClock)
    , logs(database, wallClock, config.limits.keptLogs)
    , messages(database, wallClock)
    , settings(database, wallClock)
    , models(config, ConnectionFile(config.connectionFile()))
    , ownUser(std::move(ownUserCheck))
    , queryRate(makeRateLimiter(database, wallClock, "query", config.limits.queriesPerMinute,
                                seconds(60)))
    , loginFailures(makeRateLimiter(database, wallClock, "login failure",
                                    config.limits.loginFailures, config.limits.loginWindow))
    , authRate(makeRateLimiter(database, wallClock, "sign-in", config.limits.authRequestsPerMinute,
                               seconds(60)))
    , uploadRate(makeRateLimiter(database, wallClock, "upload", uploadsPerMinute, seconds(60)))
    , streams(static_cast<std::size_t>(config.limits.runningAnswers))
{}

std::optional<seconds> Services::throttle(const Request &request) const
{
    std::vector<std::string> forwarded;
    for (const auto &[name, value] : request.headers) {
        if (lowered(name) == "x-forwarded-for")
            forwarded.push_back(value);
    }
    return authRate->acquire(config.server.trustedProxies.clientOf(request.peerAddress, forwarded));
}

} // namespace quellora::server
