#include "query/StreamEventParser.h"

#include "base/Json.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QString>

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace quellora {

namespace {

constexpr std::string_view linePrefix = "data: ";
constexpr std::string_view unknownError = "Unknown error";
constexpr std::size_t initialCapacity = 32 * 1024;

/// JSON before and after the text of a chunk event.
struct ChunkTemplate
{
    std::string_view prefix;
    std::string_view suffix;
};

/// The usual serialisations of a chunk event: compact or with blanks, keys in either order.
constexpr std::array<ChunkTemplate, 4> chunkTemplates{{
    {R"({"type":"chunk","text":")", R"("})"},
    {R"({"text":")", R"(","type":"chunk"})"},
    {R"({"type": "chunk", "text": ")", R"("})"},
    {R"({"text": ")", R"(", "type": "chunk"})"},
}};

/// Properties of the raw bytes of a JSON string.
struct StringScan
{
    bool needsDecoding = false; ///< has quotes, escapes or control characters
    bool isAscii = true;
};

constexpr std::uint64_t broadcast(std::uint8_t value)
{
    return 0x0101010101010101U * value;
}

/// Tests eight bytes at once: the high bit of each byte of an intermediate word marks a match.
/// Borrows between bytes can cause false positives but no false negatives.
void scan(std::uint64_t word, StringScan &result)
{
    constexpr std::uint64_t highBits = broadcast(0x80);
    const auto zeroBytes = [](std::uint64_t w) { return (w - broadcast(1)) & ~w & highBits; };
    const std::uint64_t control = (word - broadcast(0x20)) & ~word & highBits;
    const std::uint64_t quote = zeroBytes(word ^ broadcast('"'));
    const std::uint64_t backslash = zeroBytes(word ^ broadcast('\\'));
    result.needsDecoding |= (control | quote | backslash) != 0;
    result.isAscii &= (word & highBits) == 0;
}

StringScan scan(std::string_view text)
{
    constexpr std::size_t step = sizeof(std::uint64_t);
    StringScan result;
    std::uint64_t word = broadcast(' ');
    if (text.size() < step) {
        std::memcpy(&word, text.data(), text.size());
        scan(word, result);
        return result;
    }
    for (std::size_t i = 0; i + step < text.size(); i += step) {
        std::memcpy(&word, text.data() + i, step);
        scan(word, result);
    }
    std::memcpy(&word, text.data() + text.size() - step, step);
    scan(word, result);
    return result;
}

/// Fast path: the text of a chunk in one of the usual serialisations, if it needs no decoding.
std::optional<std::string_view> plainChunkText(std::string_view payload)
{
    for (const ChunkTemplate &layout : chunkTemplates) {
        if (payload.size() < layout.prefix.size() + layout.suffix.size() ||
            !payload.starts_with(layout.prefix) || !payload.ends_with(layout.suffix))
            continue;
        const std::string_view text = payload.substr(
            layout.prefix.size(), payload.size() - layout.prefix.size() - layout.suffix.size());
        const StringScan scanned = scan(text);
        if (scanned.needsDecoding ||
            (!scanned.isAscii && !simdjson::validate_utf8(text.data(), text.size())))
            return std::nullopt;
        return text;
    }
    return std::nullopt;
}

/// The value of an integral number; otherwise 0.
qint64 toInteger(simdjson::dom::element value)
{
    std::int64_t integer = 0;
    if (value.get(integer) == simdjson::SUCCESS)
        return integer;
    double number = 0;
    constexpr double limit = 9223372036854775808.0;
    if (value.is_double() && value.get(number) == simdjson::SUCCESS && number >= -limit &&
        number < limit && std::trunc(number) == number)
        return static_cast<qint64>(number);
    return 0;
}

bool toBool(simdjson::dom::element value)
{
    bool flag = false;
    return value.get(flag) == simdjson::SUCCESS && flag;
}

/// The value of a string; otherwise nullopt.
std::optional<std::string_view> toText(simdjson::dom::element value)
{
    std::string_view text;
    if (value.get(text) != simdjson::SUCCESS)
        return std::nullopt;
    return text;
}

std::optional<StreamEvent> toEvent(simdjson::dom::object object)
{
    std::optional<std::string_view> type;
    std::optional<std::string_view> text;
    std::optional<std::string_view> message;
    DoneInfo done;
    for (const auto &[key, value] : object) {
        if (key == "type")
            type = toText(value);
        else if (key == "text")
            text = toText(value);
        else if (key == "message")
            message = toText(value);
        else if (key == "tokensRemaining")
            done.tokensRemaining = toInteger(value);
        else if (key == "usageWarning75")
            done.usageWarning75 = toBool(value);
        else if (key == "usageWarning90")
            done.usageWarning90 = toBool(value);
        else if (key == "usedFallback")
            done.usedFallback = toBool(value);
        else if (key == "tokensUsed")
            done.tokensUsed = toInteger(value);
    }
    if (type == "chunk")
        return StreamEvent{StreamEvent::Type::Chunk, text.value_or(std::string_view()), {}};
    if (type == "done")
        return StreamEvent{StreamEvent::Type::Done, {}, done};
    if (type == "error")
        return StreamEvent{StreamEvent::Type::Error, message.value_or(unknownError), {}};
    return std::nullopt;
}

/// Puts U+FFFD in place of the lone surrogates in @p json, which QJsonDocument has written: it
/// escapes no others.
QByteArray withoutSurrogateEscapes(const QByteArray &json)
{
    constexpr qsizetype escapeLength = 6;
    QByteArray result;
    qsizetype from = 0;
    for (qsizetype at = json.indexOf('\\'); at >= 0; at = json.indexOf('\\', at)) {
        if (json[at + 1] != 'u' || json[at + 2] != 'd' || json[at + 3] < '8') {
            at += 2;
            continue;
        }
        result += QByteArrayView(json).sliced(from, at - from);
        result += "\xEF\xBF\xBD";
        at += escapeLength;
        from = at;
    }
    return from == 0 ? json : result + json.mid(from);
}

} // namespace

/// Decodes payloads and owns the buffers that the returned views refer to.
struct StreamEventParser::Decoder
{
    simdjson::dom::parser parser;
    QByteArray repaired;

    /// @p payload must be followed by SIMDJSON_PADDING readable bytes.
    std::optional<StreamEvent> decode(std::string_view payload)
    {
        if (const auto text = plainChunkText(payload))
            return StreamEvent{StreamEvent::Type::Chunk, *text, {}};
        auto document = parser.parse(payload.data(), payload.size(), false);
        if (document.error() == simdjson::UTF8_ERROR) {
            repaired =
                QString::fromUtf8(payload.data(), static_cast<qsizetype>(payload.size())).toUtf8();
            payload = {repaired.constData(), static_cast<std::size_t>(repaired.size())};
            document = parser.parse(payload.data(), payload.size());
        }
        if (document.error() == simdjson::NUMBER_ERROR ||
            document.error() == simdjson::STRING_ERROR) {
            // simdjson rejects numbers out of range and lone surrogates in escapes, which are valid
            // JSON. QJsonDocument accepts both and serialises the numbers in range.
            const auto object =
                parseJsonObject(QByteArray(payload.data(), static_cast<qsizetype>(payload.size())));
            if (!object)
                return std::nullopt;
            repaired =
                withoutSurrogateEscapes(QJsonDocument(*object).toJson(QJsonDocument::Compact));
            document =
                parser.parse(repaired.constData(), static_cast<std::size_t>(repaired.size()));
        }
        simdjson::dom::object object;
        if (document.get(object) != simdjson::SUCCESS)
            return std::nullopt;
        return toEvent(object);
    }
};

StreamEventParser::StreamEventParser(std::size_t lineLimit)
    : m_decoder(std::make_unique<Decoder>()), m_lineLimit(lineLimit)
{}

StreamEventParser::~StreamEventParser() = default;

char *StreamEventParser::prepare(std::size_t size)
{
    // simdjson may read this many bytes beyond a payload.
    const std::size_t needed = size + simdjson::SIMDJSON_PADDING;
    if (m_lineStart == m_end || m_end + needed > m_capacity) {
        const std::size_t pending = m_end - m_lineStart;
        if (pending + needed > m_capacity) {
            m_capacity = std::max({initialCapacity, m_capacity * 2, pending + needed});
            auto grown = std::make_unique<char[]>(m_capacity);
            if (pending != 0)
                std::memcpy(grown.get(), m_buffer.get() + m_lineStart, pending);
            m_buffer = std::move(grown);
        } else if (pending != 0) {
            std::memmove(m_buffer.get(), m_buffer.get() + m_lineStart, pending);
        }
        for (BreakFinder *finder : {&m_lineFeed, &m_carriageReturn}) {
            finder->found = finder->found && finder->position >= m_lineStart;
            finder->position -= std::min(finder->position, m_lineStart);
        }
        m_lineStart = 0;
        m_end = pending;
    }
    return m_buffer.get() + m_end;
}

void StreamEventParser::feed(std::string_view bytes)
{
    if (bytes.empty())
        return;
    std::memcpy(prepare(bytes.size()), bytes.data(), bytes.size());
    commit(bytes.size());
}

std::size_t StreamEventParser::find(BreakFinder &finder) const
{
    if (finder.found && finder.position >= m_lineStart)
        return finder.position;
    const std::size_t from = std::max(finder.position, m_lineStart);
    const void *hit =
        from < m_end ? std::memchr(m_buffer.get() + from, finder.character, m_end - from) : nullptr;
    finder.found = hit != nullptr;
    finder.position =
        hit != nullptr ? static_cast<std::size_t>(static_cast<const char *>(hit) - m_buffer.get())
                       : m_end;
    return finder.position;
}

std::optional<StreamEvent> StreamEventParser::next()
{
    while (!m_lineTooLong && m_lineStart < m_end) {
        if (const char first = m_buffer[m_lineStart]; first == '\n' || first == '\r') {
            ++m_lineStart; // the empty line that separates events
            continue;
        }
        const std::size_t lineEnd = std::min(find(m_lineFeed), find(m_carriageReturn));
        if (lineEnd - m_lineStart > m_lineLimit) {
            m_lineTooLong = true;
            break;
        }
        if (lineEnd == m_end && !m_finished)
            break;
        const std::size_t lineStart = m_lineStart;
        m_lineStart = std::min(lineEnd + 1, m_end);
        if (auto event = decodeLine(lineStart, lineEnd - lineStart))
            return event;
    }
    return std::nullopt;
}

std::optional<StreamEvent> StreamEventParser::decodeLine(std::size_t begin, std::size_t length)
{
    const char *line = m_buffer.get() + begin;
    if (length <= linePrefix.size() || std::memcmp(line, linePrefix.data(), linePrefix.size()) != 0)
        return std::nullopt;
    return m_decoder->decode({line + linePrefix.size(), length - linePrefix.size()});
}

} // namespace quellora
