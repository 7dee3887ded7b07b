#include "base/Log.h"

#include "base/JsonAccess.h"
#include "base/Secrets.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace quellora::server {
namespace {

std::atomic<Log::Format> chosenFormat{Log::Format::Text};
thread_local std::string requestId;

void write(std::string line)
{
    line += '\n';
    // One call per line, so that lines of several threads do not mix.
    static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

/// The time as "HH:MM:SS.mmm", local, or as "YYYY-MM-DDTHH:MM:SS.mmmZ", UTC.
std::string stamp(Log::Format format)
{
    const bool isJson = format == Log::Format::Json;
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm parts{};
    if (isJson)
        gmtime_r(&seconds, &parts);
    else
        localtime_r(&seconds, &parts);
    char text[48];
    const std::size_t length = isJson ? std::strftime(text, 32, "%Y-%m-%dT%H:%M:%S", &parts)
                                      : std::strftime(text, 32, "%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, isJson ? ".%03dZ" : ".%03d",
                  static_cast<int>(millis));
    return text;
}

nlohmann::ordered_json record(const char *level, std::string_view source, std::string_view message)
{
    nlohmann::ordered_json entry = {{"time", stamp(Log::Format::Json)},
                                    {"level", level},
                                    {"source", source},
                                    {"message", message}};
    if (!requestId.empty())
        entry["request"] = requestId;
    return entry;
}

void write(const nlohmann::ordered_json &entry)
{
    write(entry.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

/// Removes @p prefix from @p text; false when it does not begin with it.
bool take(std::string_view &text, std::string_view prefix)
{
    if (text.substr(0, prefix.size()) != prefix)
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

} // namespace

void Log::setFormat(Format format)
{
    chosenFormat = format;
}

void Log::event(std::string_view message)
{
    std::string text(message);
    // Prevents untrusted values from forging log lines.
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    if (chosenFormat == Format::Text) {
        write(std::string("[").append(stamp(Log::Format::Text)).append("] ").append(text));
        return;
    }
    std::string_view rest = text;
    std::string_view source;
    const std::size_t end = rest.find("] ");
    if (!rest.empty() && rest.front() == '[' && end != std::string_view::npos) {
        source = rest.substr(1, end - 1);
        rest.remove_prefix(end + 2);
    }
    const char *level = take(rest, "ERROR: ")     ? "error"
                        : take(rest, "WARNING: ") ? "warning"
                                                  : "info";
    write(record(level, source, rest));
}

void Log::request(std::string_view method, std::string_view route, int status, double seconds)
{
    if (chosenFormat != Format::Json)
        return;
    nlohmann::ordered_json entry = record("info", "Request", "answered");
    entry["method"] = method;
    entry["route"] = route;
    entry["status"] = status;
    entry["milliseconds"] = std::round(seconds * 1e6) / 1e3;
    write(entry);
}

LoggedRequest::LoggedRequest(std::string id) : m_outer(std::move(requestId))
{
    requestId = std::move(id);
}

LoggedRequest::~LoggedRequest()
{
    requestId = std::move(m_outer);
}

const std::string &LoggedRequest::current()
{
    return requestId;
}

std::string LoggedRequest::idFor(std::string_view offered)
{
    const bool isPlain = offered.size() >= 8 && offered.size() <= 36 &&
                         std::all_of(offered.begin(), offered.end(), [](char c) {
                             return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') ||
                                    (c >= 'A' && c <= 'F') || c == '-' || c == ':' || c == '_' ||
                                    c == '.';
                         });
    return isPlain ? std::string(offered) : randomUuid();
}

} // namespace quellora::server
