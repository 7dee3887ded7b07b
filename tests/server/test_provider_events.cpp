#include "base/JsonAccess.h"
#include "connect/PlainWords.h"
#include "model/Answer.h"
#include "providers/AnthropicEvents.h"
#include "providers/OpenAiEvents.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace quellora::server {
namespace {

using nlohmann::json;
using Fault = ProviderFault;

/// What a reader makes of some events.
struct Reading
{
    std::string text;
    StreamStep last = StreamStep::Continue;
    std::optional<TokenCount> tokens;
    AnswerEnding ending = AnswerEnding::Whole;
    bool isWhole = false;
};

Reading read(const std::unique_ptr<AnswerEvents> &reader, const std::vector<std::string> &events)
{
    Reading reading;
    for (const std::string &event : events)
        reading.last = reader->read(event, [&](std::string_view text) { reading.text += text; });
    reading.tokens = reader->tokens();
    reading.ending = reader->ending();
    reading.isWhole = reader->isWhole();
    return reading;
}

Reading anthropic(const std::vector<std::string> &events)
{
    return read(anthropicEvents(), events);
}

Reading openAi(const std::vector<std::string> &events)
{
    return read(openAiEvents(), events);
}

std::string errorBody(const json &error)
{
    return json({{"type", "error"}, {"error", error}}).dump();
}

TEST(AnthropicEvents, ReadsEveryDocumentedEvent)
{
    const Reading reading = anthropic({
        R"({"type":"message_start","message":{"id":"msg_1","type":"message","role":"assistant","content":[],"model":"m","stop_reason":null,"stop_sequence":null,"usage":{"input_tokens":25,"cache_creation_input_tokens":3,"cache_read_input_tokens":4,"output_tokens":1}}})",
        R"({"type":"content_block_start","index":0,"content_block":{"type":"thinking","thinking":"","signature":""}})",
        R"({"type":"content_block_delta","index":0,"delta":{"type":"thinking_delta","thinking":"hidden"}})",
        R"({"type":"content_block_delta","index":0,"delta":{"type":"signature_delta","signature":"EqQB"}})",
        R"({"type":"content_block_stop","index":0})",
        R"({"type":"ping"})",
        R"({"type":"content_block_start","index":1,"content_block":{"type":"text","text":""}})",
        R"({"type":"content_block_delta","index":1,"delta":{"type":"text_delta","text":"Hel"}})",
        R"({"type":"content_block_delta","index":1,"delta":{"type":"citations_delta","citation":{}}})",
        R"({"type":"content_block_delta","index":1,"delta":{"type":"input_json_delta","partial_json":"{"}})",
        R"({"type":"content_block_delta","index":1,"delta":{"type":"text_delta","text":"lo"}})",
        R"({"type":"something_new","text":"x","delta":{"text":"y"}})",
        R"({"no":"type"})",
        R"({"type":"content_block_stop","index":1})",
        R"({"type":"message_delta","delta":{"stop_reason":"end_turn","stop_sequence":null},"usage":{"output_tokens":15}})",
    });
    EXPECT_EQ(reading.text, "Hello");
    EXPECT_EQ(reading.last, StreamStep::Continue);
    EXPECT_TRUE(reading.isWhole);
    EXPECT_EQ(reading.ending, AnswerEnding::Whole);
    EXPECT_EQ(reading.tokens->input, 32);
    EXPECT_EQ(reading.tokens->output, 15);
    EXPECT_EQ(anthropic({R"({"type":"message_stop"})"}).last, StreamStep::Finished);
}

TEST(AnthropicEvents, KnowsWhyAModelStopped)
{
    const auto ending = [](const std::string &reason) {
        return anthropic({R"({"type":"message_delta","delta":{"stop_reason":")" + reason + "\"}}"})
            .ending;
    };
    for (const char *whole : {"end_turn", "stop_sequence", "tool_use", "pause_turn", "new"})
        EXPECT_EQ(ending(whole), AnswerEnding::Whole) << whole;
    EXPECT_EQ(ending("max_tokens"), AnswerEnding::LengthLimit);
    EXPECT_EQ(ending("model_context_window_exceeded"), AnswerEnding::ContextFull);
    EXPECT_EQ(ending("refusal"), AnswerEnding::Declined);
    EXPECT_FALSE(anthropic({R"({"type":"message_delta","delta":{"stop_reason":null}})"}).isWhole);
}

TEST(AnthropicEvents, KnowsEveryDocumentedError)
{
    const struct
    {
        int status;
        const char *type;
        Fault fault;
    } rows[] = {{400, "invalid_request_error", Fault::InvalidRequest},
                {401, "authentication_error", Fault::Authentication},
                {402, "billing_error", Fault::Billing},
                {403, "permission_error", Fault::Permission},
                {404, "not_found_error", Fault::UnknownModel},
                {409, "conflict_error", Fault::ServerError},
                {413, "request_too_large", Fault::TooLarge},
                {429, "rate_limit_error", Fault::RateLimited},
                {500, "api_error", Fault::ServerError},
                {504, "timeout_error", Fault::TimedOut},
                {529, "overloaded_error", Fault::Overloaded}};
    const auto reader = anthropicEvents();
    for (const auto &row : rows) {
        const std::string body = errorBody({{"type", row.type}, {"message", "words"}});
        EXPECT_EQ(reader->faultOf(row.status, body), row.fault) << row.type;
        EXPECT_EQ(reader->faultOf(0, body), row.fault) << row.type << " in a stream";
        EXPECT_EQ(anthropic({body}).last, StreamStep::Broken) << row.type;
        // A proxy in between answers without a body.
        EXPECT_EQ(reader->faultOf(row.status, ""), row.fault) << row.status;
        EXPECT_EQ(reader->faultOf(row.status, "<html>"), row.fault) << row.status;
    }
    EXPECT_EQ(reader->faultOf(413, errorBody({{"type", "invalid_request_error"}})),
              Fault::TooLarge);
    EXPECT_EQ(reader->faultOf(0, errorBody({{"type", "brand_new_error"}})), Fault::Other);
    EXPECT_EQ(reader->faultOf(418, errorBody({{"type", "brand_new_error"}})),
              Fault::InvalidRequest);
}

TEST(AnthropicEvents, RefusesWhatIsNoEvent)
{
    for (const char *event : {"", "{", "5", "null", "[]", "\"message_stop\""})
        EXPECT_EQ(anthropic({event}).last, StreamStep::Broken) << event;
    // Wrong types where others are documented.
    const Reading odd =
        anthropic({R"({"type":5})", R"({"type":"message_start","message":[1]})",
                   R"({"type":"content_block_delta","delta":"text"})",
                   R"({"type":"content_block_delta","delta":{"type":"text_delta","text":7}})",
                   R"({"type":"message_delta","delta":null,"usage":{"output_tokens":-3}})"});
    EXPECT_EQ(odd.last, StreamStep::Continue);
    EXPECT_EQ(odd.text, "");
}

TEST(OpenAiEvents, ReadsEveryDocumentedChunk)
{
    const Reading reading = openAi({
        R"({"id":"c","object":"chat.completion.chunk","created":1,"model":"m","system_fingerprint":"f","choices":[{"index":0,"delta":{"role":"assistant","content":"","refusal":null},"logprobs":null,"finish_reason":null}],"usage":null})",
        R"({"object":"chat.completion.chunk","choices":[{"index":0,"delta":{"content":"Hel"},"finish_reason":null}]})",
        R"({"object":"chat.completion.chunk","choices":[{"index":0,"delta":{"tool_calls":[{"index":0,"function":{"arguments":"x"}}]}}]})",
        R"({"object":"chat.completion.chunk","choices":[{"index":0,"delta":{"reasoning_content":"hidden"}}]})",
        R"({"object":"chat.completion.chunk","choices":[{"index":0,"delta":{"content":"lo"}}]})",
        R"({"object":"something.new","text":"x"})",
        R"({"object":"chat.completion.chunk","choices":[{"index":0,"delta":{},"finish_reason":"stop"}]})",
        R"({"object":"chat.completion.chunk","choices":[],"usage":{"prompt_tokens":7,"completion_tokens":3,"total_tokens":10,"prompt_tokens_details":{"cached_tokens":2}}})",
    });
    EXPECT_EQ(reading.text, "Hello");
    EXPECT_EQ(reading.last, StreamStep::Continue);
    EXPECT_TRUE(reading.isWhole);
    EXPECT_EQ(reading.tokens->input, 7);
    EXPECT_EQ(reading.tokens->output, 3);
    EXPECT_EQ(openAi({"[DONE]"}).last, StreamStep::Finished);
}

TEST(OpenAiEvents, KnowsWhyAModelStopped)
{
    const auto ending = [](const std::string &reason) {
        return openAi({R"({"choices":[{"delta":{},"finish_reason":")" + reason + "\"}]}"}).ending;
    };
    for (const char *whole : {"stop", "tool_calls", "function_call", "new"})
        EXPECT_EQ(ending(whole), AnswerEnding::Whole) << whole;
    EXPECT_EQ(ending("length"), AnswerEnding::LengthLimit);
    EXPECT_EQ(ending("content_filter"), AnswerEnding::Filtered);
}

