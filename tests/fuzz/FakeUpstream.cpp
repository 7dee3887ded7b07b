#include "FakeUpstream.h"

#include "model/EventStreamReader.h"
#include "model/ProviderWords.h"
#include "model/UpstreamTransfer.h"

#include <mutex>
#include <utility>

namespace quellora::fuzz {
namespace {

std::mutex mutex;
UpstreamReply current;

UpstreamReply reply()
{
    const std::lock_guard lock(mutex);
    return current;
}

} // namespace

void setUpstreamReply(UpstreamReply reply)
{
    const std::lock_guard lock(mutex);
    current = std::move(reply);
}

} // namespace quellora::fuzz

namespace quellora::server {

AnswerOutcome postForEvents(const std::string &, const std::string &, const Headers &,
                            const std::string &, const TimingSettings &,
                            const EventHandler &onEvent, const StopToken &)
{
    const fuzz::UpstreamReply reply = fuzz::reply();
    AnswerOutcome outcome;
    StreamStep step = StreamStep::Continue;
    EventStreamReader reader([&](std::string_view data) {
        step = onEvent(data);
        if (step == StreamStep::Broken || step == StreamStep::RateLimited)
            outcome.problem.words = providerWords(data);
        return step == StreamStep::Continue;
    });
    std::string_view rest = reply.bytes;
    bool isReading = true;
    for (std::size_t i = 0; isReading && !rest.empty(); ++i) {
        const std::string_view piece = rest.substr(0, reply.pieces[i % reply.pieces.size()]);
        isReading = reader.feed(piece);
        rest.remove_prefix(piece.size());
    }
    if (isReading)
        reader.finish();
    if (step == StreamStep::Finished)
        outcome.kind = AnswerOutcome::Kind::Complete;
    return outcome;
}

tl::expected<std::string, UpstreamProblem> getDocument(const std::string &, const std::string &,
                                                       const Headers &, const DocumentLimits &,
                                                       const StopToken &)
{
    return fuzz::reply().bytes;
}

} // namespace quellora::server
