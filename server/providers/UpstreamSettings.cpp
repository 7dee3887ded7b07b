#include "providers/UpstreamSettings.h"

#include "base/JsonAccess.h"
#include "base/Text.h"
#include "model/ProviderWords.h"

#include <arpa/inet.h>

#include <fstream>
#include <set>

namespace quellora::server {
namespace {

std::string firstLine(const std::string &path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line.substr(0, line.find('\r'));
}

constexpr std::size_t mostModels = 2000;
constexpr std::size_t longestName = 200;
constexpr std::size_t longestTitle = 80;

} // namespace

bool isHttpUrl(const std::string &url)
{
    if (url.rfind("http://", 0) != 0 && url.rfind("https://", 0) != 0)
        return false;
    return url.size() > url.find("://") + 3 && url.find_first_of(" \t\r\n@?#") == std::string::npos;
}

std::string hostOfUrl(const std::string &url)
{
    const std::size_t scheme = url.find("://");
    const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
    const std::string authority = lowered(url.substr(begin, url.find('/', begin) - begin));
    if (!authority.empty() && authority.front() == '[')
        return authority.substr(0, authority.find(']') + 1);
    return authority.substr(0, authority.find(':'));
}

bool isLoopbackHost(const std::string &host)
{
    in_addr v4{};
    if (::inet_pton(AF_INET, host.c_str(), &v4) == 1)
        return (ntohl(v4.s_addr) >> 24U) == 127;
    return host == "localhost" || host == "[::1]";
}

tl::expected<std::vector<OfferedModel>, UpstreamProblem> listedModels(const std::string &document,
                                                                      const char *titleKey)
{
    const auto record = parsedObject(document);
    const nlohmann::json *list = record ? &memberOf(*record, "data") : nullptr;
    if (!list || !list->is_array())
        return tl::make_unexpected(UpstreamProblem{UpstreamProblem::Kind::Malformed});
    std::vector<OfferedModel> models;
    std::set<std::string> seen;
    for (const nlohmann::json &entry : *list) {
        if (models.size() == mostModels)
            break;
        const std::string name = textOf(entry, "id").value_or("");
        if (name.empty() || name != displayText(name, longestName) || !seen.insert(name).second)
            continue;
        std::string title = displayText(textOf(entry, titleKey).value_or(""), longestTitle);
        if (title.empty())
            title = name;
        models.push_back({name, std::move(title)});
    }
    return models;
}

UpstreamSettings readUpstream(TomlReader &table, const Environment &environment,
                              const std::string &prefix, const std::string &defaultBaseUrl)
{
    UpstreamSettings settings;
    std::string keyFile;
    table.read("base_url", settings.baseUrl);
    table.read("api_key", settings.apiKey);
    table.read("api_key_file", keyFile);
    table.read("model", settings.model);
    table.read("max_output_tokens", settings.maxOutputTokens, 1, 1000000);
    if (!keyFile.empty()) {
        settings.apiKey = firstLine(keyFile);
        if (settings.apiKey.empty())
            table.fail("api_key_file", "cannot read a key from " + keyFile);
    }

    const auto override = [&](const char *suffix, std::string &value) {
        value = environment((prefix + suffix).c_str()).value_or(value);
    };
    override("_BASE_URL", settings.baseUrl);
    override("_API_KEY", settings.apiKey);
    override("_MODEL", settings.model);

    if (settings.baseUrl.empty())
        settings.baseUrl = defaultBaseUrl;
    if (!settings.baseUrl.empty() && !isHttpUrl(settings.baseUrl))
        table.fail("base_url", "must be an http or https address");
    return settings;
}

} // namespace quellora::server
