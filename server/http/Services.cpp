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

Services::Services(Config settings, Database &database, const PasswordHasher &hasher,
                   const Clock &wallClock, OwnUserCheck ownUserCheck)
    : config(std::move(settings))
    , clock(wallClock)
    , accounts(database, hasher, wallClock)
    , sessions(database, wallClock, config.security.sessionLifetime,
               config.security.handoverLifetime)
    , usage(database, wallClock)
    , telemetry(database, wallClock)
    , logs(config.dataFile.parent_path() / "app-logs", wallClock, config.limits.keptLogs)
    , models(config, ConnectionFile(config.connectionFile()))
    , ownUser(std::move(ownUserCheck))
    , queryRate(wallClock, config.limits.queriesPerMinute, seconds(60))
    , loginFailures(wallClock, config.limits.loginFailures, config.limits.loginWindow)
    , authRate(wallClock, config.limits.authRequestsPerMinute, seconds(60))
    , uploadRate(wallClock, uploadsPerMinute, seconds(60))
    , streams(config.limits.concurrentQueries, streamThreads(config.server.threads))
{}

} // namespace quellora::server
