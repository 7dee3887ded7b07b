#include "http/UploadRoutes.h"

#include "base/JsonAccess.h"
#include "base/Log.h"
#include "http/Replies.h"

#include <array>

namespace quellora::server {
namespace {

enum class FieldType { Text, Flag, Whole, Number };

struct Field
{
    const char *name;
    FieldType type;
};

constexpr std::array<Field, 15> telemetryFields = {{{"model_used", FieldType::Text},
                                                    {"used_fallback", FieldType::Flag},
                                                    {"prompt_chars", FieldType::Whole},
                                                    {"has_image", FieldType::Flag},
                                                    {"response_time_ms", FieldType::Number},
                                                    {"time_to_first_token_ms", FieldType::Number},
                                                    {"input_tokens", FieldType::Whole},
                                                    {"output_tokens", FieldType::Whole},
                                                    {"total_tokens", FieldType::Whole},
                                                    {"tokens_used_before", FieldType::Whole},
                                                    {"tokens_remaining_after", FieldType::Whole},
                                                    {"token_cap", FieldType::Whole},
                                                    {"over_cap", FieldType::Flag},
                                                    {"app_version", FieldType::Text},
                                                    {"platform", FieldType::Text}}};
constexpr std::size_t longestText = 200;

bool fits(const nlohmann::json &value, FieldType type)
{
    switch (type) {
    case FieldType::Text:
        return value.is_string() && value.get_ref<const std::string &>().size() <= longestText;
    case FieldType::Flag:
        return value.is_boolean();
    case FieldType::Whole:
        return value.is_number_integer();
    case FieldType::Number:
        return value.is_number();
    }
    return false;
}

} // namespace

std::optional<Account> UploadRoutes::admitted(const Request &request, Response &response) const
{
    const auto caller = m_guard.caller(request, response);
    if (!caller)
        return std::nullopt;
    if (const auto wait = m_services.uploadRate->acquire(std::to_string(caller->account.id))) {
        replyRateLimited(response, *wait);
        return std::nullopt;
    }
    return caller->account;
}

void UploadRoutes::telemetry(const Request &request, Response &response) const
{
    if (!m_guard.jsonBody(request, response))
        return;
    const auto account = admitted(request, response);
    if (!account)
        return;
    const auto record = parsedObject(request.body);
    // Unknown fields are not stored: they could contain private data.
    nlohmann::ordered_json kept;
    for (const Field &field : telemetryFields) {
        const nlohmann::json &value = record ? memberOf(*record, field.name) : nlohmann::json();
        if (!fits(value, field.type)) {
            replyError(response, 400, std::string("missing or wrong field: ") + field.name);
            return;
        }
        kept[field.name] = value;
    }
    m_services.telemetry.add(
        account->id, kept.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    response.status = 202;
}

void UploadRoutes::logs(const Request &request, Response &response) const
{
    const auto account = admitted(request, response);
    if (!account)
        return;
    if (request.body.empty()) {
        replyError(response, 400, "the log is empty");
        return;
    }
    if (!m_services.logs.store(account->id, request.body)) {
        replyError(response, 500, "the log could not be stored");
        return;
    }
    Log::event("[UploadRoutes] Stored a log of " + std::to_string(request.body.size()) +
               " bytes from account " + std::to_string(account->id));
    response.status = 202;
}

} // namespace quellora::server
