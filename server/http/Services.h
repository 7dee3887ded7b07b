#pragma once

#include "base/Clock.h"
#include "base/Metrics.h"
#include "base/Stop.h"
#include "base/WorkerPool.h"
#include "config/Config.h"
#include "http/Message.h"
#include "http/RunningStreams.h"
#include "model/EventLoop.h"
#include "model/ModelCatalog.h"
#include "store/Accounts.h"
#include "store/AnswerLedger.h"
#include "store/Messages.h"
#include "store/RateLimiter.h"
#include "store/Sessions.h"
#include "store/StoredSettings.h"
#include "store/Telemetry.h"
#include "store/UploadedLogs.h"
#include "store/UsageLedger.h"

#include <functional>
#include <memory>

namespace quellora::server {

/// Whether a request comes from the user running the server.
using OwnUserCheck = std::function<bool(const Request &)>;

/// What the request handlers share; owned by the server. All members are thread-safe.
struct Services
{
    Services(Config configuration, Database &store, const PasswordHasher &hasher,
             const Clock &wallClock, OwnUserCheck ownUserCheck);

    Config config;
    Database &database;
    const Clock &clock;
    Metrics metrics;
    EventLoops loops;
    /// For requests.
    WorkerPool workers;
    /// For requests that check a password, which takes a while and much memory.
    WorkerPool passwordWorkers;
    /// For answers that are made on this machine.
    WorkerPool answerWorkers;
    Accounts accounts;
    Sessions sessions;
    UsageLedger usage;
    AnswerLedger answers;
    Telemetry telemetry;
    UploadedLogs logs;
    Messages messages;
    StoredSettings settings;
    ModelOffers models;
    OwnUserCheck ownUser;
    std::unique_ptr<RateLimiter> queryRate;
    std::unique_ptr<RateLimiter> loginFailures;
    std::unique_ptr<RateLimiter> authRate;
    std::unique_ptr<RateLimiter> uploadRate;
    RunningStreams streams;
    /// Requested at shutdown.
    StopSource stopping;

    /// Counts an attempt to sign in from the client's address; the wait when there were too many.
    std::optional<std::chrono::seconds> throttle(const Request &request) const;
};

} // namespace quellora::server
