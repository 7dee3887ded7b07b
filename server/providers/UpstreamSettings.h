#pragma once

#include "base/Environment.h"
#include "config/TomlReader.h"

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

/// Reads `base_url`, `api_key`, `api_key_file`, `model` and `max_output_tokens`. The variables
/// PREFIX_BASE_URL, PREFIX_API_KEY and PREFIX_MODEL override them. Reports an unusable base address
/// or key file through @p table.
UpstreamSettings readUpstream(TomlReader &table, const Environment &environment,
                              const std::string &prefix, const std::string &defaultBaseUrl = "");

} // namespace quellora::server
