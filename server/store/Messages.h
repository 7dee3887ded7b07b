#pragma once

#include "base/Clock.h"
#include "config/Config.h"
#include "store/Database.h"

#include <optional>
#include <string>
#include <vector>

namespace quellora::server {

/// A message that an administrator wrote.
struct StoredMessage
{
    AdminMessage message;
    /// The one account it is for; nothing when it is for all.
    std::optional<std::int64_t> accountId;
    std::int64_t createdAt = 0;
    /// Milliseconds since the epoch, as createdAt; 0 while it is shown.
    std::int64_t withdrawnAt = 0;
};

/// The messages to all accounts or one. Instances learn of changes. Thread-safe; all members may be
/// used inside a transaction.
class Messages
{
public:
    Messages(Database &database, const Clock &clock) : m_database(database), m_clock(clock) {}

    /// Shows @p message from now on and returns its id, a new one when it has none. The app tells
    /// messages apart by it.
    std::string add(const AdminMessage &message, std::optional<std::int64_t> accountId = {});
    /// No longer shows it; false when it is unknown or withdrawn.
    bool withdraw(const std::string &id);
    /// All messages, newest first.
    std::vector<StoredMessage> all();
    /// What the app of an account shows: the newest blocking message, else the newest one; one for
    /// the account alone comes before one for all.
    std::optional<AdminMessage> forAccount(std::int64_t accountId);

private:
    std::vector<StoredMessage> list(const std::string &rest,
                                    const std::vector<Database::Value> &values);

    Database &m_database;
    const Clock &m_clock;
};

} // namespace quellora::server
