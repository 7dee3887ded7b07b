#include "Fuzz.h"
#include "base/JsonAccess.h"
#include "model/EventStreamReader.h"
#include "model/ProviderWords.h"
#include "providers/UpstreamSettings.h"

using namespace quellora::server;
using namespace quellora::fuzz;

namespace {

constexpr std::size_t mostEventBytes = 4096;

/// The events of a stream that arrives in pieces, and how it ended.
std::vector<std::string> read(std::string_view stream, std::size_t piece)
{
    std::vector<std::string> events;
    EventStreamReader reader(
        [&events](std::string_view data) {
            events.emplace_back(data);
            return true;
        },
        mostEventBytes);
    bool isFine = true;
    while (isFine && !stream.empty()) {
        isFine = reader.feed(stream.substr(0, piece));
        stream.remove_prefix(std::min(piece, stream.size()));
    }
    events.emplace_back(isFine && reader.finish() ? "end" : "too long");
    return events;
}

/// What the providers look at in an event.
void look(std::string_view data)
{
    require(isUtf8(providerWords(data)));
    const auto event = parsedObject(data);
    if (!event)
        return;
    const nlohmann::json &choices = memberOf(*event, "choices");
    if (choices.is_array() && !choices.empty())
        require(isUtf8(textOf(memberOf(choices.front(), "delta"), "content").value_or("")));
    require(isUtf8(textOf(memberOf(*event, "delta"), "text").value_or("")));
    for (const char *key : {"prompt_tokens", "input_tokens"}) {
        const auto count = countOf(memberOf(*event, "usage"), key);
        require(!count || (*count >= 0 && *count <= 1'000'000'000));
    }
}

} // namespace

/// The input as what a provider sends: a stream, which gives the same events wherever it is split,
/// and a list of models.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Choices choices(view(data, size));
    const std::size_t piece = 1U + choices.byte();
    const auto events = read(choices.rest(), size + 1);
    require(read(choices.rest(), 1) == events);
    // A limit is noticed at the end of a piece, so later events may be lost with it.
    if (events.back() == "end")
        require(read(choices.rest(), piece) == events);
    for (const std::string &event : events)
        look(event);
    const auto models = listedModels(std::string(choices.rest()), "display_name");
    for (const OfferedModel &model : models.value_or(std::vector<OfferedModel>())) {
        require(!model.name.empty() && !model.title.empty());
        require(isUtf8(model.name) && isUtf8(model.title));
    }
    return 0;
}
