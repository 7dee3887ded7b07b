#include "config/TomlReader.h"

namespace quellora::server {

TomlReader::TomlReader(const toml::table *table, std::string name, std::string &error)
    : m_table(table), m_name(std::move(name)), m_error(&error)
{}

const toml::node *TomlReader::node(std::string_view key)
{
    m_known.emplace(key);
    return m_table ? m_table->get(key) : nullptr;
}

void TomlReader::fail(std::string_view key, const std::string &problem)
{
    if (!m_error->empty())
        return;
    *m_error = m_name.empty() ? std::string(key) : m_name + "." + std::string(key);
    *m_error += ": " + problem;
}

void TomlReader::read(std::string_view key, std::string &value)
{
    if (const toml::node *found = node(key)) {
        if (const auto text = found->value_exact<std::string>())
            value = *text;
        else
            fail(key, "must be a text in quotes");
    }
}

void TomlReader::read(std::string_view key, std::optional<std::string> &value)
{
    std::string text;
    if (node(key)) {
        read(key, text);
        value = text;
    }
}

void TomlReader::read(std::string_view key, bool &value)
{
    if (const toml::node *found = node(key)) {
        if (const auto flag = found->value_exact<bool>())
            value = *flag;
        else
            fail(key, "must be true or false");
    }
}

void TomlReader::read(std::string_view key, std::optional<bool> &value)
{
    bool flag = false;
    if (node(key)) {
        read(key, flag);
        value = flag;
    }
}

void TomlReader::read(std::string_view key, std::vector<std::string> &value)
{
    const toml::node *found = node(key);
    if (!found)
        return;
    const toml::array *list = found->as_array();
    if (!list) {
        fail(key, "must be a list of texts");
        return;
    }
    value.clear();
    for (const toml::node &element : *list) {
        if (const auto text = element.value_exact<std::string>())
            value.push_back(*text);
        else
            fail(key, "must be a list of texts");
    }
}

std::optional<std::int64_t> TomlReader::integer(std::string_view key, std::int64_t least,
                                                std::int64_t most)
{
    const toml::node *found = node(key);
    if (!found)
        return std::nullopt;
    const auto number = found->value_exact<std::int64_t>();
    if (!number || *number < least || *number > most) {
        fail(key, "must be a whole number from " + std::to_string(least) + " to " +
                      std::to_string(most));
        return std::nullopt;
    }
    return number;
}

TomlReader TomlReader::table(std::string_view key)
{
    const std::string name = m_name.empty() ? std::string(key) : m_name + "." + std::string(key);
    const toml::node *found = node(key);
    if (found && !found->as_table())
        fail(key, "must be a table");
    return TomlReader(found ? found->as_table() : nullptr, name, *m_error);
}

std::vector<TomlReader> TomlReader::tables(std::string_view key)
{
    std::vector<TomlReader> readers;
    const toml::node *found = node(key);
    if (!found)
        return readers;
    const toml::array *list = found->as_array();
    if (!list || (!list->empty() && !list->is_array_of_tables())) {
        fail(key, "must be written as [[" + std::string(key) + "]] tables");
        return readers;
    }
    for (const toml::node &element : *list)
        readers.emplace_back(element.as_table(), std::string(key), *m_error);
    return readers;
}

void TomlReader::finish()
{
    if (!m_table)
        return;
    for (const auto &[key, value] : *m_table) {
        if (m_known.find(key.str()) == m_known.end())
            fail(key.str(), "unknown key");
    }
}

} // namespace quellora::server
