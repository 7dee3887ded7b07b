#include "QtFuzz.h"
#include "query/StreamEventParser.h"

#include <simdjson.h>

#include <string>
#include <vector>

using namespace quellora;
using namespace quellora::fuzz;

namespace {

constexpr std::size_t lineLimit = 4096;

/// What is read when the stream arrives in pieces of sizes taken from @p sizes in turn.
std::vector<std::string> read(std::string_view stream, const std::vector<std::size_t> &sizes)
{
    StreamEventParser parser(lineLimit);
    std::vector<std::string> events;
    const auto drain = [&] {
        while (const auto event = parser.next()) {
            require(simdjson::validate_utf8(event->text.data(), event->text.size()));
            std::string words = std::to_string(static_cast<int>(event->type)) + ':';
            words += event->text;
            for (const qint64 number : {event->done.tokensRemaining, event->done.tokensUsed})
                words += ',' + std::to_string(number);
            words += event->done.usageWarning75 ? '1' : '0';
            words += event->done.usageWarning90 ? '1' : '0';
            words += event->done.usedFallback ? '1' : '0';
            events.push_back(std::move(words));
        }
    };
    for (std::size_t i = 0; !stream.empty(); ++i) {
        const std::string_view piece = stream.substr(0, sizes[i % sizes.size()]);
        parser.feed(piece);
        stream.remove_prefix(piece.size());
        drain();
    }
    parser.finish();
    drain();
    if (parser.isLineTooLong())
        events.emplace_back("too long");
    return events;
}

} // namespace

/// Wherever the stream is split, the same events come out of it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Choices choices(view(data, size));
    const std::vector<std::size_t> sizes{1U + choices.byte() % 32U, 1U + choices.byte()};
    const auto whole = read(choices.rest(), {size + 1});
    require(read(choices.rest(), sizes) == whole);
    require(read(choices.rest(), {1}) == whole);
    return 0;
}
