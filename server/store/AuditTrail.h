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

/// Which entries are wanted; what is empty or 0 does not restrict them.
struct AuditFilter
{
    /// Those about or by this person, or by "command line".
    std::string person;
    std::string action;
    /// Those older than this entry.
    std::int64_t before = 0;
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
    /// Up to @p most entries that @p filter lets through, newest first.
    std::vector<AuditEntry> list(int most, const AuditFilter &filter = {});
    /// The actions that occur in the trail, in alphabetical order.
    std::vector<std::string> actions();

private:
    Database &m_database;
    const Clock &m_clock;
};

} // namespace quellora::server
