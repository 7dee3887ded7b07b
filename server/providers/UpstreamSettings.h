#pragma once

#include "base/Environment.h"
#include "config/TomlReader.h"
#include "providers/Provider.h"

#include <string>

namespace quellora::server {

/// How a provider is reached over HTTP.
struct UpstreamSettings
{
    std::string baseUrl;
    std::string apiKey;
    /// The only model to offer; saves writing [[models]].
    std::string model;
    int maxOutputTokens = 8192;
};

/// Whether @p url is an http or https address without user name, query and fragment.
bool isHttpUrl(const std::string &url);
/// The host of an http or https address in lower case, without port; v6 addresses in brackets.
std::string hostOfUrl(const std::string &url);
/// Whether @p host is this machine itself.
bool isLoopbackHost(const std::string &host);

/// The models of a list in the form {"data": [{"id": ..., @p titleKey: ...}]}, at most 2000.
/// Entries without a usable name are left out.
tl::expected<std::vector<OfferedModel>, UpstreamProblem> listedModels(const std::string &document,
                                                                      const char *titleKey);

/// Reads `base_url`, `api_key`, `api_key_file`, `model` and `max_output_tokens`. The variables
/// PREFIX_BASE_URL, PREFIX_API_KEY and PREFIX_MODEL override them. Reports an unusable base address
/// or key file through @p table.
UpstreamSettings readUpstream(TomlReader &table, const Environment &environment,
                              const std::string &prefix, const std::string &defaultBaseUrl = "");

} // namespace quellora::server
