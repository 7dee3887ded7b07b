#include "Fuzz.h"
#include "model/EventStreamReader.h"
#include "model/ProviderWords.h"
#include "providers/AnthropicEvents.h"
#include "providers/OpenAiEvents.h"
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

/// The events as those of one answer, up to its end as a transfer sees it.
void answer(const std::vector<std::string> &events, const std::unique_ptr<AnswerEvents> &reader)
{
    constexpr std::int64_t mostTokens = 3'000'000'000;
    StreamStep step = StreamStep::Continue;
    std::string_view last;
    for (const std::string &event : events) {
        step = reader->read(event, [](std::string_view text) {
            require(!text.empty());
            require(isUtf8(std::string(text)));
        });
        last = event;
        if (step != StreamStep::Continue)
            break;
    }
    const auto tokens = reader->tokens().value_or(TokenCount{});
    require(tokens.input >= 0 && tokens.input <= mostTokens);
    require(tokens.output >= 0 && tokens.output <= mostTokens);
    require(reader->ending() == AnswerEnding::Whole || reader->isWhole());
    // Whatever the event is, its refusal has a name.
    for (const int status : {0, 400, 429, 500})
        require(handlingOf(reader->faultOf(status, last)).name[0] != '\0');
    require(isUtf8(providerWords(last)));
}

} // namespace

/// The input as what a provider sends: a stream, which gives the same events wherever it is split
/// and is an answer of either format, and a list of models.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Choices choices(view(data, size));
    const std::size_t piece = 1U + choices.byte();
    const auto events = read(choices.rest(), size + 1);
    require(read(choices.rest(), 1) == events);
    // A limit is noticed at the end of a piece, so later events may be lost with it.
    if (events.back() == "end")
        require(read(choices.rest(), piece) == events);
    answer(events, anthropicEvents());
    answer(events, openAiEvents());
    const auto models = listedModels(std::string(choices.rest()), "display_name");
    for (const OfferedModel &model : models.value_or(std::vector<OfferedModel>())) {
        require(!model.name.empty() && !model.title.empty());
        require(isUtf8(model.name) && isUtf8(model.title));
    }
    return 0;
}
