#include "store/Messages.h"

#include "base/Secrets.h"
#include "store/Changes.h"

namespace quellora::server {
namespace {

Database::Value valueOf(const std::optional<std::string> &text)
{
    return text ? Database::Value(*text) : Database::Value();
}

Database::Value valueOf(const std::optional<std::int64_t> &number)
{
    return number ? Database::Value(*number) : Database::Value();
}

StoredMessage messageOf(const Database::Row &row)
{
    StoredMessage stored;
    stored.message.id = row.text(0);
    if (!row.isNull(1))
        stored.accountId = row.integer(1);
    stored.message.type = row.text(2);
    stored.message.headerText = row.text(3);
    stored.message.bodyMarkdown = row.text(4);
    if (!row.isNull(5))
        stored.message.actionLabel = row.text(5);
    if (!row.isNull(6))
        stored.message.actionUrl = row.text(6);
    if (!row.isNull(7))
        stored.message.forceUpdateInMinutes = row.integer(7);
    stored.createdAt = row.integer(8);
    stored.withdrawnAt = row.integer(9);
    return stored;
}

} // namespace

std::string Messages::add(const AdminMessage &message, std::optional<std::int64_t> accountId)
{
    std::string id = message.id.empty() ? "message-" + randomUuid() : message.id;
    m_database.transaction([&] {
        m_database.execute(
            "INSERT INTO messages(id, account_id, type, header, body, action_label, action_url,"
            " force_update_minutes, created_at) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)",
            {id, valueOf(accountId), message.type, message.headerText, message.bodyMarkdown,
             valueOf(message.actionLabel), valueOf(message.actionUrl),
             valueOf(message.forceUpdateInMinutes), toMilliseconds(m_clock.now())});
        publishChange(m_database, m_clock, topics::messages);
    });
    return id;
}

bool Messages::withdraw(const std::string &id)
{
    bool isWithdrawn = false;
    m_database.transaction([&] {
        isWithdrawn = m_database.execute("UPDATE messages SET withdrawn_at = ?"
                                         " WHERE id = ? AND withdrawn_at IS NULL",
                                         {toMilliseconds(m_clock.now()), id}) > 0;
        publishChange(m_database, m_clock, topics::messages);
    });
    return isWithdrawn;
}

std::vector<StoredMessage> Messages::list(const std::string &rest,
                                          const std::vector<Database::Value> &values)
{
    std::vector<StoredMessage> messages;
    m_database.query("SELECT id, account_id, type, header, body, action_label, action_url,"
                     " force_update_minutes, created_at, withdrawn_at FROM messages " +
                         rest,
                     values, [&](const Database::Row &row) { messages.push_back(messageOf(row)); });
    return messages;
}

std::vector<StoredMessage> Messages::all()
{
    return list("ORDER BY created_at DESC, id", {});
}

std::optional<AdminMessage> Messages::forAccount(std::int64_t accountId)
{
    const auto found =
        list("WHERE withdrawn_at IS NULL AND (account_id IS NULL OR account_id = ?)"
             " ORDER BY CASE type WHEN 'BLOCKING' THEN 0 ELSE 1 END,"
             " CASE WHEN account_id IS NULL THEN 1 ELSE 0 END, created_at DESC, id LIMIT 1",
             {accountId});
    if (found.empty())
        return std::nullopt;
    return found.front().message;
}

} // namespace quellora::server
