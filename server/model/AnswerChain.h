#pragma once

#include "model/Answer.h"
#include "model/CircuitBreaker.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quellora::server {

/// A model that may answer.
struct ChainLink
{
    std::string id;
    /// The provider's name for the model.
    std::string upstream;
    AnswerSource answer;
    /// Null where nothing is gained by sparing the model.
    std::shared_ptr<CircuitBreaker> breaker;
};

/// How failed attempts are made up for.
struct ChainLimits
{
    /// How often one model is asked again.
    int retries = 2;
    /// The wait before the first retry is at most this; the bound doubles with each retry.
    std::chrono::milliseconds firstWait{500};
    /// Longest wait, also where the provider says how long.
    std::chrono::milliseconds longestWait{5000};
    /// Longest time from the question to the end of its answer, all attempts included.
    std::chrono::milliseconds answer = std::chrono::hours(1);
    /// Evenly distributed in [0, 1). Called from any thread.
    std::function<double()> random = {};
};

/// How long to wait before the retry with the number @p retry, counted from 0: any time up to its
/// bound, after what the provider @p asked for (0: nothing). Nothing when that is too long to wait.
std::optional<std::chrono::milliseconds> retryWait(int retry, std::chrono::seconds asked,
                                                   const ChainLimits &limits);

/// The provider's count where it can be true for a question and an answer of these sizes. Zero is
/// estimated, not believed, and so is the text of an answer that broke off before its last count.
std::optional<TokenCount> believableTokens(const std::optional<TokenCount> &tokens,
                                           std::size_t promptBytes, std::size_t answerBytes,
                                           bool isComplete);

/// Asks the models of @p links, which is not empty, in their order until one answers. The same
/// model is asked again, or the next one asked, only while nothing of an answer has been passed on.
/// What the first model failed for is the outcome when all fail, unless another one asks to wait.
AnswerSource answerChain(std::vector<ChainLink> links, ChainLimits limits);

} // namespace quellora::server
