#pragma once

#include "base/Clock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quellora::server {

/// Time-based one-time codes (RFC 6238): SHA-1, six digits, 30 seconds.
namespace totp {

/// 160 random bits.
std::string newSecret();
/// Base32 (RFC 4648) without padding, as authenticator apps take it.
std::string base32(std::string_view bytes);
/// The bytes of @p text, with or without padding, spaces and lower-case letters; nothing when it is
/// no base32.
std::optional<std::string> base32Decoded(std::string_view text);
/// Number of the 30-second step of @p time.
std::int64_t stepOf(TimePoint time);
/// The code of @p step, six digits.
std::string code(std::string_view secret, std::int64_t step);
/// The step whose code @p entered is: that of @p now or one beside it, later than @p lastStep.
/// Nothing when there is none. The caller stores the step, so that no code is accepted twice.
std::optional<std::int64_t> acceptedStep(std::string_view secret, std::string_view entered,
                                         TimePoint now, std::int64_t lastStep);
/// The address that an authenticator app reads from a QR code.
std::string uri(std::string_view issuer, std::string_view account, std::string_view secret);

} // namespace totp
} // namespace quellora::server
