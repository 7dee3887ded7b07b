#pragma once

#include "base/Clock.h"

#include <httplib.h>

#include <chrono>
#include <cstdint>
#include <string>

namespace quellora::server {

/// A JSON body with status.
void replyJson(httplib::Response &response, int status, const std::string &json);
/// {"error": text}. The app does not show it; people with other clients see it.
void replyError(httplib::Response &response, int status, const std::string &text);
/// 429 that asks to wait.
void replyRateLimited(httplib::Response &response, std::chrono::seconds wait);
/// 429 that tells of a spent allowance.
void replySpent(httplib::Response &response, std::int64_t tokensRemaining);

} // namespace quellora::server
