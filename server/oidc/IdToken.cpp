#include "oidc/IdToken.h"

#include "base/JsonAccess.h"

#include <cjose/cjose.h>
#include <sodium.h>

#include <algorithm>
#include <memory>
#include <optional>

namespace quellora::server {
namespace {

using nlohmann::json;

constexpr std::size_t longestToken = 16U * 1024U;
constexpr std::size_t longestSubject = 255;
/// How far the provider's clock may be off.
constexpr std::int64_t leewaySeconds = 60;
/// Letters of base64url of a 2048-bit modulus.
constexpr std::size_t shortestModulus = 342;

using Signature = std::unique_ptr<cjose_jws_t, decltype(&cjose_jws_release)>;
using Key = std::unique_ptr<cjose_jwk_t, decltype(&cjose_jwk_release)>;

tl::unexpected<std::string> refused(const char *why)
{
    return tl::make_unexpected(std::string(why));
}

std::optional<std::string> headerOf(const Signature &signature, const char *name)
{
    cjose_err error{};
    const char *value = cjose_header_get(cjose_jws_get_protected(signature.get()), name, &error);
    return value ? std::optional<std::string>(value) : std::nullopt;
}

/// The type of the keys that make signatures of @p algorithm; null for refused algorithms.
const char *keyTypeFor(const std::string &algorithm)
{
    if (algorithm == "RS256")
        return "RSA";
    return algorithm == "ES256" ? "EC" : nullptr;
}

/// Whether @p key may have signed with @p algorithm.
bool fits(const json &key, const std::string &algorithm, const std::optional<std::string> &id)
{
    const bool isRsa = algorithm == "RS256";
    return textOf(key, "kty") == keyTypeFor(algorithm) &&
           textOf(key, "use").value_or("sig") == "sig" &&
           textOf(key, "alg").value_or(algorithm) == algorithm &&
           (!id || !key.contains("kid") || textOf(key, "kid") == id) &&
           (isRsa ? textOf(key, "n").value_or("").size() >= shortestModulus
                  : textOf(key, "crv") == "P-256");
}

bool isSignedBy(const std::string &token, const json &key)
{
    cjose_err error{};
    const std::string text = compactJson(key);
    const Key imported(cjose_jwk_import(text.c_str(), text.size(), &error), &cjose_jwk_release);
    // The library forgets nothing between two attempts, so that each key gets a fresh object.
    const Signature signature(cjose_jws_import(token.c_str(), token.size(), &error),
                              &cjose_jws_release);
    return imported && signature && cjose_jws_verify(signature.get(), imported.get(), &error);
}

std::optional<json> payloadOf(const Signature &signature)
{
    cjose_err error{};
    std::uint8_t *bytes = nullptr;
    std::size_t length = 0;
    if (!cjose_jws_get_plaintext(signature.get(), &bytes, &length, &error))
        return std::nullopt;
    return parsedObject(std::string_view(reinterpret_cast<const char *>(bytes), length));
}

/// Whether the token is meant for this client and, when for several, was issued to it.
bool isForClient(const json &claims, const std::string &clientId)
{
    const json &audience = memberOf(claims, "aud");
    const bool isNamed = audience == clientId ||
                         (audience.is_array() &&
                          std::find(audience.begin(), audience.end(), clientId) != audience.end());
    const bool isShared = audience.is_array() && audience.size() > 1;
    const json &party = memberOf(claims, "azp");
    return isNamed && (party.is_null() ? !isShared : party == clientId);
}

bool isSame(const std::string &left, const std::string &right)
{
    return left.size() == right.size() && !left.empty() &&
           sodium_memcmp(left.data(), right.data(), left.size()) == 0;
}

/// A time in whole seconds, which providers may send with a fraction.
std::optional<std::int64_t> secondsOf(const json &claims, const char *name)
{
    const json &value = memberOf(claims, name);
    if (!value.is_number())
        return std::nullopt;
    const double seconds = value.get<double>();
    if (!(seconds >= 0 && seconds < 1e12))
        return std::nullopt;
    return static_cast<std::int64_t>(seconds);
}

} // namespace

tl::expected<IdTokenClaims, std::string>
verifiedIdToken(const std::string &token, const json &keySet, const IdTokenExpectation &expected)
{
    if (token.size() > longestToken)
        return refused("the token is too long");
    cjose_err error{};
    const Signature signature(cjose_jws_import(token.c_str(), token.size(), &error),
                              &cjose_jws_release);
    if (!signature)
        return refused("it is no signed token");
    const std::string algorithm = headerOf(signature, "alg").value_or("");
    if (!keyTypeFor(algorithm))
        return refused("its algorithm is not accepted");
    const auto keyId = headerOf(signature, "kid");
    const json &keys = memberOf(keySet, "keys");
    const bool isSigned =
        keys.is_array() && std::any_of(keys.begin(), keys.end(), [&](const json &key) {
            return key.is_object() && fits(key, algorithm, keyId) && isSignedBy(token, key);
        });
    if (!isSigned)
        return refused("its signature is not the provider's");
    const auto claims = payloadOf(signature);
    if (!claims)
        return refused("it carries no claims");
    if (!isSame(textOf(*claims, "iss").value_or(""), expected.issuer))
        return refused("it is of another issuer");
    if (!isForClient(*claims, expected.clientId))
        return refused("it is meant for another client");
    const std::int64_t now = toSeconds(expected.now);
    const auto expires = secondsOf(*claims, "exp");
    if (!expires || *expires + leewaySeconds <= now)
        return refused("it has expired");
    const auto issued = secondsOf(*claims, "iat");
    if (!issued || *issued - leewaySeconds > now ||
        secondsOf(*claims, "nbf").value_or(0) - leewaySeconds > now)
        return refused("it is not valid yet");
    if (!isSame(textOf(*claims, "nonce").value_or(""), expected.nonce))
        return refused("it belongs to another sign-in");
    IdTokenClaims result;
    result.subject = textOf(*claims, "sub").value_or("");
    if (result.subject.empty() || result.subject.size() > longestSubject)
        return refused("it names nobody");
    result.email = textOf(*claims, "email").value_or("");
    // Some providers send the flag as a text.
    const json &verified = memberOf(*claims, "email_verified");
    result.isEmailVerified = verified == true || verified == "true";
    return result;
}

} // namespace quellora::server
