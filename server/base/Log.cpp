#include "base/Log.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>
#include <utility>

namespace quellora::server {
namespace {

thread_local std::string currentRequest;

} // namespace

Log::RequestScope::RequestScope(std::string id)
    : m_before(std::exchange(currentRequest, std::move(id)))
{}

Log::RequestScope::~RequestScope()
{
    currentRequest = std::move(m_before);
}

void Log::event(std::string_view message)
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "[%02d:%02d:%02d.%03d] ", local.tm_hour, local.tm_min,
                  local.tm_sec, static_cast<int>(millis));
    std::string line = stamp;
    line += message;
    if (!currentRequest.empty())
        line += " (request " + currentRequest + ')';
    // Prevents untrusted values from forging log lines.
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace quellora::server
