#pragma once

#include <string>
#include <string_view>

namespace quellora::server {

/// Diagnostic lines of the backend, on standard error. Tokens, passwords, prompts and answers are
/// never logged. Callable from any thread.
class Log
{
public:
    enum class Format {
        /// "[HH:MM:SS.mmm] message", local time.
        Text,
        /// One JSON object per line: time (UTC), level, source, message, and the id of the request
        /// that the thread works on.
        Json
    };

    /// Set once, before other threads log.
    static void setFormat(Format format);
    /// Writes one line; line breaks in @p message become spaces. "[Source] " at its beginning names
    /// where it comes from, "WARNING: " or "ERROR: " after that its level.
    static void event(std::string_view message);
    /// Writes how a request was answered. Only in JSON, where it is wanted for statistics. @p route
    /// is the pattern that matched, never the address, which may contain a token.
    static void request(std::string_view method, std::string_view route, int status,
                        double seconds);
};

/// Names the request that this thread works on, during a scope, for its log lines.
class LoggedRequest
{
public:
    explicit LoggedRequest(std::string id);
    ~LoggedRequest();
    LoggedRequest(const LoggedRequest &) = delete;
    LoggedRequest &operator=(const LoggedRequest &) = delete;

    /// The id in force on this thread; empty outside of requests.
    static const std::string &current();
    /// @p offered by a proxy in front if it is a plain id, else a new one.
    static std::string idFor(std::string_view offered);

private:
    std::string m_outer;
};

} // namespace quellora::server
