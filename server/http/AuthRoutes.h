#pragma once

#include "http/RequestGuard.h"

namespace quellora::server {

/// Why a password was not accepted.
enum class SignInRefusal { WrongCredentials, Suspended, Throttled };

/// Checks e-mail and password, with one throttle for the app and the sign-in page.
class PasswordSignIn
{
public:
    struct Result
    {
        std::optional<Account> account;
        SignInRefusal refusal = SignInRefusal::WrongCredentials;
        std::chrono::seconds wait{0};
    };

    explicit PasswordSignIn(Services &services) : m_services(services) {}
    Result attempt(const std::string &email, const std::string &password) const;

private:
    Services &m_services;
};

/// POST /api/auth/app-login and /api/auth/app-verify.
class AuthRoutes
{
public:
    explicit AuthRoutes(Services &services);

    void login(const Request &request, Response &response) const;
    void verify(const Request &request, Response &response) const;

private:
    bool admitted(const Request &request, Response &response) const;

    Services &m_services;
    RequestGuard m_guard;
    PasswordSignIn m_signIn;
};

} // namespace quellora::server
