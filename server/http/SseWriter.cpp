#include "http/SseWriter.h"

#include "base/JsonAccess.h"

namespace quellora::server {
namespace {

std::string event(const nlohmann::ordered_json &value)
{
    return "data: " + value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) +
           "\n\n";
}

} // namespace

bool SseWriter::chunk(std::string_view text) const
{
    return m_output(event({{"type", "chunk"}, {"text", text}}));
}

bool SseWriter::done(const UsageFigures &figures, std::int64_t tokensUsed, bool usedFallback) const
{
    return m_output(event({{"type", "done"},
                           {"tokensRemaining", figures.remaining},
                           {"usageWarning75", figures.warning75},
                           {"usageWarning90", figures.warning90},
                           {"usedFallback", usedFallback},
                           {"tokensUsed", tokensUsed}}));
}

bool SseWriter::error(std::string_view message) const
{
    return m_output(event({{"type", "error"}, {"message", message}}));
}

bool SseWriter::keepAlive() const
{
    return m_output(": keep-alive\n\n");
}

} // namespace quellora::server
