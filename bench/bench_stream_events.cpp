// Compares parsing a streamed answer, lines and JSON, with simdjson alone on the bare payloads.
// Both extract the type and the text of every event.

#include "BenchClock.h"
#include "query/StreamEventParser.h"

#include <simdjson.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int eventCount = 4000;
constexpr int runs = 60;

/// The JSON-encoded text of an event; every eighth one contains escapes.
std::string text(int index)
{
    static constexpr const char *words[] = {"The ",  "overlay ", "shows ",    "an answer",
                                            " at a", " glance",  ", word by", " word."};
    std::string result;
    for (int i = 0; i < 6; ++i)
        result += words[(index + i * 3) % 8];
    if (index % 8 == 0)
        result += R"(\n\"quoted\" )";
    return result;
}

/// Nanoseconds per event with simdjson's on-demand parser.
double simdjsonOnDemand(const std::string &json,
                        const std::vector<std::pair<size_t, size_t>> &spans)
{
    simdjson::ondemand::parser parser;
    size_t seen = 0;
    const double time = quellora::fastestMilliseconds(runs, [&] {
        for (const auto &[begin, length] : spans) {
            auto document = parser.iterate(
                simdjson::padded_string_view(json.data() + begin, length, json.capacity() - begin));
            simdjson::ondemand::object object = document.get_object();
            const std::string_view type = object["type"];
            const std::string_view text = object["text"];
            seen += type.size() + text.size();
        }
    });
    return seen == 0 ? 0 : time * 1e6 / eventCount;
}

/// Nanoseconds per event with simdjson's DOM parser.
double simdjsonDocument(const std::string &json,
                        const std::vector<std::pair<size_t, size_t>> &spans)
{
    simdjson::dom::parser parser;
    size_t seen = 0;
    const double time = quellora::fastestMilliseconds(runs, [&] {
        for (const auto &[begin, length] : spans) {
            const simdjson::dom::element document =
                parser.parse(json.data() + begin, length, false);
            const std::string_view type = document["type"];
            const std::string_view text = document["text"];
            seen += type.size() + text.size();
        }
    });
    return seen == 0 ? 0 : time * 1e6 / eventCount;
}

/// Nanoseconds per event with StreamEventParser, fed with @p piece bytes at a time.
double streamParser(const std::string &body, size_t piece)
{
    size_t seen = 0;
    const double time = quellora::fastestMilliseconds(runs, [&] {
        quellora::StreamEventParser parser;
        for (size_t at = 0; at < body.size(); at += piece) {
            parser.feed(std::string_view(body).substr(at, piece));
            while (const auto event = parser.next())
                seen += event->text.size();
        }
    });
    return seen == 0 ? 0 : time * 1e6 / eventCount;
}

/// Prints one table for events that consist of @p start, the text and @p end.
void compare(const char *title, const std::string &start, const std::string &end)
{
    std::string body;
    std::string json;
    std::vector<std::pair<size_t, size_t>> spans;
    for (int i = 0; i < eventCount; ++i) {
        const std::string one = start + text(i) + end;
        spans.emplace_back(json.size(), one.size());
        json += one;
        body += "data: " + one + "\n\n";
    }
    json.reserve(json.size() + simdjson::SIMDJSON_PADDING);

    const double onDemand = simdjsonOnDemand(json, spans);
    const double document = simdjsonDocument(json, spans);
    std::printf("%s, %zu bytes on average\n", title, body.size() / size_t{eventCount});
    std::printf("  %-32s %8.1f ns per event\n", "simdjson alone, on demand", onDemand);
    std::printf("  %-32s %8.1f ns per event\n", "simdjson alone, document", document);
    for (const size_t piece : {90, 256, 1024, 4096, 16384}) {
        const double ours = streamParser(body, piece);
        std::printf("  lines and JSON, %5zu-byte pieces %8.1f ns per event   %4.2f x on demand, "
                    "%4.2f x document\n",
                    piece, ours, ours / onDemand, ours / document);
    }
}

} // namespace

int main()
{
    compare("events, compact", R"({"type":"chunk","text":")", "\"}");
    compare("events with sorted keys and blanks", R"({"text": ")", R"(", "type": "chunk"})");
    compare("events with one more field", R"({"id":1,"type":"chunk","text":")", "\"}");
    return 0;
}
