#include "oidc/IdToken.h"

#include "base/JsonAccess.h"
#include "base/Text.h"

#include <cjose/cjose.h>
#include <gtest/gtest.h>

#include <memory>

namespace quellora::server {
namespace {

using nlohmann::json;

constexpr std::int64_t now = 1768478400;

/// A key of a provider.
class SigningKey
{
public:
    static SigningKey rsa(std::size_t bits, const std::string &id)
    {
        const std::uint8_t exponent[] = {1, 0, 1};
        return SigningKey(cjose_jwk_create_RSA_random(bits, exponent, sizeof exponent, nullptr),
                          id);
    }
    static SigningKey ec(cjose_jwk_ec_curve curve, const std::string &id)
    {
        return SigningKey(cjose_jwk_create_EC_random(curve, nullptr), id);
    }
    static SigningKey shared(const std::string &secret)
    {
        return SigningKey(
            cjose_jwk_create_oct_spec(reinterpret_cast<const std::uint8_t *>(secret.data()),
                                      secret.size(), nullptr),
            "");
    }
    json publicKey() const
    {
        char *text = cjose_jwk_to_json(m_key.get(), false, nullptr);
        json key = json::parse(text);
        cjose_get_dealloc()(text);
        return key;
    }
    std::string sign(const char *algorithm, const std::string &claims,
                     const char *keyId = nullptr) const
    {
        cjose_header_t *header = cjose_header_new(nullptr);
        cjose_header_set(header, CJOSE_HDR_ALG, algorithm, nullptr);
        if (keyId)
            cjose_header_set(header, CJOSE_HDR_KID, keyId, nullptr);
        cjose_jws_t *signature = cjose_jws_sign(
            m_key.get(), header, reinterpret_cast<const std::uint8_t *>(claims.data()),
            claims.size(), nullptr);
        const char *text = nullptr;
        EXPECT_TRUE(signature && cjose_jws_export(signature, &text, nullptr));
        const std::string token = text ? text : "";
        cjose_jws_release(signature);
        cjose_header_release(header);
        return token;
    }

private:
    SigningKey(cjose_jwk_t *key, const std::string &id) : m_key(key, &cjose_jwk_release)
    {
        if (!id.empty())
            cjose_jwk_set_kid(key, id.data(), id.size(), nullptr);
    }

    std::unique_ptr<cjose_jwk_t, decltype(&cjose_jwk_release)> m_key;
};

/// Base64url without padding.
std::string url64(const std::string &bytes)
{
    std::string text = base64Encoded(bytes);
    for (char &letter : text)
        letter = letter == '+' ? '-' : letter == '/' ? '_' : letter;
    text.resize(text.find_last_not_of('=') + 1);
    return text;
}

class IdToken : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        rsaKey = std::make_unique<SigningKey>(SigningKey::rsa(2048, "r1"));
        ecKey = std::make_unique<SigningKey>(SigningKey::ec(CJOSE_JWK_EC_P_256, "e1"));
    }
    static void TearDownTestSuite()
    {
        rsaKey.reset();
        ecKey.reset();
    }
    static json claims()
    {
        return {{"iss", "https://id.example.org"},
                {"aud", "quellora"},
                {"sub", "u-1"},
                {"exp", now + 300},
                {"iat", now - 1},
                {"nonce", "n-1"},
                {"email", "ann@example.org"},
                {"email_verified", true}};
    }
    static json with(const char *name, const json &value)
    {
        json changed = claims();
        if (value.is_null())
            changed.erase(name);
        else
            changed[name] = value;
        return changed;
    }
    static json keys() { return {{"keys", {rsaKey->publicKey(), ecKey->publicKey()}}}; }
    static tl::expected<IdTokenClaims, std::string> verified(const std::string &token,
                                                             const json &keySet = keys())
    {
        return verifiedIdToken(
            token, keySet,
            {"https://id.example.org", "quellora", "n-1", TimePoint(std::chrono::seconds(now))});
    }
    /// Why the claims, signed properly, are refused; empty when they are accepted.
    static std::string refusal(const json &said)
    {
        const auto result = verified(ecKey->sign("ES256", said.dump(), "e1"));
        return result ? "" : result.error();
    }

