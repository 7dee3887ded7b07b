#pragma once

#include "admin/TeamRoutes.h"
#include "http/AccountRoutes.h"
#include "http/AuthRoutes.h"
#include "http/Message.h"
#include "http/OperationRoutes.h"
#include "http/PageRoutes.h"
#include "http/QueryRoutes.h"
#include "http/Services.h"
#include "http/UploadRoutes.h"

#include <httplib.h>
#include <tl/expected.hpp>

#include <atomic>
#include <string>

namespace quellora::server {

/// The HTTP server with all its routes. Call bind(), then run() on its own thread; stop() from any
/// other thread ends running answers and makes run() return.
class BackendServer
{
public:
    BackendServer(Config config, Database &database, const PasswordHasher &hasher,
                  const Clock &clock, OwnUserCheck ownUser = {});

    /// Starts listening. Returns the port, or why it failed.
    tl::expected<int, std::string> bind();
    /// "http://host:port", once bound.
    std::string address() const;
    /// The ids of the models on offer and the default one, for the log.
    std::string models() const;
    /// The running answers, whose leases are to be renewed.
    AnswerLedger &answers() { return m_services.answers; }
    /// Serves until stop().
    void run();
    void stop();

private:
    using Handler = std::function<void(const Request &, Response &)>;
    void configure();
    void registerRoutes();
    /// Serves GET and HEAD of @p path.
    void page(const std::string &path, Handler handler);
    /// Serves POST of @p path with a body of at most @p limit bytes.
    void post(const std::string &path, std::size_t limit, Handler handler);

    Services m_services;
    RequestGuard m_guard;
    AuthRoutes m_auth;
    QueryRoutes m_query;
    UploadRoutes m_uploads;
    PageRoutes m_pages;
    AccountRoutes m_account;
    std::atomic<std::size_t> m_waiting{0};
    OperationRoutes m_operation;
    TeamRoutes m_team;
    httplib::Server m_server;
    int m_port = 0;
    std::atomic<bool> m_finished{false};
};

} // namespace quellora::server
