#pragma once

#include <string_view>

namespace quellora::server {

/// Diagnostic lines of the backend, on standard error: "[HH:MM:SS.mmm] message".
/// Tokens, passwords, prompts and answers are never logged.
class Log
{
public:
    /// Writes one line. Callable from any thread; line breaks in @p message become spaces.
    static void event(std::string_view message);
};

} // namespace quellora::server