    static std::unique_ptr<SigningKey> rsaKey;
    static std::unique_ptr<SigningKey> ecKey;
};

std::unique_ptr<SigningKey> IdToken::rsaKey;
std::unique_ptr<SigningKey> IdToken::ecKey;

TEST_F(IdToken, BothAlgorithmsAreAccepted)
{
    for (const auto &token :
         {rsaKey->sign("RS256", claims().dump(), "r1"), ecKey->sign("ES256", claims().dump(), "e1"),
          rsaKey->sign("RS256", claims().dump())}) {
        const auto result = verified(token);
        ASSERT_TRUE(result) << result.error();
        EXPECT_EQ(result->subject, "u-1");
        EXPECT_EQ(result->email, "ann@example.org");
        EXPECT_TRUE(result->isEmailVerified);
    }
}

TEST_F(IdToken, AChangedTokenIsRefused)
{
    const std::string token = ecKey->sign("ES256", claims().dump(), "e1");
    const std::size_t first = token.find('.');
    const std::size_t second = token.rfind('.');
    const std::string other =
        token.substr(0, first + 1) + url64(with("sub", "u-2").dump()) + token.substr(second);
    EXPECT_EQ(verified(other).error(), "its signature is not the provider's");
    EXPECT_FALSE(verified(token.substr(0, second + 1)));
    EXPECT_FALSE(verified(token.substr(0, second)));
    EXPECT_FALSE(verified(""));
    EXPECT_FALSE(verified("a.b.c"));
    EXPECT_FALSE(verified(std::string(20000, 'a')));
}

TEST_F(IdToken, KeysThatAreNotTheProvidersAreRefused)
{
    const SigningKey foreign = SigningKey::ec(CJOSE_JWK_EC_P_256, "e1");
    EXPECT_EQ(verified(foreign.sign("ES256", claims().dump(), "e1")).error(),
              "its signature is not the provider's");
    const std::string token = ecKey->sign("ES256", claims().dump(), "e1");
    EXPECT_FALSE(verified(token, {{"keys", json::array()}}));
    EXPECT_FALSE(verified(token, json::object()));
    EXPECT_FALSE(verified(token, {{"keys", {1, "x", nullptr}}}));
    // A key for encryption signs nothing.
    json encrypting = ecKey->publicKey();
    encrypting["use"] = "enc";
    EXPECT_FALSE(verified(token, {{"keys", {encrypting}}}));
    // A named key is that one.
    json renamed = ecKey->publicKey();
    renamed["kid"] = "e2";
    EXPECT_FALSE(verified(token, {{"keys", {renamed}}}));
}

TEST_F(IdToken, UnsignedAndSharedSecretTokensAreRefused)
{
    for (const char *algorithm : {"none", "None", "NONE", "nOnE"}) {
        const std::string header = json({{"alg", algorithm}, {"typ", "JWT"}}).dump();
        for (const char *signature : {"", "AAAA"})
            EXPECT_FALSE(verified(url64(header) + "." + url64(claims().dump()) + "." + signature));
    }
    // The public key taken for a shared secret.
    const std::string secret = rsaKey->publicKey().dump();
    EXPECT_EQ(verified(SigningKey::shared(secret).sign("HS256", claims().dump(), "r1")).error(),
              "its algorithm is not accepted");
    EXPECT_FALSE(verified(rsaKey->sign("PS256", claims().dump(), "r1")));
    EXPECT_FALSE(verified(rsaKey->sign("RS512", claims().dump(), "r1")));
}

