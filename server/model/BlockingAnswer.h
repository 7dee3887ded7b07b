#pragma once

#include "base/Stop.h"
#include "model/Answer.h"

namespace quellora::server {

/// Receives pieces of answer text in order; returns false when no more is wanted.
using TextSink = std::function<bool(std::string_view text)>;

/// Answers one question. Blocks its thread until the answer has ended, may run on several threads
/// at once, and returns soon after @p stop is requested.
using AnswerFunction =
    std::function<AnswerOutcome(const ModelRequest &request, const TextSink &sink, StopToken stop)>;

/// Runs @p function on the workers of the place. Its sink blocks while the answer is paused.
AnswerSource answerOnWorkers(AnswerFunction function);

/// Asks @p source and waits for the end of the answer or of @p stop. For any thread but the loop's;
/// @p sink is called on the loop.
AnswerOutcome waitForAnswer(const AnswerSource &source, ModelRequest request, const TextSink &sink,
                            const StopToken &stop, const AnswerPlace &place);

} // namespace quellora::server
