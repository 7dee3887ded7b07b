#pragma once

#include "base/Stop.h"
#include "config/Config.h"
#include "model/Answer.h"
#include "model/AnswerEvents.h"
#include "model/Transfers.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace quellora::server {

/// A question in a provider's format.
struct ProviderRequest
{
    /// Scheme, host, optional port and path prefix.
    std::string baseUrl;
    std::string path;
    Headers headers;
    /// JSON.
    std::string body;
    TimingSettings timing;
};

/// Posts a question and interprets the stream of events that is the answer. Every failure becomes
/// an outcome. @p makeEvents is called for each attempt.
AnswerStart streamedAnswer(ProviderRequest request,
                           std::function<std::unique_ptr<AnswerEvents>()> makeEvents);

/// Bounds of a small download.
struct DocumentLimits
{
    std::chrono::milliseconds connect = std::chrono::seconds(5);
    /// Longest time from start to end.
    std::chrono::milliseconds total = std::chrono::seconds(15);
    std::size_t bytes = 4U * 1024U * 1024U;
};

/// Gets @p baseUrl plus @p path; redirects are not followed, because they would carry the key to
/// another host. Blocks until the document is complete, at most for the time of @p limits. The
/// transfer runs on @p loop, in whose thread this must not be called.
tl::expected<std::string, UpstreamProblem>
getDocument(EventLoop &loop, const std::string &baseUrl, const std::string &path,
            const Headers &headers, const DocumentLimits &limits, const StopToken &stop);

} // namespace quellora::server
