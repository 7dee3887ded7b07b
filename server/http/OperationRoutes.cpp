#include "http/OperationRoutes.h"

#include "base/JsonAccess.h"
#include "base/Log.h"
#include "http/Contract.h"
#include "http/MetricsText.h"
#include "http/Replies.h"

#include <sodium.h>

namespace quellora::server {

void OperationRoutes::live(const Request &, Response &response) const
{
    response.headers.set("Cache-Control", "no-store");
    response.setBody("ok\n", "text/plain; charset=utf-8");
}

void OperationRoutes::ready(const Request &, Response &response) const
{
    if (m_services.stopping.stopRequested()) {
        replyJson(response, 503, compactJson({{"status", "draining"}}));
        return;
    }
    try {
        m_services.database.query("SELECT id FROM accounts LIMIT 1", {},
                                  [](const Database::Row &) {});
    } catch (const DatabaseError &problem) {
        Log::event(std::string("[OperationRoutes] ERROR: Not ready: ") + problem.what());
        replyJson(response, 503, compactJson({{"status", "store-unreachable"}}));
        return;
    }
    replyJson(response, 200, compactJson({{"status", "ready"}}));
}

bool OperationRoutes::mayWatch(const Request &request) const
{
    const std::string &wanted = m_services.config.server.metricsToken;
    if (const auto token = RequestGuard::bearerToken(request))
        return !wanted.empty() && token->size() == wanted.size() &&
               sodium_memcmp(token->data(), wanted.data(), wanted.size()) == 0;
    return m_guard.isLocal(request);
}

void OperationRoutes::metrics(const Request &request, Response &response) const
{
    if (!mayWatch(request)) {
        replyError(response, 403, "for this machine, or with the metrics token");
        return;
    }
    response.headers.set("Cache-Control", "no-store");
    response.setBody(metricsText(m_services.metrics,
                                 {{"requests", m_services.workers.waiting()},
                                  {"passwords", m_services.passwordWorkers.waiting()},
                                  {"answers", m_services.answerWorkers.waiting()}},
                                 m_services.models.current()->standings()),
                     "text/plain; version=0.0.4; charset=utf-8");
}

void OperationRoutes::contract(const Request &, Response &response) const
{
    response.headers.set("Cache-Control", "no-cache");
    response.setBody(std::string(contractJson()), "application/json");
}

} // namespace quellora::server
