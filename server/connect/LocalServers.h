#pragma once

#include "base/Stop.h"
#include "config/Config.h"

#include <chrono>
#include <vector>

namespace quellora::server {

/// A model server that answers on this machine.
struct LocalServer
{
    ConnectChoice choice;
    std::size_t modelCount = 0;
};

/// The choices of all providers, in their order.
std::vector<ConnectChoice> connectChoices(const Config &config);

/// Asks the local choices of @p config for their models, all at the same time and each in a thread
/// of its own. Returns those that answered with a list, within @p limit. The
/// connections are on @p loop.
std::vector<LocalServer> answeringLocalServers(const Config &config, EventLoop &loop,
                                               std::chrono::milliseconds limit,
                                               const StopToken &stop);

} // namespace quellora::server
