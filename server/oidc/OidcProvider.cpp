#include "oidc/OidcProvider.h"

#include "base/JsonAccess.h"
#include "base/Text.h"
#include "providers/UpstreamSettings.h"

#include <sodium.h>

#include <algorithm>
#include <array>

namespace quellora::server {
namespace {

using nlohmann::json;

/// How long description and keys are remembered.
constexpr std::chrono::minutes remembered(60);
/// Shortest time between two downloads of the keys, so that tokens with made-up key names cannot
/// cause many.
constexpr std::chrono::minutes patience(1);

bool contains(const json &list, const char *text)
{
    return list.is_array() && std::find(list.begin(), list.end(), text) != list.end();
}

std::string formOf(const std::vector<std::pair<std::string, std::string>> &fields)
{
    std::string text;
    for (const auto &[name, value] : fields)
        text.append(text.empty() ? "" : "&")
            .append(urlEncoded(name))
            .append("=")
            .append(urlEncoded(value));
    return text;
}

} // namespace

std::string pkceChallenge(const std::string &verifier)
{
    std::array<unsigned char, crypto_hash_sha256_BYTES> digest{};
    crypto_hash_sha256(digest.data(), reinterpret_cast<const unsigned char *>(verifier.data()),
                       verifier.size());
    std::array<char, 64> text{};
    sodium_bin2base64(text.data(), text.size(), digest.data(), digest.size(),
                      sodium_base64_VARIANT_URLSAFE_NO_PADDING);
    return text.data();
}

OidcProvider::OidcProvider(OidcSettings settings, const Clock &clock, OidcFetch fetch)
    : m_settings(std::move(settings)), m_clock(clock), m_fetch(std::move(fetch))
{}

OidcProvider::Result<OidcProvider::Description> OidcProvider::description()
{
    {
        const std::lock_guard lock(m_mutex);
        if (m_description && m_clock.now() - m_describedAt < remembered)
            return *m_description;
    }
    std::string base = m_settings.issuer;
    while (!base.empty() && base.back() == '/')
        base.pop_back();
    const auto text = m_fetch(base + "/.well-known/openid-configuration", std::nullopt, {});
    if (!text)
        return tl::make_unexpected("the provider's description: " + text.error());
    const auto document = parsedObject(*text);
    // Another issuer here would be somebody else's description.
    if (!document || textOf(*document, "issuer") != m_settings.issuer)
        return tl::make_unexpected(
            std::string("the provider's description is not that of the issuer"));
    Description found;
    found.authorize = textOf(*document, "authorization_endpoint").value_or("");
    found.token = textOf(*document, "token_endpoint").value_or("");
    found.keys = textOf(*document, "jwks_uri").value_or("");
    found.namesItself =
        memberOf(*document, "authorization_response_iss_parameter_supported") == true;
    const json &methods = memberOf(*document, "token_endpoint_auth_methods_supported");
    // In the header, providers disagree on whether special characters are encoded.
    const bool isPlain = urlEncoded(m_settings.clientId + m_settings.clientSecret) ==
                         m_settings.clientId + m_settings.clientSecret;
    found.wantsSecretInForm = contains(methods, "client_secret_post") &&
                              (!isPlain || !contains(methods, "client_secret_basic"));
    for (const std::string *url : {&found.authorize, &found.token, &found.keys}) {
        if (!isTrustworthyUrl(*url))
            return tl::make_unexpected(
                std::string("the provider's description lacks an address or names one without "
                            "encryption"));
    }
    const json &challenges = memberOf(*document, "code_challenge_methods_supported");
    if (challenges.is_array() && !contains(challenges, "S256"))
        return tl::make_unexpected(std::string("the provider does not support PKCE with S256"));
    const std::lock_guard lock(m_mutex);
    m_description = found;
    m_describedAt = m_clock.now();
    return found;
}

OidcProvider::Result<json> OidcProvider::keys(const std::string &url, bool fresh)
{
    {
        const std::lock_guard lock(m_mutex);
        const auto age = m_clock.now() - m_keysAt;
        if (!m_keys.is_null() && age < (fresh ? patience : remembered))
            return m_keys;
    }
    const auto text = m_fetch(url, std::nullopt, {});
    if (!text)
        return tl::make_unexpected("the provider's keys: " + text.error());
    const auto document = parsedObject(*text);
    if (!document)
        return tl::make_unexpected(std::string("the provider's keys are no JSON object"));
    const std::lock_guard lock(m_mutex);
    m_keys = *document;
    m_keysAt = m_clock.now();
    return m_keys;
}

OidcProvider::Result<std::string> OidcProvider::authorizeUrl(const OidcAttempt &attempt)
{
    const auto provider = description();
    if (!provider)
        return tl::make_unexpected(provider.error());
    return provider->authorize + (provider->authorize.find('?') == std::string::npos ? "?" : "&") +
           formOf({{"response_type", "code"},
                   {"client_id", m_settings.clientId},
                   {"redirect_uri", attempt.redirect},
                   {"scope", "openid email"},
                   {"state", attempt.state},
                   {"nonce", attempt.nonce},
                   {"code_challenge", pkceChallenge(attempt.verifier)},
                   {"code_challenge_method", "S256"}});
}

OidcProvider::Result<std::string> OidcProvider::exchange(const Description &provider,
                                                         const OidcAttempt &attempt,
                                                         const std::string &code)
{
    std::vector<std::pair<std::string, std::string>> form = {{"grant_type", "authorization_code"},
                                                             {"code", code},
                                                             {"redirect_uri", attempt.redirect},
                                                             {"code_verifier", attempt.verifier}};
    std::vector<std::pair<std::string, std::string>> headers;
    if (m_settings.clientSecret.empty() || provider.wantsSecretInForm)
        form.emplace_back("client_id", m_settings.clientId);
    if (!m_settings.clientSecret.empty() && provider.wantsSecretInForm)
        form.emplace_back("client_secret", m_settings.clientSecret);
    else if (!m_settings.clientSecret.empty())
        headers.emplace_back("Authorization",
                             "Basic " + base64Encoded(urlEncoded(m_settings.clientId) + ":" +
                                                      urlEncoded(m_settings.clientSecret)));
    const auto text = m_fetch(provider.token, formOf(form), headers);
    if (!text)
        return tl::make_unexpected("the exchange of the code: " + text.error());
    const auto document = parsedObject(*text);
    const auto token = document ? textOf(*document, "id_token") : std::nullopt;
    if (!token)
        return tl::make_unexpected(std::string("the provider sent no ID token"));
    return *token;
}

OidcProvider::Result<IdTokenClaims> OidcProvider::finish(const OidcAttempt &attempt,
                                                         const std::string &code,
                                                         const std::optional<std::string> &issuer)
{
    const auto provider = description();
    if (!provider)
        return tl::make_unexpected(provider.error());
    // An answer of another provider must not be exchanged at this one.
    if (issuer ? *issuer != m_settings.issuer : provider->namesItself)
        return tl::make_unexpected(std::string("the answer is of another provider"));
    const auto token = exchange(*provider, attempt, code);
    if (!token)
        return tl::make_unexpected(token.error());
    const IdTokenExpectation expected{m_settings.issuer, m_settings.clientId, attempt.nonce,
                                      m_clock.now()};
    Result<IdTokenClaims> claims = tl::make_unexpected(std::string());
    // Providers change their keys; a token of a new one needs another download.
    for (const bool fresh : {false, true}) {
        const auto keySet = keys(provider->keys, fresh);
        if (!keySet)
            return tl::make_unexpected(keySet.error());
        claims = verifiedIdToken(*token, *keySet, expected);
        if (claims)
            return claims;
    }
    return tl::make_unexpected("the ID token is refused: " + claims.error());
}

} // namespace quellora::server
