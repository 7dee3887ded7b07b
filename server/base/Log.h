#pragma once

#include <string>
#include <string_view>

namespace quellora::server {

/// Diagnostic lines of the backend, on standard error: "[HH:MM:SS.mmm] message", and the
/// request that it is about.
/// Tokens, passwords, prompts and answers are never logged.
class Log
{
public:
    /// Names the request that the lines of this thread are about, while it exists.
    class RequestScope
    {
    public:
        explicit RequestScope(std::string id);
        ~RequestScope();
        RequestScope(const RequestScope &) = delete;
        RequestScope &operator=(const RequestScope &) = delete;

    private:
        std::string m_before;
    };

    /// Writes one line. Callable from any thread; line breaks in @p message become spaces.
    static void event(std::string_view message);
};

} // namespace quellora::server
