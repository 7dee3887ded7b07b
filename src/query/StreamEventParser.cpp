#include "query/StreamEventParser.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <simdjson.h>

#include <algorithm>
#include <cstring>

namespace quellora {

namespace {

constexpr std::string_view linePrefix = "data: ";
constexpr std::string_view unknownError = "Unknown error";
constexpr std::size_t initialCapacity = 32 * 1024;

namespace ondemand = simdjson::ondemand;

/// What a payload may say, before its type decides which of it counts.
struct Fields
{
    std::optional<std::string_view> type;
    std::optional<std::string_view> text;
    std::optional<std::string_view> message;
    DoneInfo done;
};

std::optional<StreamEvent> eventOf(const Fields &fields)
{
    if (!fields.type)
        return std::nullopt;
    if (*fields.type == "chunk")
        return StreamEvent{StreamEvent::Type::Chunk, fields.text.value_or(std::string_view()), {}};
    if (*fields.type == "done")
        return StreamEvent{StreamEvent::Type::Done, {}, fields.done};
    if (*fields.type == "error")
        return StreamEvent{StreamEvent::Type::Error, fields.message.value_or(unknownError), {}};
    return std::nullopt;
}

/// The value of a JSON string; without escapes it is read in place. False when invalid.
bool readString(ondemand::value value, std::optional<std::string_view> &out)
{
    std::string_view token = value.raw_json_token();
    while (!token.empty() && token.back() != '"')
        token.remove_suffix(1); // white space up to the next token
    if (token.size() < 2)
        return false;
    const std::string_view content = token.substr(1, token.size() - 2);
    if (std::memchr(content.data(), '\\', content.size()) == nullptr) {
        out = content;
        return true;
    }
    std::string_view unescaped;
    if (value.get_string().get(unescaped) != simdjson::SUCCESS)
        return false;
    out = unescaped;
    return true;
}

bool readInteger(ondemand::value value, qint64 &out)
{
    ondemand::number number;
    if (value.get_number().get(number) != simdjson::SUCCESS)
        return false;
    if (number.is_int64()) {
        out = number.get_int64();
        return true;
    }
    return false; // fractions and very large numbers take the general way
}

/// Checks a value that no event needs. Nested ones are left to the general way.
bool skipScalar(ondemand::value value)
{
    ondemand::json_type type{};
    if (value.type().get(type) != simdjson::SUCCESS)
        return false;
    switch (type) {
    case ondemand::json_type::string: {
        std::optional<std::string_view> ignored;
        return readString(value, ignored);
    }
    case ondemand::json_type::number: {
        ondemand::number ignored;
        return value.get_number().get(ignored) == simdjson::SUCCESS;
    }
    case ondemand::json_type::boolean: {
        bool ignored = false;
        return value.get_bool().get(ignored) == simdjson::SUCCESS;
    }
    default:
        return false;
    }
}

/// A key's text begins right behind its opening quote.
bool keyIs(const char *raw, std::string_view quotedRest)
{
    return std::memcmp(raw, quotedRest.data(), quotedRest.size()) == 0;
}

/// Reads one field where it has the expected kind; false sends the whole line the general way.
bool readField(const char *key, ondemand::value value, Fields &fields)
{
    const bool isString = *value.raw_json_token().data() == '"';
    if (keyIs(key, "type\""))
        return isString && !fields.type && readString(value, fields.type);
    if (keyIs(key, "text\""))
        return isString && !fields.text && readString(value, fields.text);
    if (keyIs(key, "message\""))
        return isString && !fields.message && readString(value, fields.message);
    if (keyIs(key, "tokensRemaining\""))
        return readInteger(value, fields.done.tokensRemaining);
    if (keyIs(key, "tokensUsed\""))
        return readInteger(value, fields.done.tokensUsed);
    if (keyIs(key, "usageWarning75\""))
        return value.get_bool().get(fields.done.usageWarning75) == simdjson::SUCCESS;
    if (keyIs(key, "usageWarning90\""))
        return value.get_bool().get(fields.done.usageWarning90) == simdjson::SUCCESS;
    if (keyIs(key, "usedFallback\""))
        return value.get_bool().get(fields.done.usedFallback) == simdjson::SUCCESS;
    // An escaped key may be one of the above in disguise.
    const char *keyEnd = static_cast<const char *>(std::memchr(key, '"', 64));
    if (keyEnd == nullptr || std::memchr(key, '\\', static_cast<std::size_t>(keyEnd - key)))
        return false;
    return skipScalar(value);
}

/// Walks an object of the usual shape, checking every token. False when it has any other shape,
/// valid or not.
bool readUsualShape(ondemand::document &document, Fields &fields)
{
    ondemand::object object;
    if (document.get_object().get(object) != simdjson::SUCCESS)
        return false;
    for (auto entry : object) {
        ondemand::field field;
        if (std::move(entry).get(field) != simdjson::SUCCESS)
            return false;
        if (!readField(field.key().raw(), field.value(), fields))
            return false;
    }
    // Anything behind the object would make the line invalid.
    return document.current_location().error() == simdjson::OUT_OF_BOUNDS;
}

} // namespace

/// Payload to event. The usual objects go through simdjson in place; whatever it does not take at
/// once (nested values, unexpected kinds, other encodings) is decided by the general JSON reader.
struct StreamEventParser::Decoder
{
    ondemand::parser parser;
    simdjson::dom::parser validator;
    QByteArray textStorage;

