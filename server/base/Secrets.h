#pragma once

#include <cstddef>
#include <mutex>
#include <semaphore>
#include <string>

namespace quellora::server {

/// Initialises the cryptographic library; aborts the process on failure. May be called again.
void initializeCrypto();

/// 256 random bits, URL-safe base64 without padding (43 characters).
std::string randomToken();
/// Random UUID (version 4), lower case.
std::string randomUuid();
/// Four groups of five unambiguous characters, about 98 random bits.
std::string randomPassword();
/// One-way fingerprint stored instead of a token (BLAKE2b-256, hex).
std::string tokenFingerprint(const std::string &token);

/// As tokenFingerprint(), and impossible to make without @p key, of 16 to 64 bytes.
std::string keyedFingerprint(const std::string &key, const std::string &text);
/// Compares in a time that does not depend on where the texts differ.
bool isSameSecret(const std::string &given, const std::string &expected);

/// Work factors of argon2id. The defaults are libsodium's for interactive use.
struct PasswordCost
{
    unsigned long long operations = 2;
    std::size_t memoryBytes = 64U * 1024U * 1024U;
};

/// argon2id password hashing. Thread-safe. At most two computations run at a time, so that many
/// simultaneous sign-ins cannot exhaust memory.
class PasswordHasher
{
public:
    explicit PasswordHasher(PasswordCost cost = {});

    /// Self-describing hash text. Aborts the process when out of memory.
    std::string hash(const std::string &password) const;
    bool verify(const std::string &hash, const std::string &password) const;
    /// Takes as long as verify(), so that an unknown e-mail cannot be told from a wrong password.
    /// The first call takes twice as long; the server makes it at start.
    void verifyNobody(const std::string &password) const;

private:
    PasswordCost m_cost;
    mutable std::counting_semaphore<2> m_slots{2};
    mutable std::once_flag m_nobodyOnce;
    mutable std::string m_nobody;
};

} // namespace quellora::server
