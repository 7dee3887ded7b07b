#pragma once

#include <string_view>

namespace quellora::server {

/// Diagnostic lines of the backend, on standard error: "[HH:MM:SS.mmm] message".
/// Tokens, passwords, prompts and answers never go through here.
class Log
{
public:
    /// Writes one line. Callable from any thread; line breaks inside @p message become blanks.
    static void event(std::string_view message);
};

} // namespace quellora::server
