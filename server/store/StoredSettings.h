#pragma once

#include "base/Clock.h"
#include "store/Database.h"

#include <map>
#include <optional>
#include <string>

namespace quellora::server {

/// Settings that an administrator changes while the service runs; they take precedence over the
/// configuration file. Instances learn of changes. Thread-safe; may be used inside a transaction.
class StoredSettings
{
public:
    StoredSettings(Database &database, const Clock &clock) : m_database(database), m_clock(clock) {}

    /// The value of @p name, or nothing when the configuration file decides.
    std::optional<std::string> get(const std::string &name);
    std::map<std::string, std::string> all();
    /// Sets @p name, or with nothing leaves it to the configuration file.
    void set(const std::string &name, const std::optional<std::string> &value);

private:
    Database &m_database;
    const Clock &m_clock;
};

} // namespace quellora::server