TEST(OpenAiEvents, ShowsWhatAModelSaysWhenItDeclines)
{
    EXPECT_EQ(openAi({R"({"choices":[{"delta":{"refusal":"I cannot "}}]})",
                      R"({"choices":[{"delta":{"refusal":"do that."}}]})"})
                  .text,
              "I cannot do that.");
}

TEST(OpenAiEvents, KnowsEveryDocumentedError)
{
    const struct
    {
        int status;
        json type;
        json code;
        Fault fault;
    } rows[] = {
        {400, "invalid_request_error", nullptr, Fault::InvalidRequest},
        {400, "invalid_request_error", "context_length_exceeded", Fault::ContextTooLong},
        {400, "invalid_request_error", "string_above_max_length", Fault::ContextTooLong},
        {400, "invalid_request_error", "content_policy_violation", Fault::Filtered},
        {400, nullptr, "content_filter", Fault::Filtered},
        {400, "invalid_request_error", "billing_hard_limit_reached", Fault::Billing},
        {401, "invalid_request_error", "invalid_api_key", Fault::Authentication},
        {401, "invalid_request_error", nullptr, Fault::Authentication},
        {403, "request_forbidden", "unsupported_country_region_territory", Fault::Permission},
        {403, "insufficient_permissions", nullptr, Fault::Permission},
        {404, "invalid_request_error", "model_not_found", Fault::UnknownModel},
        {413, nullptr, nullptr, Fault::TooLarge},
        {429, "requests", "rate_limit_exceeded", Fault::RateLimited},
        {429, "tokens", "rate_limit_exceeded", Fault::RateLimited},
        {429, "rate_limit_error", "slow_down", Fault::RateLimited},
        {429, "insufficient_quota", "insufficient_quota", Fault::Billing},
        {429, "insufficient_quota", "credit_balance_exhausted", Fault::Billing},
        {429, "insufficient_quota", "organization_spend_limit_exceeded", Fault::Billing},
        {429, "insufficient_quota", "project_spend_limit_exceeded", Fault::Billing},
        {429, "insufficient_quota", "organization_usage_limit_exceeded", Fault::Billing},
        {429, "billing_not_active", nullptr, Fault::Billing},
        {500, "server_error", nullptr, Fault::ServerError},
        {503, "service_unavailable_error", "server_is_overloaded", Fault::Overloaded},
        {504, "timeout", nullptr, Fault::TimedOut},
        // llama.cpp
        {400, "exceed_context_size_error", 400, Fault::ContextTooLong},
        {401, "authentication_error", 401, Fault::Authentication},
        {503, "unavailable_error", 503, Fault::Overloaded},
    };
    const auto reader = openAiEvents();
    for (const auto &row : rows) {
        const std::string body =
            json({{"error", {{"message", "words"}, {"type", row.type}, {"code", row.code}}}})
                .dump();
        EXPECT_EQ(reader->faultOf(row.status, body), row.fault) << body;
        EXPECT_EQ(openAi({body}).last, StreamStep::Broken) << body;
    }
    const auto inStream = [&](const json &error) {
        return reader->faultOf(0, json({{"error", error}}).dump());
    };
    EXPECT_EQ(inStream({{"type", "insufficient_quota"}}), Fault::Billing);
    EXPECT_EQ(inStream({{"type", "invalid_request_error"}}), Fault::InvalidRequest);
    EXPECT_EQ(inStream({{"message", "Provider returned error"}, {"code", 429}}),
              Fault::RateLimited);
    EXPECT_EQ(inStream({{"message", "x"}, {"code", 12}}), Fault::Other);
    EXPECT_EQ(inStream("a text alone"), Fault::Other);
    EXPECT_EQ(openAi({R"({"error":"a text alone"})"}).last, StreamStep::Broken);
    EXPECT_EQ(openAi({R"({"error":null,"choices":[]})"}).last, StreamStep::Continue);
}

