#include "store/Connections.h"

#include "base/JsonAccess.h"
#include "base/Log.h"
#include "base/Secrets.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace quellora::server {
namespace {

constexpr std::size_t mostBytes = 1024U * 1024U;
constexpr std::size_t mostConnections = 64;
constexpr std::size_t mostModels = 256;

/// Closes a file at the end of a scope.
class File
{
public:
    explicit File(int descriptor) : m_descriptor(descriptor) {}
    ~File()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    int get() const { return m_descriptor; }
    bool isOpen() const { return m_descriptor >= 0; }

private:
    int m_descriptor;
};

bool writeAll(int descriptor, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

/// The file's bytes, or nothing when reading fails or it is too long.
std::optional<std::string> readAll(int descriptor)
{
    std::string bytes;
    char buffer[16384];
    while (bytes.size() <= mostBytes) {
        const ssize_t count = ::read(descriptor, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            return bytes;
        bytes.append(buffer, static_cast<std::size_t>(count));
    }
    return std::nullopt;
}

std::optional<Connection> connectionOf(const nlohmann::json &record)
{
    const auto provider = textOf(record, "provider");
    const auto title = textOf(record, "title");
    const auto address = textOf(record, "address");
    const auto key = textOf(record, "key");
    const nlohmann::json &models = memberOf(record, "models");
    if (!provider || !title || !address || !key || !models.is_array() || models.empty() ||
        models.size() > mostModels)
        return std::nullopt;
    Connection connection{*provider, *title, *address, *key, {}};
    for (const nlohmann::json &model : models) {
        const auto name = textOf(model, "name");
        if (!name || name->empty())
            return std::nullopt;
        connection.models.push_back({*name, textOf(model, "title").value_or(*name)});
    }
    return connection;
}

std::string document(const std::vector<Connection> &connections)
{
    nlohmann::json list = nlohmann::json::array();
    for (const Connection &connection : connections) {
        nlohmann::json models = nlohmann::json::array();
        for (const ConnectedModel &model : connection.models)
            models.push_back({{"name", model.name}, {"title", model.title}});
        list.push_back({{"provider", connection.provider},
                        {"title", connection.title},
                        {"address", connection.baseUrl},
                        {"key", connection.apiKey},
                        {"models", models}});
    }
    return compactJson({{"connections", list}}) + "\n";
}

} // namespace

tl::expected<std::vector<Connection>, std::string> ConnectionFile::load() const
{
    const auto failed = [this](const std::string &why) {
        return tl::make_unexpected(m_path.string() + ": " + why);
    };
    // Non-blocking, because opening a named pipe would wait for a writer.
    const File file(::open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.isOpen()) {
        if (errno == ENOENT || errno == ENOTDIR)
            return std::vector<Connection>();
        return failed(std::strerror(errno));
    }
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return failed("is not a file");
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        Log::event("[ConnectionFile] WARNING: Others could read " + m_path.string() +
                   "; taking that right away");
        if (::fchmod(file.get(), S_IRUSR | S_IWUSR) != 0)
            return failed("is readable by others");
    }
    const auto bytes = readAll(file.get());
    const auto record = bytes ? parsedObject(*bytes) : std::nullopt;
    const nlohmann::json *list = record ? &memberOf(*record, "connections") : nullptr;
    if (!list || !list->is_array() || list->size() > mostConnections)
        return failed("cannot be understood");
    std::vector<Connection> connections;
    for (const nlohmann::json &entry : *list) {
        auto connection = connectionOf(entry);
        if (!connection)
            return failed("cannot be understood");
        connections.push_back(std::move(*connection));
    }
    return connections;
}

std::optional<std::string> ConnectionFile::save(const std::vector<Connection> &connections) const
{
    std::error_code ignored;
    std::filesystem::create_directories(m_path.parent_path(), ignored);
    const std::filesystem::path fresh = m_path.string() + "." + randomToken() + ".new";
    const auto failed = [&](const char *step) {
        std::string why = std::string(step) + " " + m_path.string() + ": " + std::strerror(errno);
        ::unlink(fresh.c_str());
        return why;
    };
    {
        const File file(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                               S_IRUSR | S_IWUSR));
        if (!file.isOpen())
            return failed("cannot write");
        // The mode above is reduced by the process's mask, which may lack even the owner's rights.
        if (::fchmod(file.get(), S_IRUSR | S_IWUSR) != 0 ||
            !writeAll(file.get(), document(connections)) || ::fsync(file.get()) != 0)
            return failed("cannot write");
    }
    if (::rename(fresh.c_str(), m_path.c_str()) != 0)
        return failed("cannot replace");
    const File directory(::open(m_path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.isOpen())
        ::fsync(directory.get());
    return std::nullopt;
}

} // namespace quellora::server
