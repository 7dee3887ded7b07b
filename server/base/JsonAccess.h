#pragma once

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quellora::server {

/// Compact JSON on one line. Invalid UTF-8 becomes replacement characters.
inline std::string compactJson(const nlohmann::json &value)
{
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// The parsed object, or nothing when @p text is not a JSON object.
inline std::optional<nlohmann::json> parsedObject(std::string_view text)
{
    // The parser takes a NUL for the end and ignores what follows; no JSON text contains one.
    if (text.find('\0') != std::string_view::npos)
        return std::nullopt;
    auto value = nlohmann::json::parse(text, nullptr, false);
    if (!value.is_object())
        return std::nullopt;
    return value;
}

/// The member @p key, or null when it is missing or @p value is not an object.
inline const nlohmann::json &memberOf(const nlohmann::json &value, const char *key)
{
    static const nlohmann::json nothing;
    if (!value.is_object())
        return nothing;
    const auto found = value.find(key);
    return found == value.end() ? nothing : *found;
}

/// The text under @p key, or nothing.
inline std::optional<std::string> textOf(const nlohmann::json &value, const char *key)
{
    const nlohmann::json &member = memberOf(value, key);
    if (!member.is_string())
        return std::nullopt;
    return member.get<std::string>();
}

/// The non-negative whole number under @p key, or nothing. A larger number than anybody counts to
/// becomes a billion, so that sums of what others claim do not overflow.
inline std::optional<std::int64_t> countOf(const nlohmann::json &value, const char *key)
{
    constexpr std::int64_t most = 1'000'000'000;
    const nlohmann::json &member = memberOf(value, key);
    if (member.is_number_unsigned())
        return static_cast<std::int64_t>(
            std::min<std::uint64_t>(member.get<std::uint64_t>(), most));
    return std::nullopt;
}

} // namespace quellora::server
