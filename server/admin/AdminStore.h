#pragma once

#include "admin/AdminSessions.h"
#include "admin/Administrators.h"
#include "admin/Invitations.h"
#include "config/Config.h"
#include "store/Accounts.h"
#include "store/AuditTrail.h"
#include "store/Messages.h"
#include "store/Sessions.h"
#include "store/StoredSettings.h"
#include "store/UploadedLogs.h"
#include "store/UsageLedger.h"

#include <functional>
#include <vector>

namespace quellora::server {

/// The stored data that administrators work with, on the pages and on the command line. All members
/// are thread-safe.
struct AdminStore
{
    /// The models on offer at this moment.
    using OfferedModels = std::function<std::vector<ModelSettings>()>;

    AdminStore(const Config &configuration, Database &store, const PasswordHasher &hasher,
               const Clock &wallClock, OfferedModels offered)
        : config(configuration)
        , database(store)
        , clock(wallClock)
        , models(std::move(offered))
        , accounts(store, hasher, wallClock)
        , sessions(store, wallClock, configuration.security.sessionLifetime,
                   configuration.security.handoverLifetime)
        , usage(store, wallClock)
        , logs(store, wallClock, configuration.limits.keptLogs)
        , messages(store, wallClock)
        , settings(store, wallClock)
        , audit(store, wallClock)
        , administrators(store, hasher, wallClock)
        , adminSessions(store, wallClock)
        , invitations(store, wallClock)
    {}

    const Config &config;
    Database &database;
    const Clock &clock;
    OfferedModels models;
    Accounts accounts;
    Sessions sessions;
    UsageLedger usage;
    UploadedLogs logs;
    Messages messages;
    StoredSettings settings;
    AuditTrail audit;
    Administrators administrators;
    AdminSessions adminSessions;
    Invitations invitations;
};

} // namespace quellora::server
