#include "model/ProviderWords.h"

#include "base/JsonAccess.h"
#include "base/Text.h"

#include <cstdint>

namespace quellora::server {
namespace {

constexpr std::size_t longestWords = 400;

/// Characters that change how the text around them is shown.
bool isDirecting(std::uint32_t c)
{
    return (c >= 0x200B && c <= 0x200F) || (c >= 0x2028 && c <= 0x202E) ||
           (c >= 0x2060 && c <= 0x206F) || c == 0x061C || c == 0xFEFF;
}

} // namespace

std::string displayText(std::string_view text, std::size_t most)
{
    std::string out;
    bool hasGap = false;
    while (!text.empty()) {
        const auto [c, length] = firstCharacter(text);
        const std::string_view piece = text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
        if (length == 0 || c <= 0x20 || (c >= 0x7F && c <= 0xA0) || isDirecting(c)) {
            hasGap = hasGap || !isDirecting(c);
            continue;
        }
        const bool wantsGap = hasGap && !out.empty();
        if (out.size() + piece.size() + (wantsGap ? 1 : 0) > most) {
            out += "…";
            break;
        }
        if (wantsGap)
            out += ' ';
        hasGap = false;
        out += piece;
    }
    return out;
}

std::string providerWords(std::string_view body)
{
    std::string words;
    if (const auto record = parsedObject(body)) {
        const nlohmann::json &error = memberOf(*record, "error");
        if (error.is_string())
            words = error.get<std::string>();
        else if (const auto nested = textOf(error, "message"))
            words = *nested;
        else
            words = textOf(*record, "message").value_or(textOf(*record, "detail").value_or(""));
    } else if (body.size() <= longestWords && body.find('<') == std::string_view::npos) {
        // Small servers answer with a line of text; web pages are of no use here.
        words = std::string(body);
    }
    return displayText(words, longestWords);
}

} // namespace quellora::server
