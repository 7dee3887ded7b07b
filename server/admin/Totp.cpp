#include "admin/Totp.h"

#include "base/Secrets.h"
#include "base/Text.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <sodium.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace quellora::server::totp {
namespace {

constexpr std::int64_t stepSeconds = 30;
constexpr std::size_t secretBytes = 20;
constexpr std::uint32_t codes = 1000000;
constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";

} // namespace

std::string newSecret()
{
    initializeCrypto();
    std::string bytes(secretBytes, '\0');
    randombytes_buf(bytes.data(), bytes.size());
    return bytes;
}

std::string base32(std::string_view bytes)
{
    std::string text;
    std::uint32_t pending = 0;
    int bits = 0;
    for (const char byte : bytes) {
        pending = pending << 8U | static_cast<unsigned char>(byte);
        bits += 8;
        while (bits >= 5) {
            bits -= 5;
            text += alphabet[pending >> bits & 31U];
        }
    }
    if (bits > 0)
        text += alphabet[pending << (5 - bits) & 31U];
    return text;
}

std::optional<std::string> base32Decoded(std::string_view text)
{
    std::string bytes;
    std::uint32_t pending = 0;
    int bits = 0;
    for (char letter : text) {
        if (letter == ' ' || letter == '=')
            continue;
        if (letter >= 'a' && letter <= 'z')
            letter = static_cast<char>(letter - 'a' + 'A');
        const std::size_t value = alphabet.find(letter);
        if (value == std::string_view::npos)
            return std::nullopt;
        pending = pending << 5U | static_cast<std::uint32_t>(value);
        bits += 5;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(pending >> bits & 255U);
        }
    }
    return bytes;
}

std::int64_t stepOf(TimePoint time)
{
    return toSeconds(time) / stepSeconds;
}

std::string code(std::string_view secret, std::int64_t step)
{
    std::array<unsigned char, 8> counter{};
    for (std::size_t i = 0; i < counter.size(); ++i)
        counter[i] = static_cast<unsigned char>(step >> (8 * (counter.size() - 1 - i)));
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (!HMAC(EVP_sha1(), secret.data(), static_cast<int>(secret.size()), counter.data(),
              counter.size(), digest.data(), &length) ||
        length != 20)
        std::abort();
    const std::size_t offset = digest[19] & 15U;
    const std::uint32_t number =
        (digest[offset] & 127U) << 24U | static_cast<std::uint32_t>(digest[offset + 1]) << 16U |
        static_cast<std::uint32_t>(digest[offset + 2]) << 8U | digest[offset + 3];
    std::array<char, 12> text{};
    std::snprintf(text.data(), text.size(), "%06u", number % codes);
    return text.data();
}

std::optional<std::int64_t> acceptedStep(std::string_view secret, std::string_view entered,
                                         TimePoint now, std::int64_t lastStep)
{
    const std::int64_t current = stepOf(now);
    std::optional<std::int64_t> accepted;
    for (std::int64_t step = current - 1; step <= current + 1; ++step) {
        const std::string expected = code(secret, step);
        const bool isEqual = entered.size() == expected.size() &&
                             sodium_memcmp(entered.data(), expected.data(), expected.size()) == 0;
        if (isEqual && step > lastStep && !accepted)
            accepted = step;
    }
    return accepted;
}

std::string uri(std::string_view issuer, std::string_view account, std::string_view secret)
{
    const std::string name = urlEncoded(issuer);
    return "otpauth://totp/" + name + ":" + urlEncoded(account) + "?secret=" + base32(secret) +
           "&issuer=" + name + "&algorithm=SHA1&digits=6&period=30";
}

} // namespace quellora::server::totp