    std::optional<StreamEvent> decode(const char *payload, std::size_t length, std::size_t capacity)
    {
        ondemand::document document;
        Fields fields;
        if (parser.iterate(simdjson::padded_string_view(payload, length, capacity)).get(document) ==
                simdjson::SUCCESS &&
            readUsualShape(document, fields))
            return eventOf(fields);
        return decodeGeneral(QByteArray::fromRawData(payload, static_cast<qsizetype>(length)));
    }

    /// simdjson decides what is valid; the general reader, which is laxer, fetches the values.
    std::optional<StreamEvent> decodeGeneral(const QByteArray &payload)
    {
        const auto verdict = [this](const QByteArray &json) {
            return validator.parse(json.constData(), static_cast<std::size_t>(json.size())).error();
        };
        QByteArray json = payload;
        simdjson::error_code error = verdict(json);
        if (error == simdjson::UTF8_ERROR) {
            json = QString::fromUtf8(payload).toUtf8();
            error = verdict(json);
        }
        // Numbers that fit no machine type are still JSON.
        if (error != simdjson::SUCCESS && error != simdjson::NUMBER_ERROR)
            return std::nullopt;
        const QJsonDocument document = QJsonDocument::fromJson(json);
        if (!document.isObject())
            return std::nullopt;
        const QJsonObject object = document.object();
        const QByteArray type = object.value(QLatin1String("type")).toString().toUtf8();
        Fields fields;
        fields.type = std::string_view(type.constData(), static_cast<std::size_t>(type.size()));
        const QLatin1String textKey(type == "error" ? "message" : "text");
        const QJsonValue text = object.value(textKey);
        if (text.isString()) {
            textStorage = text.toString().toUtf8();
            const std::string_view view(textStorage.constData(),
                                        static_cast<std::size_t>(textStorage.size()));
            fields.text = view;
            fields.message = view;
        }
        const auto integer = [&object](const char *key) {
            return object.value(QLatin1String(key)).toInteger(0);
        };
        const auto flag = [&object](const char *key) {
            return object.value(QLatin1String(key)).toBool(false);
        };
        fields.done = {integer("tokensRemaining"), flag("usageWarning75"), flag("usageWarning90"),
                       flag("usedFallback"), integer("tokensUsed")};
        return eventOf(fields);
    }
};

StreamEventParser::StreamEventParser(std::size_t lineLimit)
    : m_decoder(std::make_unique<Decoder>()), m_lineLimit(lineLimit)
{}

StreamEventParser::~StreamEventParser() = default;

char *StreamEventParser::prepare(std::size_t size)
{
    // simdjson may look at this many bytes behind a payload.
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
    return m_decoder->decode(line + linePrefix.size(), length - linePrefix.size(),
                             m_capacity - begin - linePrefix.size());
}

} // namespace quellora
