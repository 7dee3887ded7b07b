#include "base/Text.h"

#include <sodium.h>

#include <algorithm>
#include <charconv>
#include <ctime>

namespace quellora::server {
namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::string formDecoded(std::string_view text)
{
    std::string spaced(text);
    std::replace(spaced.begin(), spaced.end(), '+', ' ');
    return percentDecoded(spaced);
}

std::tm utc(TimePoint time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm fields{};
    gmtime_r(&seconds, &fields);
    return fields;
}

} // namespace

std::string trimmed(std::string_view text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return std::string(text);
}

std::string lowered(std::string_view text)
{
    std::string out(text);
    for (char &c : out) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

std::string htmlEscaped(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\'':
            out += "&#39;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string urlEncoded(std::string_view text)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    for (const char c : text) {
        const bool unreserved = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                                (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
                                c == '~';
        if (unreserved) {
            out += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            out += '%';
            out += digits[byte >> 4U];
            out += digits[byte & 15U];
        }
    }
    return out;
}

std::string percentDecoded(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
            hexValue(text[i + 2]) >= 0) {
            out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::pair<char32_t, std::size_t> firstCharacter(std::string_view text)
{
    const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC2 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF5 ? 4
                                              : 0;
    if (length == 0 || text.size() < length)
        return {0, 0};
    char32_t value = length == 1 ? first : first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuationByte(static_cast<char>(byte(i))))
            return {0, 0};
        value = (value << 6U) | (byte(i) & 0x3FU);
    }
    const bool isOverlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
    const bool isForbidden = (value >= 0xD800 && value <= 0xDFFF) || value > 0x10FFFF;
    if (isOverlong || isForbidden)
        return {0, 0};
    return {value, length};
}

std::string validUtf8(std::string text)
{
    constexpr std::string_view replacement = "\xEF\xBF\xBD";
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t length = firstCharacter(std::string_view(text).substr(at)).second;
        if (length == 0)
            break;
        at += length;
    }
    if (at == text.size())
        return text;
    std::string repaired = text.substr(0, at);
    for (std::string_view rest = std::string_view(text).substr(at); !rest.empty();) {
        const std::size_t length = firstCharacter(rest).second;
        repaired += length == 0 ? replacement : rest.substr(0, length);
        rest.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return repaired;
}

std::map<std::string, std::string> formFields(std::string_view body)
{
    std::map<std::string, std::string> fields;
    while (!body.empty()) {
        const std::size_t end = std::min(body.find('&'), body.size());
        const std::string_view pair = body.substr(0, end);
        const std::size_t equals = std::min(pair.find('='), pair.size());
        const std::string_view value =
            equals < pair.size() ? pair.substr(equals + 1) : std::string_view();
        if (!pair.empty())
            fields.emplace(validUtf8(formDecoded(pair.substr(0, equals))),
                           validUtf8(formDecoded(value)));
        body.remove_prefix(std::min(end + 1, body.size()));
    }
    return fields;
}

std::optional<std::string> base64Decoded(std::string_view text)
{
    // The library takes bytes beyond ASCII for digits.
    if (std::any_of(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; }))
        return std::nullopt;
    std::string bytes(text.size() / 4 * 3 + 3, '\0');
    std::size_t length = 0;
    if (sodium_base642bin(reinterpret_cast<unsigned char *>(bytes.data()), bytes.size(),
                          text.data(), text.size(), nullptr, &length, nullptr,
                          sodium_base64_VARIANT_ORIGINAL) != 0)
        return std::nullopt;
    bytes.resize(length);
    return bytes;
}

std::string base64Encoded(std::string_view bytes)
{
    std::string text(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(text.data(), text.size(),
                      reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(),
                      sodium_base64_VARIANT_ORIGINAL);
    text.pop_back();
    return text;
}

std::optional<std::int64_t> parseCount(std::string_view text)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty() || value < 0)
        return std::nullopt;
    return value;
}

std::int64_t estimatedTokens(std::size_t bytes)
{
    return static_cast<std::int64_t>((bytes + bytesPerToken - 1) / bytesPerToken);
}

int compareVersions(std::string_view left, std::string_view right)
{
    while (!left.empty() || !right.empty()) {
        const auto takePart = [](std::string_view &version) {
            const std::size_t end = std::min(version.find('.'), version.size());
            const std::int64_t value = parseCount(version.substr(0, end)).value_or(0);
            version.remove_prefix(std::min(end + 1, version.size()));
            return value;
        };
        const std::int64_t a = takePart(left);
        const std::int64_t b = takePart(right);
        if (a != b)
            return a < b ? -1 : 1;
    }
    return 0;
}

std::string billingPeriod(TimePoint time)
{
    return isoTime(time).substr(0, 7);
}

std::string isoDay(TimePoint time)
{
    return isoTime(time).substr(0, 10);
}

std::string isoTime(TimePoint time)
{
    const std::tm fields = utc(time);
    char buffer[40];
    const std::size_t length = std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &fields);
    return std::string(buffer, length);
}

std::optional<std::string> normalizedEmail(std::string_view text)
{
    std::string email = lowered(trimmed(text));
    const std::size_t at = email.find('@');
    const bool shaped = at != std::string::npos && at > 0 && at + 1 < email.size() &&
                        email.find('@', at + 1) == std::string::npos && email.size() <= 254;
    const bool clean = std::none_of(email.begin(), email.end(), [](char c) {
        return static_cast<unsigned char>(c) <= 0x20 || c == 0x7f;
    });
    if (!shaped || !clean)
        return std::nullopt;
    return email;
}

} // namespace quellora::server
