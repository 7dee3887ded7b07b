#pragma once

#include "http/RequestGuard.h"

namespace quellora::server {

/// POST /api/proxy/query: checks a query and streams its answer.
class QueryRoutes
{
public:
    explicit QueryRoutes(Services &services) : m_services(services), m_guard(services) {}

    void query(const Request &request, Response &response) const;
    /// Ends the answers of an account that no longer may run, since it was suspended, deleted or
    /// signed out. Works on the store. Throws DatabaseError; to be called again then.
    void accountChanged(std::int64_t accountId) const;

private:
    /// What the account has used when it may ask now.
    std::optional<std::int64_t> admitted(const Request &request, Response &response,
                                         const Account &account) const;
    void revoke(std::int64_t accountId) const;
    static void replyRefused(Response &response, const Account &account, std::int64_t used,
                             AnswerRefusal refusal);

    Services &m_services;
    RequestGuard m_guard;
};

} // namespace quellora::server