TEST_F(IdToken, WeakKeysAreRefused)
{
    const SigningKey weak = SigningKey::rsa(1024, "w");
    EXPECT_FALSE(
        verified(weak.sign("RS256", claims().dump(), "w"), {{"keys", {weak.publicKey()}}}));
    const SigningKey other = SigningKey::rsa(2048, "w");
    EXPECT_TRUE(
        verified(other.sign("RS256", claims().dump(), "w"), {{"keys", {other.publicKey()}}}));
}

TEST_F(IdToken, TheIssuerIsCompared)
{
    for (const json &issuer : {json("https://id.example.org/"), json("https://evil.example"),
                               json(""), json(nullptr), json(7)})
        EXPECT_EQ(refusal(with("iss", issuer)), "it is of another issuer") << issuer;
}

TEST_F(IdToken, TheAudienceIsThisClient)
{
    EXPECT_EQ(refusal(with("aud", json::array({"quellora"}))), "");
    json shared = with("aud", json::array({"quellora", "other"}));
    EXPECT_EQ(refusal(shared), "it is meant for another client");
    shared["azp"] = "other";
    EXPECT_EQ(refusal(shared), "it is meant for another client");
    shared["azp"] = "quellora";
    EXPECT_EQ(refusal(shared), "");
    EXPECT_EQ(refusal(with("azp", "other")), "it is meant for another client");
    for (const json &audience : {json("other"), json::array(), json(nullptr), json::object()})
        EXPECT_EQ(refusal(with("aud", audience)), "it is meant for another client") << audience;
}

TEST_F(IdToken, ItsTimeIsChecked)
{
    EXPECT_EQ(refusal(with("exp", now - 59)), "");
    EXPECT_EQ(refusal(with("exp", now + 0.5)), "");
    for (const json &expiry :
         {json(now - 60), json(0), json(nullptr), json("2100-01-01"), json(-1), json(1e300)})
        EXPECT_EQ(refusal(with("exp", expiry)), "it has expired") << expiry;
    EXPECT_EQ(refusal(with("iat", now + 60)), "");
    EXPECT_EQ(refusal(with("iat", now + 61)), "it is not valid yet");
    EXPECT_EQ(refusal(with("iat", nullptr)), "it is not valid yet");
    EXPECT_EQ(refusal(with("nbf", now + 61)), "it is not valid yet");
}

TEST_F(IdToken, ItBelongsToThisSignIn)
{
    for (const json &nonce : {json("n-2"), json(""), json(nullptr), json("n-11")})
        EXPECT_EQ(refusal(with("nonce", nonce)), "it belongs to another sign-in") << nonce;
}

TEST_F(IdToken, ItNamesSomebody)
{
    for (const json &subject : {json(""), json(nullptr), json(7), json(std::string(256, 'x'))})
        EXPECT_EQ(refusal(with("sub", subject)), "it names nobody");
}

TEST_F(IdToken, AnAddressIsVerifiedOnlyWhenTheProviderSaysSo)
{
    for (const json &flag : {json(false), json("false"), json(nullptr), json(1)}) {
        const auto result =
            verified(ecKey->sign("ES256", with("email_verified", flag).dump(), "e1"));
        ASSERT_TRUE(result);
        EXPECT_FALSE(result->isEmailVerified) << flag;
    }
    EXPECT_TRUE(verified(ecKey->sign("ES256", with("email_verified", "true").dump(), "e1"))
                    ->isEmailVerified);
    EXPECT_EQ(verified(ecKey->sign("ES256", with("email", nullptr).dump(), "e1"))->email, "");
}

TEST_F(IdToken, ClaimsThatAreNoObjectAreRefused)
{
    EXPECT_EQ(verified(ecKey->sign("ES256", "[1]", "e1")).error(), "it carries no claims");
    EXPECT_EQ(verified(ecKey->sign("ES256", "\xFF", "e1")).error(), "it carries no claims");
}

} // namespace
} // namespace quellora::server
