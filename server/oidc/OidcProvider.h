#pragma once

#include "base/Clock.h"
#include "config/OidcSettings.h"
#include "oidc/IdToken.h"

#include <nlohmann/json.hpp>
#include <tl/expected.hpp>

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quellora::server {

/// A small download for the sign-in: gets @p url, or posts @p form to it when there is one. Blocks;
/// does not follow redirects. The error contains nothing of the form or the answer.
using OidcFetch = std::function<tl::expected<std::string, std::string>(
    const std::string &url, const std::optional<std::string> &form,
    const std::vector<std::pair<std::string, std::string>> &headers)>;

/// What is made up for one sign-in and checked at its end.
struct OidcAttempt
{
    std::string state;
    std::string nonce;
    /// Proves to the provider that the same server began and ends the sign-in (RFC 7636).
    std::string verifier;
    /// Where the provider sends the browser back.
    std::string redirect;
};

/// The provider of the team's sign-in: its description and keys, and the two requests of the
/// authorisation code flow with PKCE. Thread-safe. Errors are for the log and contain no secrets.
class OidcProvider
{
public:
    template <typename Value>
    using Result = tl::expected<Value, std::string>;

    OidcProvider(OidcSettings settings, const Clock &clock, OidcFetch fetch);

    /// The address at the provider where the browser begins.
    Result<std::string> authorizeUrl(const OidcAttempt &attempt);
    /// Exchanges the code of the provider's answer for an ID token and verifies it. @p issuer is
    /// what the answer said in "iss" (RFC 9207), if it said anything.
    Result<IdTokenClaims> finish(const OidcAttempt &attempt, const std::string &code,
                                 const std::optional<std::string> &issuer);

private:
    struct Description
    {
        std::string authorize;
        std::string token;
        std::string keys;
        bool namesItself = false;
        bool wantsSecretInForm = false;
    };
    Result<Description> description();
    Result<nlohmann::json> keys(const std::string &url, bool fresh);
    Result<std::string> exchange(const Description &provider, const OidcAttempt &attempt,
                                 const std::string &code);

    const OidcSettings m_settings;
    const Clock &m_clock;
    const OidcFetch m_fetch;
    std::mutex m_mutex;
    std::optional<Description> m_description;
    TimePoint m_describedAt;
    nlohmann::json m_keys;
    TimePoint m_keysAt;
};

/// The challenge of a verifier: base64url of its SHA-256.
std::string pkceChallenge(const std::string &verifier);

} // namespace quellora::server
