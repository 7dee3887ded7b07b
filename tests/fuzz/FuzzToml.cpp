#include "Fuzz.h"
#include "config/Config.h"
#include "config/TomlReader.h"
#include "providers/UpstreamSettings.h"

using namespace quellora::server;
using namespace quellora::fuzz;

namespace {

/// A provider with the settings that all have that ask a server.
ConfiguredProvider configure(TomlReader &table, const Environment &environment)
{
    const UpstreamSettings settings = readUpstream(table, environment, "UPSTREAM");
    ConfiguredProvider provider;
    provider.destination = hostOfUrl(settings.baseUrl);
    provider.models = {{"default", settings.model, "Server"}};
    return provider;
}

} // namespace

/// The input as the backend's configuration file. What is wrong with it is told.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto none = [](const char *) -> std::optional<std::string> { return std::nullopt; };
    const auto config = Config::parse(std::string(view(data, size)), "quellora.toml", none,
                                      {{"openai", configure}, {"offline", configure}});
    if (!config) {
        require(!config.error().empty());
        return 0;
    }
    require(!config->models.empty());
    require(config->server.port >= 0 && config->server.port <= 65535);
    return 0;
}
