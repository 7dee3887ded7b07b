#pragma once

#include "base/Stop.h"
#include "config/Config.h"
#include "model/Answer.h"

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quellora::server {

/// What one event of a provider's stream means for the transfer.
enum class StreamStep { Continue, Finished, Broken, RateLimited, Stopped };

using Headers = std::vector<std::pair<std::string, std::string>>;
using EventHandler = std::function<StreamStep(std::string_view data)>;

/// Posts @p body as JSON to @p baseUrl (scheme, host, optional port and path prefix) plus @p path
/// and passes each event of the answer to @p onEvent until one is Finished. Blocks; every failure
/// becomes an outcome. The outcome carries no token counts.
AnswerOutcome postForEvents(std::string baseUrl, const std::string &path, const Headers &headers,
                            const std::string &body, const TimingSettings &timing,
                            const EventHandler &onEvent, const StopToken &stop);

} // namespace quellora::server
