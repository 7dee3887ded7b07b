#pragma once

#include "store/UsageLedger.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace quellora::server {

/// Writes the events of an answer stream, "data: {json}" with an empty line after each, and
/// keep-alive comments. Each call returns whether the client is still connected.
class SseWriter
{
public:
    using Output = std::function<bool(std::string_view bytes)>;

    explicit SseWriter(Output output) : m_output(std::move(output)) {}

    bool chunk(std::string_view text) const;
    bool done(const UsageFigures &figures, std::int64_t tokensUsed, bool usedFallback) const;
    bool error(std::string_view message) const;
    bool keepAlive() const;

private:
    Output m_output;
};

} // namespace quellora::server
