#include "http/Replies.h"

#include "base/JsonAccess.h"

namespace quellora::server {

void replyJson(Response &response, int status, const std::string &json)
{
    response.status = status;
    response.headers.set("Cache-Control", "no-store");
    response.setBody(json, "application/json");
}

void replyError(Response &response, int status, const std::string &text)
{
    replyJson(response, status, compactJson({{"error", text}}));
}

void replyRateLimited(Response &response, std::chrono::seconds wait)
{
    response.headers.set("Retry-After", std::to_string(wait.count()));
    replyJson(response, 429, compactJson({{"resetInSeconds", wait.count()}}));
}

void replySpent(Response &response, std::int64_t tokensRemaining)
{
    replyJson(response, 429, compactJson({{"tokensRemaining", tokensRemaining}}));
}

} // namespace quellora::server
