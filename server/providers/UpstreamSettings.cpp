#include "providers/UpstreamSettings.h"

#include <fstream>

namespace quellora::server {
namespace {

std::string firstLine(const std::string &path)
{
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line.substr(0, line.find('\r'));
}

bool isHttpUrl(const std::string &url)
{
    if (url.rfind("http://", 0) != 0 && url.rfind("https://", 0) != 0)
        return false;
    return url.size() > url.find("://") + 3 && url.find_first_of(" \t\r\n@?#") == std::string::npos;
}

} // namespace

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
