#include "http/Replies.h"

#include "base/JsonAccess.h"

namespace quellora::server {

void replyJson(httplib::Response &response, int status, const std::string &json)
{
    response.status = status;
    response.set_header("Cache-Control", "no-store");
    response.set_content(json, "application/json");
}

void replyError(httplib::Response &response, int status, const std::string &text)
{
    replyJson(response, status, compactJson({{"error", text}}));
}

void replyRateLimited(httplib::Response &response, std::chrono::seconds wait)
{
    response.set_header("Retry-After", std::to_string(wait.count()));
    replyJson(response, 429, compactJson({{"resetInSeconds", wait.count()}}));
}

void replySpent(httplib::Response &response, std::int64_t tokensRemaining)
{
    replyJson(response, 429, compactJson({{"tokensRemaining", tokensRemaining}}));
}

} // namespace quellora::server
