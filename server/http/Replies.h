#pragma once

#include "base/Clock.h"
#include "http/Message.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace quellora::server {

/// Sets status and JSON body.
void replyJson(Response &response, int status, const std::string &json);
/// {"error": text}. The app does not show the text; it helps users of other clients.
void replyError(Response &response, int status, const std::string &text);
/// 429 that asks to wait.
void replyRateLimited(Response &response, std::chrono::seconds wait);
/// 429 for a spent allowance.
void replySpent(Response &response, std::int64_t tokensRemaining);

} // namespace quellora::server
