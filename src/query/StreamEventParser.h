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
    /// UTF-8: the text of a chunk (empty when absent or not a text) or the message of an error
    /// ("Unknown error" when absent or not a text). Valid until the parser is used again.
    std::string_view text;
    /// Figures of a done event.
    DoneInfo done;
};

/// Incremental reader of the answer stream: lines that begin with "data: " and carry a JSON object.
///
/// Bytes may arrive in pieces of any size. A line ends at LF, CR or CRLF and nowhere else, in
/// particular not at U+2028, which may stand inside the JSON. Lines without the prefix, invalid
/// JSON, other JSON values and unknown event types are skipped silently. Bytes that are not UTF-8
/// count as U+FFFD. Where a key appears twice the last one holds.
///
/// An integer figure is a JSON number with an integral value that fits 64 bits (42 and 42.0, not
/// "42", 42.5 or true); a flag is true or false and nothing else.
///
/// Use: prepare() or feed() bytes, then call next() until it is empty; finish() at the end of the
/// body, then next() again. One thread at a time.
class StreamEventParser
{
public:
    /// A longer line, prefix included, fails the stream.
    static constexpr std::size_t maxLineBytes = std::size_t{16} * 1024 * 1024;

    explicit StreamEventParser(std::size_t lineLimit = maxLineBytes);
    ~StreamEventParser();
    StreamEventParser(const StreamEventParser &) = delete;
    StreamEventParser &operator=(const StreamEventParser &) = delete;

    /// Room for @p size bytes, to be filled by the caller and then taken in with commit().
    char *prepare(std::size_t size);
    /// Takes in the first @p size bytes written to prepare()'s room.
    void commit(std::size_t size) { m_end += size; }
    /// prepare() and commit() with a copy of @p bytes.
    void feed(std::string_view bytes);
    /// Marks the end of the body: a last line without line break is complete now.
    void finish() { m_finished = true; }

    /// The next complete event, or nothing until more bytes arrive.
    std::optional<StreamEvent> next();

    /// True once a line exceeded the limit; next() yields nothing any more.
    bool isLineTooLong() const { return m_lineTooLong; }

private:
    struct Decoder;

    /// Next occurrence of one break character; remembered so that every byte is searched once.
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
