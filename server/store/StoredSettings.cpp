#include "store/StoredSettings.h"

#include "store/Changes.h"

namespace quellora::server {

std::optional<std::string> StoredSettings::get(const std::string &name)
{
    std::optional<std::string> value;
    m_database.query("SELECT value FROM settings WHERE name = ?", {name},
                     [&](const Database::Row &row) { value = row.text(0); });
    return value;
}

std::map<std::string, std::string> StoredSettings::all()
{
    std::map<std::string, std::string> values;
    m_database.query("SELECT name, value FROM settings", {},
                     [&](const Database::Row &row) { values[row.text(0)] = row.text(1); });
    return values;
}

void StoredSettings::set(const std::string &name, const std::optional<std::string> &value)
{
    m_database.transaction([&] {
        if (value)
            m_database.execute("INSERT INTO settings(name, value) VALUES(?, ?)"
                               " ON CONFLICT(name) DO UPDATE SET value = excluded.value",
                               {name, *value});
        else
            m_database.execute("DELETE FROM settings WHERE name = ?", {name});
        publishChange(m_database, m_clock, topics::settings);
    });
}

} // namespace quellora::server
