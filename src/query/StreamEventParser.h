#pragma once

#include "query/QueryTypes.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

namespace quellora {

/// One event of a streamed answer.
struct StreamEvent
{
    enum class Type { Chunk, Done, Error };

    Type type = Type::Chunk;
    /// UTF-8 text of a chunk (empty if missing or not a string) or message of an error ("Unknown
    /// error" if missing or not a string). Valid until the next call to the parser.
    std::string_view text;
    /// Fields of a done event.
    DoneInfo done;
};

/// Incremental parser of the answer stream: lines of "data: " followed by a JSON object.
///
/// Input may be split anywhere. A line ends at LF, CR or CRLF only; in particular U+2028, which may
/// occur inside the JSON, does not end it. Lines without the prefix, invalid JSON, other JSON
/// values and unknown event types are silently skipped. Invalid UTF-8 and lone surrogates in
/// escapes are decoded as U+FFFD. Of duplicate keys, the last one wins.
///
/// An integer field accepts a JSON number with an integral value that fits 64 bits (42 and 42.0,
/// not "42", 42.5 or true); a boolean field accepts only true and false.
///
/// Usage: prepare() and commit(), or feed(), then next() until it returns nullopt; at the end of
/// the body finish(), then next() again. Not thread-safe.
class StreamEventParser
{
public:
    /// Maximum length of a line including its prefix; a longer one fails the stream.
    static constexpr std::size_t maxLineBytes = std::size_t{16} * 1024 * 1024;

    explicit StreamEventParser(std::size_t lineLimit = maxLineBytes);
    ~StreamEventParser();
    StreamEventParser(const StreamEventParser &) = delete;
    StreamEventParser &operator=(const StreamEventParser &) = delete;

    /// Returns a buffer for @p size bytes of input; call commit() after writing to it.
    char *prepare(std::size_t size);
    /// Appends the first @p size bytes of the buffer returned by prepare().
    void commit(std::size_t size) { m_end += size; }
    /// Appends a copy of @p bytes.
    void feed(std::string_view bytes);
    /// Marks the end of the body, which completes a last line without a line break.
    void finish() { m_finished = true; }

    /// The next complete event; nullopt if more input is needed.
    std::optional<StreamEvent> next();

    /// Whether a line exceeded the limit; next() then always returns nullopt.
    bool isLineTooLong() const { return m_lineTooLong; }

private:
    struct Decoder;

    /// Caches the next occurrence of one line break character, so that each byte is scanned once.
    struct BreakFinder
    {
        char character;
        std::size_t position = 0;
        bool found = false;
    };

    std::size_t find(BreakFinder &finder) const;
    std::optional<StreamEvent> decodeLine(std::size_t begin, std::size_t length);

    std::unique_ptr<Decoder> m_decoder;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_capacity = 0;
    std::size_t m_lineStart = 0;
    std::size_t m_end = 0;
    std::size_t m_lineLimit;
    BreakFinder m_lineFeed{'\n'};
    BreakFinder m_carriageReturn{'\r'};
    bool m_finished = false;
    bool m_lineTooLong = false;
};

} // namespace quellora
