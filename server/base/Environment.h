#pragma once

#include <cstdlib>
#include <functional>
#include <optional>
#include <string>

namespace quellora::server {

/// Value of an environment variable, or nothing when it is unset.
using Environment = std::function<std::optional<std::string>(const char *name)>;

/// The environment of this process. Empty values count as unset.
inline Environment processEnvironment()
{
    return [](const char *name) -> std::optional<std::string> {
        const char *value = std::getenv(name);
        if (!value || !*value)
            return std::nullopt;
        return std::string(value);
    };
}

} // namespace quellora::server
