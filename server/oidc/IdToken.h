#pragma once

#include "base/Clock.h"

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <string>

namespace quellora::server {

/// What an ID token must say to be accepted.
struct IdTokenExpectation
{
    std::string issuer;
    std::string clientId;
    std::string nonce;
    TimePoint now;
};

/// What an accepted ID token says of the person.
struct IdTokenClaims
{
    std::string subject;
    /// As sent; empty when the provider tells none.
    std::string email;
    bool isEmailVerified = false;
};

/// Verifies an ID token (OpenID Connect Core 1.0, 3.1.3.7) with the keys of @p keySet, a JSON Web
/// Key Set. Only RS256 with at least 2048 bits and ES256 are accepted. The error says which check
/// failed and contains nothing of the token.
tl::expected<IdTokenClaims, std::string> verifiedIdToken(const std::string &token,
                                                         const nlohmann::json &keySet,
                                                         const IdTokenExpectation &expected);

} // namespace quellora::server