TEST(OpenAiEvents, RefusesWhatIsNoEvent)
{
    for (const char *event : {"", "{", "5", "null", "[]", "DONE"})
        EXPECT_EQ(openAi({event}).last, StreamStep::Broken) << event;
    const Reading odd = openAi({R"({"choices":{}})", R"({"choices":[5]})",
                                R"({"choices":[{"delta":{"content":[1]},"finish_reason":3}]})",
                                R"({"usage":{"prompt_tokens":"7","completion_tokens":-1}})"});
    EXPECT_EQ(odd.last, StreamStep::Continue);
    EXPECT_EQ(odd.text, "");
    EXPECT_FALSE(odd.tokens);
    EXPECT_FALSE(odd.isWhole);
}

TEST(ProviderFaults, StatusesWithoutABodyHaveAMeaning)
{
    for (const auto &[status, fault] :
         {std::pair(301, Fault::Other), std::pair(400, Fault::InvalidRequest),
          std::pair(404, Fault::UnknownModel), std::pair(408, Fault::TimedOut),
          std::pair(410, Fault::UnknownModel), std::pair(422, Fault::InvalidRequest),
          std::pair(500, Fault::ServerError), std::pair(502, Fault::ServerError),
          std::pair(503, Fault::Overloaded), std::pair(504, Fault::TimedOut),
          std::pair(524, Fault::TimedOut), std::pair(529, Fault::Overloaded)})
        EXPECT_EQ(faultOfStatus(status), fault) << status;
}

TEST(ProviderFaults, EachHasWordsOfItsOwnForTheLogAndTheOwner)
{
    std::set<std::string> names;
    std::set<std::string> reasons;
    std::set<std::string> words;
    constexpr int count = static_cast<int>(Fault::TimedOut) + 1;
    for (int i = 0; i < count; ++i) {
        const FaultHandling &handling = handlingOf(static_cast<Fault>(i));
        names.insert(handling.name);
        reasons.insert(handling.reason);
        EXPECT_STRNE(handling.forUser, "");
        words.insert(plainWords({UpstreamProblem::Kind::Refused, 0, static_cast<Fault>(i), ""},
                                Asked::Answer, "It", "key"));
    }
    EXPECT_EQ(names.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(reasons.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(words.size(), static_cast<std::size_t>(count));
}

} // namespace
} // namespace quellora::server
