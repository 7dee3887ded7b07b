#pragma once

#include <string>
#include <string_view>

namespace quellora::server {

/// @p text for display: valid UTF-8 on one line without control and direction characters, cut to
/// at most @p most bytes.
std::string displayText(std::string_view text, std::size_t most);

/// The message of an error body or error event as providers write them, ready for display; empty
/// when there is none.
std::string providerWords(std::string_view body);

} // namespace quellora::server
