#pragma once

#include <cstddef>
#include <mutex>
#include <semaphore>
#include <string>

namespace quellora::server {

/// Prepares the cryptographic library; ends the process when it cannot. Safe to repeat.
void initializeCrypto();

/// 256 random bits, URL-safe base64 without padding (43 characters).
std::string randomToken();
/// Random UUID (version 4), lower case.
std::string randomUuid();
/// Four groups of five unambiguous characters: about 98 bits, easy to type.
std::string randomPassword();
/// One-way fingerprint under which a token is stored (BLAKE2b-256, hex).
std::string tokenFingerprint(const std::string &token);

/// Work factors of argon2id. The defaults are libsodium's for interactive sign-in.
struct PasswordCost
{
    unsigned long long operations = 2;
    std::size_t memoryBytes = 64U * 1024U * 1024U;
};

/// argon2id password hashing. Thread-safe; at most two computations run at a time, so that a
/// burst of sign-ins cannot exhaust memory.
class PasswordHasher
{
public:
    explicit PasswordHasher(PasswordCost cost = {});

    /// Self-describing hash text. Ends the process when memory is exhausted.
    std::string hash(const std::string &password) const;
    bool verify(const std::string &hash, const std::string &password) const;
    /// Does the work of verify() and answers nothing: an unknown e-mail costs what a wrong
    /// password costs. The first call takes twice as long; a server makes it while starting.
    void verifyNobody(const std::string &password) const;

private:
    PasswordCost m_cost;
    mutable std::counting_semaphore<2> m_slots{2};
    mutable std::once_flag m_nobodyOnce;
    mutable std::string m_nobody;
};

} // namespace quellora::server
