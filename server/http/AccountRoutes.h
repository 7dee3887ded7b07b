#pragma once

#include "connect/ModelSetup.h"
#include "http/RequestGuard.h"
#include "store/FormNonces.h"

namespace quellora::server {

/// The account page. The user running the server connects models on it; everybody else gets a text.
/// Submissions need a token from the page; keys never appear in pages, addresses and the log.
class AccountRoutes
{
public:
    explicit AccountRoutes(Services &services);

    /// GET /account
    void overview(const Request &request, Response &response);
    /// GET /account/connect: the connection being set up.
    void setupPage(const Request &request, Response &response);
    /// POST /account/connect: begins to set up a connection.
    void connect(const Request &request, Response &response);
    /// POST /account/connect/models: choose, test, save or cancel.
    void choose(const Request &request, Response &response);
    /// POST /account/change: changes or removes a connection.
    void change(const Request &request, Response &response);
    /// Ends running transfers.
    void stop() { m_setup.stop(); }
    /// Waits until nothing that it began runs. Call before the event loops stop.
    void finish() { m_setup.finish(); }

private:
    using Fields = std::map<std::string, std::string>;
    struct Entered
    {
        std::string choice;
        std::string address;
    };

    void showOverview(const Request &request, Response &response, int status,
                      const std::string &problem, const Entered &entered = {});
    /// Whether the submission may be handled; else the reply is written.
    bool admitted(const Request &request, Response &response, const Fields &fields,
                  bool wantsNonce);
    void disconnect(Response &response, const Connection &connection);
    void notify(std::string notice);

    Services &m_services;
    RequestGuard m_guard;
    FormNonces m_nonces;
    ModelSetup m_setup;
    std::mutex m_noticeMutex;
    std::string m_notice;
};

} // namespace quellora::server
