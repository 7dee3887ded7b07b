#include "http/Message.h"

#include "base/Text.h"

#include <algorithm>

namespace quellora::server {
namespace {

bool isNamed(const HeaderFields::Field &field, std::string_view name)
{
    return field.first.size() == name.size() && lowered(field.first) == lowered(name);
}

} // namespace

void HeaderFields::add(std::string name, std::string value)
{
    m_fields.emplace_back(std::move(name), std::move(value));
}

void HeaderFields::set(const std::string &name, std::string value)
{
    std::erase_if(m_fields, [&](const Field &field) { return isNamed(field, name); });
    add(name, std::move(value));
}

std::size_t HeaderFields::count(std::string_view name) const
{
    return static_cast<std::size_t>(
        std::count_if(m_fields.begin(), m_fields.end(),
                      [&](const Field &field) { return isNamed(field, name); }));
}

std::string HeaderFields::value(std::string_view name) const
{
    const auto found = std::find_if(m_fields.begin(), m_fields.end(),
                                    [&](const Field &field) { return isNamed(field, name); });
    return found == m_fields.end() ? std::string() : found->second;
}

std::optional<std::string> Request::parameter(const std::string &name) const
{
    const auto found = parameters.find(name);
    if (found == parameters.end())
        return std::nullopt;
    return found->second;
}

void Response::setBody(std::string content, const std::string &type)
{
    body = std::move(content);
    headers.set("Content-Type", type);
}

} // namespace quellora::server
