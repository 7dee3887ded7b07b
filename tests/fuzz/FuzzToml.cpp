#include "Fuzz.h"
#include "config/Config.h"

using namespace quellora::server;
using namespace quellora::fuzz;

/// The input as the backend's configuration file. What is wrong with it is told.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const auto none = [](const char *) -> std::optional<std::string> { return std::nullopt; };
    const auto config = Config::parse(std::string(view(data, size)), "quellora.toml", none);
    if (!config) {
        require(!config.error().empty());
        return 0;
    }
    require(!config->models.empty());
    require(config->server.port >= 0 && config->server.port <= 65535);
    return 0;
}
