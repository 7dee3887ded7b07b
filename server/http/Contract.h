#pragma once

#include <string_view>

namespace quellora::server {

/// The OpenAPI document of this version, compiled in from openapi.json.
std::string_view contractJson();

} // namespace quellora::server
