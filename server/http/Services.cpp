#include "http/Services.h"

namespace quellora::server {
namespace {

using std::chrono::seconds;
constexpr int uploadsPerMinute = 120;

/// How many threads streams may occupy; the others remain free for short requests.
int streamThreads(std::size_t threads)
{
    return static_cast<int>(threads - threads / 4);
}

} // namespace

Services::Services(Config configuration, Database &store, const PasswordHasher &hasher,
                   const Clock &wallClock, OwnUserCheck ownUserCheck)
    : config(std::move(configuration))
    , database(store)
    , clock(wallClock)
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
    , streams(config.limits.concurrentQueries, streamThreads(config.server.threads))
{}

} // namespace quellora::server
