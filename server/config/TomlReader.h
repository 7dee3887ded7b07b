#pragma once

#include <toml++/toml.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace quellora::server {

/// Typed access to one TOML table. Detects wrong types, values out of range and unknown keys. The
/// first problem found is stored in the shared error text.
class TomlReader
{
public:
    /// @p table is null when absent; @p name is its dotted name for messages.
    TomlReader(const toml::table *table, std::string name, std::string &error);

    void read(std::string_view key, std::string &value);
    void read(std::string_view key, std::optional<std::string> &value);
    void read(std::string_view key, bool &value);
    void read(std::string_view key, std::optional<bool> &value);
    void read(std::string_view key, std::vector<std::string> &value);
    /// Whole numbers within [@p least, @p most].
    template <typename Number>
    void read(std::string_view key, Number &value, std::int64_t least, std::int64_t most)
    {
        if (const auto number = integer(key, least, most))
            value = static_cast<Number>(*number);
    }
    /// Whole seconds within [@p least, @p most].
    template <typename Rep, typename Period>
    void readSeconds(std::string_view key, std::chrono::duration<Rep, Period> &value,
                     std::int64_t least, std::int64_t most)
    {
        if (const auto number = integer(key, least, most))
            value = std::chrono::seconds(*number);
    }
    std::optional<std::int64_t> integer(std::string_view key, std::int64_t least,
                                        std::int64_t most);
    /// The sub-table of that name; an absent one has no keys.
    TomlReader table(std::string_view key);
    /// The tables of an array of tables.
    std::vector<TomlReader> tables(std::string_view key);
    bool present() const { return m_table != nullptr; }
    /// Reports the first key that was never read.
    void finish();
    void fail(std::string_view key, const std::string &problem);

private:
    const toml::node *node(std::string_view key);

    const toml::table *m_table;
    std::string m_name;
    std::string *m_error;
    std::set<std::string, std::less<>> m_known;
};

} // namespace quellora::server
