#include "base/Secrets.h"

#include "base/Log.h"

#include <sodium.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace quellora::server {
namespace {

[[noreturn]] void giveUp(const char *what)
{
    Log::event(std::string("[Secrets] ERROR: ") + what);
    std::abort();
}

/// Occupies one of the hasher's slots during a scope.
class SlotGuard
{
public:
    explicit SlotGuard(std::counting_semaphore<2> &slots) : m_slots(slots) { m_slots.acquire(); }
    ~SlotGuard() { m_slots.release(); }
    SlotGuard(const SlotGuard &) = delete;
    SlotGuard &operator=(const SlotGuard &) = delete;

private:
    std::counting_semaphore<2> &m_slots;
};

} // namespace

void initializeCrypto()
{
    if (sodium_init() < 0)
        giveUp("the cryptographic library could not start");
}

std::string randomToken()
{
    std::array<unsigned char, 32> bytes{};
    randombytes_buf(bytes.data(), bytes.size());
    std::array<char, 64> text{};
    sodium_bin2base64(text.data(), text.size(), bytes.data(), bytes.size(),
                      sodium_base64_VARIANT_URLSAFE_NO_PADDING);
    return std::string(text.data());
}

std::string randomUuid()
{
    std::array<unsigned char, 16> bytes{};
    randombytes_buf(bytes.data(), bytes.size());
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0fU) | 0x40U);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3fU) | 0x80U);
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text += '-';
        text += digits[bytes[i] >> 4U];
        text += digits[bytes[i] & 15U];
    }
    return text;
}

std::string randomPassword()
{
    static constexpr std::string_view alphabet = "abcdefghjkmnpqrstuvwxyz23456789";
    std::string password;
    for (int i = 0; i < 20; ++i) {
        if (i > 0 && i % 5 == 0)
            password += '-';
        password += alphabet[randombytes_uniform(static_cast<std::uint32_t>(alphabet.size()))];
    }
    return password;
}

std::string tokenFingerprint(const std::string &token)
{
    return keyedFingerprint("", token);
}

std::string keyedFingerprint(const std::string &key, const std::string &text)
{
    std::array<unsigned char, 32> digest{};
    crypto_generichash(digest.data(), digest.size(),
                       reinterpret_cast<const unsigned char *>(text.data()), text.size(),
                       reinterpret_cast<const unsigned char *>(key.data()), key.size());
    std::array<char, 65> hex{};
    sodium_bin2hex(hex.data(), hex.size(), digest.data(), digest.size());
    return std::string(hex.data());
}

bool isSameSecret(const std::string &given, const std::string &expected)
{
    return given.size() == expected.size() &&
           sodium_memcmp(given.data(), expected.data(), expected.size()) == 0;
}

PasswordHasher::PasswordHasher(PasswordCost cost) : m_cost(cost)
{
    initializeCrypto();
}

std::string PasswordHasher::hash(const std::string &password) const
{
    const SlotGuard slot(m_slots);
    std::array<char, crypto_pwhash_STRBYTES> text{};
    if (crypto_pwhash_str(text.data(), password.data(), password.size(), m_cost.operations,
                          m_cost.memoryBytes) != 0)
        giveUp("not enough memory to hash a password");
    return std::string(text.data());
}

bool PasswordHasher::verify(const std::string &hash, const std::string &password) const
{
    const SlotGuard slot(m_slots);
    return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

void PasswordHasher::verifyNobody(const std::string &password) const
{
    std::call_once(m_nobodyOnce, [this] { m_nobody = hash(randomToken()); });
    static_cast<void>(verify(m_nobody, password));
}

} // namespace quellora::server
