#include "http/Services.h"

#include <algorithm>
#include <thread>

namespace quellora::server {
namespace {

using std::chrono::seconds;
constexpr int uploadsPerMinute = 120;

/// How many requests may wait for each worker.
constexpr std::size_t queuePerWorker = 32;
/// As many as the hasher lets run at a time.
constexpr std::size_t passwordThreads = 2;
constexpr std::size_t answerThreads = 4;

} // namespace

Services::Services(Config settings, Database &database, const PasswordHasher &hasher,
                   const Clock &wallClock, OwnUserCheck ownUserCheck)
    : config(std::move(settings))
    , clock(wallClock)
    , loops(std::max(1U, std::thread::hardware_concurrency()))
    , workers(config.server.threads, config.server.threads * queuePerWorker)
    , passwordWorkers(passwordThreads, passwordThreads * queuePerWorker)
    , answerWorkers(answerThreads, answerThreads * queuePerWorker)
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
    , streams(config.limits.concurrentQueries, config.limits.runningAnswers)
{}

} // namespace quellora::server
