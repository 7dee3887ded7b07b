#pragma once

#include <string>
#include <string_view>

namespace quellora::screencapture {

/// The SHA-256 digest in lower-case hexadecimal digits. Not for secrets or large data.
std::string sha256(std::string_view data);

} // namespace quellora::screencapture
