#include "FakeUpstream.h"
#include "Fuzz.h"
#include "config/Config.h"
#include "model/ProviderWords.h"
#include "providers/UpstreamSettings.h"

#include <nlohmann/json.hpp>

using namespace quellora::server;
using namespace quellora::fuzz;

namespace {

const std::vector<Connector> &connectors()
{
    static const std::vector<Connector> list = [] {
        std::vector<Connector> found;
        const auto none = [](const char *) -> std::optional<std::string> { return std::nullopt; };
        const Config config = Config::parse("", "none", none).value();
        for (const ConfiguredProvider &provider : config.providers) {
            if (provider.connector)
                found.push_back(*provider.connector);
        }
        return found;
    }();
    return list;
}

bool isUtf8(const std::string &text)
{
    try {
        static_cast<void>(nlohmann::json(text).dump());
        return true;
    } catch (const nlohmann::json::type_error &) {
        return false;
    }
}

struct Heard
{
    std::string text;
    AnswerOutcome outcome;
};

Heard listen(const Connector &connector, std::string_view stream, std::vector<std::size_t> pieces)
{
    setUpstreamReply({std::string(stream), std::move(pieces)});
    UpstreamSettings settings;
    settings.baseUrl = "http://127.0.0.1:1";
    Heard heard;
    heard.outcome = connector.makeAnswer(settings, {})(
        {"question", "", "model"},
        [&heard](std::string_view text) {
            heard.text += text;
            return true;
        },
        StopToken());
    return heard;
}

} // namespace

/// The input as what a provider sends: as a stream, wherever it is split, and as a list of models.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    Choices choices(view(data, size));
    const std::size_t piece = 1U + choices.byte();
    for (const Connector &connector : connectors()) {
        const Heard whole = listen(connector, choices.rest(), {size + 1});
        const Heard split = listen(connector, choices.rest(), {piece, 1});
        require(split.text == whole.text && split.outcome.kind == whole.outcome.kind);
        require(isUtf8(whole.text) && isUtf8(whole.outcome.problem.words));
        if (const auto tokens = whole.outcome.tokens)
            require(tokens->input >= 0 && tokens->output >= 0 && tokens->total() <= 2'000'000'000);

        setUpstreamReply({std::string(choices.rest())});
        UpstreamSettings settings;
        const auto models = connector.listModels(settings, {}, StopToken());
        for (const OfferedModel &model : models.value_or(std::vector<OfferedModel>())) {
            require(!model.name.empty() && !model.title.empty());
            require(isUtf8(model.name) && isUtf8(model.title));
        }
    }
    require(isUtf8(providerWords(choices.rest())));
    return 0;
}
