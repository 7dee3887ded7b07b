#include "http/SseWriter.h"
#include "model/EventStreamReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quellora::server {
namespace {

std::vector<std::string> read(const std::string &stream, std::size_t piece)
{
    std::vector<std::string> events;
    EventStreamReader reader([&](std::string_view data) {
        events.emplace_back(data);
        return true;
    });
    for (std::size_t i = 0; i < stream.size(); i += piece)
        EXPECT_TRUE(reader.feed(std::string_view(stream).substr(i, piece)));
    EXPECT_TRUE(reader.finish());
    return events;
}

TEST(EventStreamReader, ParsesPiecesOfAnySizeAndAllLineEndings)
{
    const std::string stream = ": comment\nevent: x\ndata: one\n\ndata:two\r\n\r\nid: 3\rdata: a\r"
                               "data:  b\r\rdata: \xE2\x80\xA8 kept\n\n\n\ndata: last";
    const std::vector<std::string> expected = {"one", "two", "a\n b", "\xE2\x80\xA8 kept", "last"};
    for (const std::size_t piece : {1U, 2U, 3U, 7U, 1000U})
        EXPECT_EQ(read(stream, piece), expected) << piece;
}

TEST(EventStreamReader, SkipsOneByteOrderMarkAtTheBeginningOnly)
{
    const std::string mark = "\xEF\xBB\xBF";
    for (const std::size_t piece : {1U, 2U, 1000U}) {
        EXPECT_EQ(read(mark + "data: 1\n\n" + mark + "data: 2\n\ndata: 3\n\n", piece),
                  (std::vector<std::string>{"1", "3"}));
        EXPECT_EQ(read(mark + mark + "data: 1\n\ndata: 2\n\n", piece),
                  (std::vector<std::string>{"2"}));
    }
}

TEST(EventStreamReader, KeepsNulsInData)
{
    const std::string data("a\0b", 3);
    EXPECT_EQ(read("data: " + data + "\n\n", 1), (std::vector<std::string>{data}));
}

TEST(EventStreamReader, StopsWhenTheHandlerReturnsFalse)
{
    int count = 0;
    EventStreamReader reader([&](std::string_view) { return ++count < 2; });
    EXPECT_FALSE(reader.feed("data: 1\n\ndata: 2\n\ndata: 3\n\n"));
    EXPECT_EQ(count, 2);
}

TEST(EventStreamReader, FailsOnEventsBeyondTheLimit)
{
    EventStreamReader reader([](std::string_view) { return true; }, 16);
    EXPECT_TRUE(reader.feed("data: 123456"));
    EXPECT_FALSE(reader.feed("7890123456"));
    EventStreamReader joined([](std::string_view) { return true; }, 16);
    EXPECT_FALSE(joined.feed("data: 123456\ndata: 123456\ndata: 1\n"));
}

TEST(SseWriter, WritesOneLinePerEvent)
{
    std::string out;
    const SseWriter writer([&](std::string_view bytes) {
        out += bytes;
        return true;
    });
    writer.chunk("a\n\"b\" \xE2\x80\xA8");
    writer.chunk("bad \xFF byte");
    writer.keepAlive();
    UsageFigures figures;
    figures.remaining = 900;
    figures.warning75 = true;
    writer.done(figures, 100, true);
    writer.error("no");
    EXPECT_EQ(out, "data: {\"type\":\"chunk\",\"text\":\"a\\n\\\"b\\\" \xE2\x80\xA8\"}\n\n"
                   "data: {\"type\":\"chunk\",\"text\":\"bad \xEF\xBF\xBD byte\"}\n\n"
                   ": keep-alive\n\n"
                   "data: {\"type\":\"done\",\"tokensRemaining\":900,\"usageWarning75\":true,"
                   "\"usageWarning90\":false,\"usedFallback\":true,\"tokensUsed\":100}\n\n"
                   "data: {\"type\":\"error\",\"message\":\"no\"}\n\n");
}

TEST(SseWriter, ReportsADisconnectedClient)
{
    const SseWriter writer([](std::string_view) { return false; });
    EXPECT_FALSE(writer.chunk("a"));
    EXPECT_FALSE(writer.keepAlive());
}

} // namespace
} // namespace quellora::server
