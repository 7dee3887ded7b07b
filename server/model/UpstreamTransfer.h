#pragma once

#include "base/Stop.h"
#include "config/Config.h"
#include "model/ModelClient.h"

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quellora::server {

/// What one event of a provider's stream means for the transfer.
enum class StreamStep { Continue, Finished, Broken, RateLimited, Stopped };

/// One streamed POST to a provider. Maps everything that can go wrong on the way to an outcome;
/// what the events mean is up to the caller. Blocking, one call per object.
class UpstreamTransfer
{
public:
    using Headers = std::vector<std::pair<std::string, std::string>>;
    using EventHandler = std::function<StreamStep(std::string_view data)>;

    /// @p baseUrl is scheme, host, optional port and optional path prefix.
    UpstreamTransfer(std::string baseUrl, TimingSettings timing);

    /// Sends @p body as JSON to the base address plus @p path and hands over each event until one
    /// says Finished. The outcome carries no token figures; the caller adds them.
    AnswerOutcome post(const std::string &path, const Headers &headers, const std::string &body,
                       const EventHandler &onEvent, StopToken stop) const;

private:
    std::string m_origin;
    std::string m_prefix;
    TimingSettings m_timing;
};

} // namespace quellora::server
