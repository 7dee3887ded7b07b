#pragma once

#include <string>

namespace quellora::server {

/// QR code of @p text as an SVG image, dark on white in every theme so that cameras read it.
/// @p label names it for those who do not see it.
std::string qrSvg(const std::string &text, const std::string &label);
/// The same for a terminal, of block characters, two rows of dots per line.
std::string qrText(const std::string &text);

} // namespace quellora::server
