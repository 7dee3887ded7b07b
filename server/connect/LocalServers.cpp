#include "connect/LocalServers.h"

#include "model/UpstreamTransfer.h"
#include "providers/UpstreamSettings.h"

#include <thread>

namespace quellora::server {

std::vector<ConnectChoice> connectChoices(const Config &config)
{
    std::vector<ConnectChoice> choices;
    for (const ConfiguredProvider &provider : config.providers) {
        if (provider.connector)
            choices.insert(choices.end(), provider.connector->choices.begin(),
                           provider.connector->choices.end());
    }
    return choices;
}

std::vector<LocalServer> answeringLocalServers(const Config &config, EventLoop &loop,
                                               std::chrono::milliseconds limit,
                                               const StopToken &stop)
{
    struct Probe
    {
        const Connector *connector;
        ConnectChoice choice;
        std::optional<std::size_t> modelCount;
        std::thread thread;
    };
    std::vector<Probe> probes;
    for (const ConfiguredProvider &provider : config.providers) {
        if (!provider.connector)
            continue;
        for (const ConnectChoice &choice : provider.connector->choices) {
            if (choice.isLocal && isLoopbackHost(hostOfUrl(choice.baseUrl)))
                probes.push_back({&*provider.connector, choice, {}, {}});
        }
    }
    const DocumentLimits limits{limit, limit, 1024U * 1024U};
    for (Probe &probe : probes) {
        probe.thread = std::thread([&probe, &loop, &limits, &stop] {
            UpstreamSettings settings;
            settings.baseUrl = probe.choice.baseUrl;
            if (const auto models = probe.connector->listModels(loop, settings, limits, stop))
                probe.modelCount = models->size();
        });
    }
    std::vector<LocalServer> found;
    for (Probe &probe : probes) {
        probe.thread.join();
        if (probe.modelCount)
            found.push_back({probe.choice, *probe.modelCount});
    }
    return found;
}

} // namespace quellora::server
