#pragma once

#include <tl/expected.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quellora::server {

/// A model of a connection.
struct ConnectedModel
{
    /// The provider's name of it.
    std::string name;
    std::string title;

    bool operator==(const ConnectedModel &) const = default;
};

/// A model server that the owner has connected on the account page.
struct Connection
{
    /// Name of the provider that speaks with it.
    std::string provider;
    std::string title;
    std::string baseUrl;
    /// May be empty.
    std::string apiKey;
    std::vector<ConnectedModel> models;

    bool operator==(const Connection &) const = default;
};

/// The file that keeps the connections with their keys. Readable and writable by its owner only.
class ConnectionFile
{
public:
    explicit ConnectionFile(std::filesystem::path path) : m_path(std::move(path)) {}

    /// The stored connections, none when there is no file. The error names the file and nothing of
    /// its content. Takes away the rights of others when the file has them.
    tl::expected<std::vector<Connection>, std::string> load() const;
    /// Replaces the file in one step, so that it is whole at any moment. Nothing, or why the old
    /// one remains.
    std::optional<std::string> save(const std::vector<Connection> &connections) const;
    const std::filesystem::path &path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

} // namespace quellora::server
