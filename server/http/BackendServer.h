#pragma once

#include "admin/TeamRoutes.h"
#include "http/AccountRoutes.h"
#include "http/AuthRoutes.h"
#include "http/HttpServer.h"
#include "http/OperationRoutes.h"
#include "http/PageRoutes.h"
#include "http/QueryRoutes.h"
#include "http/Services.h"
#include "http/UploadRoutes.h"
#include "store/ChangeFeed.h"

#include <tl/expected.hpp>

#include <future>
#include <memory>
#include <string>

namespace quellora::server {

/// The HTTP server with all its routes. It serves from bind() on, on threads of its own; run()
/// waits until stop() was called.
class BackendServer
{
public:
    BackendServer(Config config, Database &database, const PasswordHasher &hasher,
                  const Clock &clock, OwnUserCheck ownUser = {});
    /// Stops the server if stop() was not called.
    ~BackendServer();
    BackendServer(const BackendServer &) = delete;
    BackendServer &operator=(const BackendServer &) = delete;

    /// Starts listening and serving, and following changes in the store. Returns the port, or why
    /// it failed. Throws DatabaseError.
    tl::expected<int, std::string> bind();
    /// "http://host:port", once bound.
    std::string address() const;
    /// The ids of the models on offer and the default one, for the log.
    std::string models() const;
    /// The running answers, whose leases are to be renewed.
    AnswerLedger &answers() { return m_services.answers; }
    /// Returns once stop() has ended everything.
    void run();
    /// Accepts nothing more, lets running answers go on for the configured grace, then ends them
    /// with an error event, and ends all threads. To be called once, from any thread.
    void stop();
    /// Ends the grace of stop(). May be called from another thread, at any time.
    void hurry() { m_services.streams.interrupt(); }

private:
    void registerRoutes();
    /// Serves GET and HEAD of @p path.
    void page(const std::string &path, Handler handler);
    /// Serves POST of @p path with a body of at most @p limit bytes.
    void post(const std::string &path, std::size_t limit, Handler handler,
              Lane lane = Lane::Requests);

    Services m_services;
    RequestGuard m_guard;
    AuthRoutes m_auth;
    QueryRoutes m_query;
    UploadRoutes m_uploads;
    PageRoutes m_pages;
    AccountRoutes m_account;
    OperationRoutes m_operation;
    TeamRoutes m_team;
    Router m_router;
    HttpServer m_http;
    std::unique_ptr<ChangeFeed> m_changes;
    int m_port = 0;
    bool m_isStopped = false;
    std::promise<void> m_stopped;
};

} // namespace quellora::server
