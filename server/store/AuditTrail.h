#pragma once

#include "base/Clock.h"
#include "store/Database.h"

#include <string>
#include <vector>

namespace quellora::server {

/// Something that was done to accounts or settings.
struct AuditEntry
{
    std::int64_t id = 0;
    /// Seconds since the epoch.
    std::int64_t at = 0;
    /// Who did it: the `person` of an account or an administrator, or "command line".
    std::string actor;
    /// A short fixed name such as "suspend".
    std::string action;
    /// Whom or what it was done to: the `person` of an account, or the name of a setting.
    std::string subject;
    std::string detail;

    bool operator==(const AuditEntry &) const = default;
};

/// A trail that only grows: the store itself refuses to change or remove entries. People are in it
/// by their `person` alone, so that it names nobody whose account was deleted; an entry's detail
/// must not name them either. Thread-safe; may be used inside a transaction.
class AuditTrail
{
public:
    AuditTrail(Database &database, const Clock &clock) : m_database(database), m_clock(clock) {}

    void add(const std::string &actor, const std::string &action, const std::string &subject,
             const std::string &detail = "");
    /// Up to @p most entries, newest first; those before entry @p before when it is not 0, and
    /// those about or by @p person when it is not empty.
    std::vector<AuditEntry> list(int most, std::int64_t before = 0, const std::string &person = "");

private:
    Database &m_database;
    const Clock &m_clock;
};

} // namespace quellora::server
