#include "store/Database.h"

#include "base/Text.h"

namespace quellora::server {
namespace {

/// Length of the UTF-8 sequence at @p at, or 0 when there is none.
std::size_t sequenceLength(const std::string &text, std::size_t at)
{
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned lead = byte(at);
    if (lead < 0x80)
        return 1;
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    for (std::size_t i = 1; i < length; ++i) {
        if (!isContinuationByte(static_cast<char>(byte(at + i))))
            return 0;
    }
    const unsigned next = byte(at + 1);
    // Overlong forms, surrogates and numbers beyond the last one are no characters.
    const bool isWrong = lead < 0xC2 || lead > 0xF4 || (lead == 0xE0 && next < 0xA0) ||
                         (lead == 0xED && next > 0x9F) || (lead == 0xF0 && next < 0x90) ||
                         (lead == 0xF4 && next > 0x8F);
    return isWrong ? 0 : length;
}

} // namespace

bool isStorableText(const std::string &text)
{
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = sequenceLength(text, at);
        if (length == 0 || text[at] == '\0')
            return false;
        at += length;
    }
    return true;
}

} // namespace quellora::server
