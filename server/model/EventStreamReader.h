#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace quellora::server {

/// Parses a server-sent event stream, fed in pieces of any size. Lines end at LF, CR or CRLF;
/// several "data:" lines of one event are joined by line feeds; comments, other fields and a byte
/// order mark at the beginning are skipped.
class EventStreamReader
{
public:
    /// Receives the data of one event; returns false to stop reading.
    using Handler = std::function<bool(std::string_view data)>;

    explicit EventStreamReader(Handler handler, std::size_t maxEventBytes = 1U << 20U);

    /// Returns false when the handler stopped or an event exceeds the limit.
    bool feed(std::string_view bytes);
    /// Delivers a last event without a blank line after it.
    bool finish();

private:
    bool endLine();
    bool dispatch();

    Handler m_handler;
    std::size_t m_maxEventBytes;
    std::string m_line;
    std::string m_data;
    bool m_hasData = false;
    bool m_isFirstLine = true;
    bool m_afterCarriageReturn = false;
};

} // namespace quellora::server
