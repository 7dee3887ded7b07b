#pragma once

#include "base/Stop.h"
#include "config/Config.h"
#include "model/Answer.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstddef>
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
AnswerOutcome postForEvents(const std::string &baseUrl, const std::string &path,
                            const Headers &headers, const std::string &body,
                            const TimingSettings &timing, const EventHandler &onEvent,
                            const StopToken &stop);

/// Bounds of a small download.
struct DocumentLimits
{
    std::chrono::milliseconds connect = std::chrono::seconds(5);
    /// Longest time from start to end.
    std::chrono::milliseconds total = std::chrono::seconds(15);
    std::size_t bytes = 4U * 1024U * 1024U;
};

/// Gets @p baseUrl plus @p path; redirects are not followed, because they would carry the key to
/// another host. Blocks until the document is complete, at most for the time of @p limits.
tl::expected<std::string, UpstreamProblem>
getDocument(const std::string &baseUrl, const std::string &path, const Headers &headers,
            const DocumentLimits &limits, const StopToken &stop);

} // namespace quellora::server
