#include "admin/PersonRecord.h"

#include "base/JsonAccess.h"
#include "base/Text.h"

#include <limits>

namespace quellora::server {
namespace {

using Json = nlohmann::ordered_json;

Json timeOf(std::int64_t seconds)
{
    return seconds == 0 ? Json() : Json(isoTime(TimePoint(std::chrono::seconds(seconds))));
}

Json sessionsOf(Database &database, std::int64_t id)
{
    Json list = Json::array();
    database.query("SELECT id, kind, created_at, expires_at FROM sessions WHERE account_id = ?"
                   " ORDER BY created_at, id",
                   {id}, [&](const Database::Row &row) {
                       list.push_back({{"id", row.text(0)},
                                       {"kind", row.text(1)},
                                       {"createdAt", timeOf(row.integer(2))},
                                       {"expiresAt", timeOf(row.integer(3))}});
                   });
    return list;
}

Json telemetryOf(Database &database, std::int64_t id)
{
    Json list = Json::array();
    database.query("SELECT received_at, record FROM telemetry WHERE account_id = ? ORDER BY id",
                   {id}, [&](const Database::Row &row) {
                       list.push_back({{"receivedAt", timeOf(row.integer(0))},
                                       {"record", Json::parse(row.text(1), nullptr, false)}});
                   });
    return list;
}

Json usageOf(AdminStore &store, std::int64_t id)
{
    Json list = Json::array();
    for (const DailyUsage &usage : store.usage.daily("0000-00-00", "9999-99-99", id))
        list.push_back({{"day", usage.day},
                        {"model", usage.model},
                        {"inputTokens", usage.tokens.input},
                        {"outputTokens", usage.tokens.output},
                        {"queries", usage.queries}});
    return list;
}

Json logsOf(AdminStore &store, std::int64_t id)
{
    Json list = Json::array();
    for (const UploadedLog &log : store.logs.list(id)) {
        std::string text;
        store.logs.read(log.id, [&](std::string_view piece) {
            text += piece;
            return true;
        });
        list.push_back({{"receivedAt", timeOf(log.receivedAt)}, {"text", text}});
    }
    return list;
}

Json messagesOf(AdminStore &store, std::int64_t id)
{
    Json list = Json::array();
    for (const StoredMessage &stored : store.messages.all()) {
        if (stored.accountId == id)
            list.push_back({{"id", stored.message.id},
                            {"type", stored.message.type},
                            {"headerText", stored.message.headerText},
                            {"bodyMarkdown", stored.message.bodyMarkdown}});
    }
    return list;
}

Json trailOf(AdminStore &store, const std::string &person)
{
    Json list = Json::array();
    for (const AuditEntry &entry : store.audit.list(std::numeric_limits<int>::max(), 0, person))
        list.push_back({{"at", timeOf(entry.at)},
                        {"actor", entry.actor},
                        {"action", entry.action},
                        {"detail", entry.detail}});
    return list;
}

} // namespace

std::string personRecord(AdminStore &store, const Account &account)
{
    const Json record = {
        {"account",
         {{"email", account.email},
          {"person", account.person},
          {"plan", account.plan},
          {"tokenCap", account.tokenCap},
          {"suspended", account.suspended},
          {"createdAt", timeOf(account.createdAt)},
          {"lastSeenAt", timeOf(account.lastSeenAt)},
          {"signInProvider", account.oidcIssuer},
          {"signInSubject", account.oidcSubject}}},
        {"sessions", sessionsOf(store.database, account.id)},
        {"usage", usageOf(store, account.id)},
        {"telemetry", telemetryOf(store.database, account.id)},
        {"messages", messagesOf(store, account.id)},
        {"logs", logsOf(store, account.id)},
        {"audit", trailOf(store, account.person)},
    };
    return record.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace quellora::server
