#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace quellora::server {

/// @p text without spaces, tabs and line breaks at both ends.
std::string trimmed(std::string_view text);
/// ASCII letters in lower case; other bytes unchanged.
std::string lowered(std::string_view text);
/// Escapes @p text for HTML text and quoted attributes.
std::string htmlEscaped(std::string_view text);
/// Percent-encoding of everything but unreserved characters.
std::string urlEncoded(std::string_view text);
/// Reverses percent-encoding. What is no encoding stays as it is.
std::string percentDecoded(std::string_view text);
/// The first character of @p text, which is not empty, and its length in bytes; 0 bytes where it is
/// not valid UTF-8.
std::pair<char32_t, std::size_t> firstCharacter(std::string_view text);
/// @p text with U+FFFD in place of each byte that is not part of valid UTF-8.
std::string validUtf8(std::string text);
/// Fields of an application/x-www-form-urlencoded body as valid UTF-8; the first of equal names
/// wins.
std::map<std::string, std::string> formFields(std::string_view body);
/// Bytes of standard base64 (padding required, no line breaks), or nothing.
std::optional<std::string> base64Decoded(std::string_view text);
/// Standard base64 with padding, without line breaks.
std::string base64Encoded(std::string_view bytes);
/// Whole non-negative decimal number, or nothing.
std::optional<std::int64_t> parseCount(std::string_view text);
/// Whether a byte of UTF-8 is not the first one of its character.
inline bool isContinuationByte(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}
/// About as many bytes of text as a token has.
constexpr std::size_t bytesPerToken = 4;
/// Rough token count of @p bytes bytes of text, rounded up.
std::int64_t estimatedTokens(std::size_t bytes);
/// Compares dotted version numbers: -1, 0 or 1. Missing and unreadable parts count as 0.
int compareVersions(std::string_view left, std::string_view right);
/// The billing period of @p time, "YYYY-MM" in UTC.
std::string billingPeriod(TimePoint time);
/// The day of @p time, "YYYY-MM-DD" in UTC.
std::string isoDay(TimePoint time);
/// "YYYY-MM-DDTHH:MM:SSZ".
std::string isoTime(TimePoint time);
/// A plausible e-mail address as stored (trimmed, lower case), or nothing.
std::optional<std::string> normalizedEmail(std::string_view text);

} // namespace quellora::server
