#include "http/AuthRoutes.h"

#include "base/JsonAccess.h"
#include "base/Log.h"
#include "base/Text.h"
#include "http/AccountConfig.h"
#include "http/Replies.h"

namespace quellora::server {

PasswordSignIn::Result PasswordSignIn::attempt(const std::string &email,
                                               const std::string &password) const
{
    // Unknown addresses are throttled like known ones, so that throttling does not reveal which
    // exist.
    const std::string address = normalizedEmail(email).value_or(lowered(email.substr(0, 254)));
    // Counted before it is known to be one, so that attempts side by side do not exceed the limit.
    if (const auto wait = m_services.loginFailures->acquire(address))
        return Result{std::nullopt, SignInRefusal::Throttled, *wait};
    const auto account = m_services.accounts.authenticate(address, password);
    if (!account)
        return Result{};
    m_services.loginFailures->reset(address);
    if (account->suspended)
        return Result{std::nullopt, SignInRefusal::Suspended, {}};
    return Result{account, {}, {}};
}

AuthRoutes::AuthRoutes(Services &services)
    : m_services(services), m_guard(services), m_signIn(services)
{}

bool AuthRoutes::admitted(const Request &request, Response &response) const
{
    if (!m_guard.jsonBody(request, response))
        return false;
    if (const auto wait = m_services.throttle(request)) {
        replyRateLimited(response, *wait);
        return false;
    }
    return true;
}

void AuthRoutes::login(const Request &request, Response &response) const
{
    if (!admitted(request, response))
        return;
    const auto record = parsedObject(request.body);
    const auto email = record ? textOf(*record, "email") : std::nullopt;
    const auto password = record ? textOf(*record, "password") : std::nullopt;
    if (!email || !password) {
        replyError(response, 400, "email and password are required");
        return;
    }
    const auto result = m_signIn.attempt(*email, *password);
    if (result.account) {
        const IssuedSession session = m_services.sessions.issue(result.account->id);
        Log::event("[AuthRoutes] Signed in account " + std::to_string(result.account->id));
        replyJson(response, 200,
                  loginResponse(m_services, *result.account, session.token, session.id,
                                m_guard.isOwner(request)));
        return;
    }
    switch (result.refusal) {
    case SignInRefusal::Throttled:
        Log::event("[AuthRoutes] WARNING: Sign-in throttled after repeated failures");
        replyRateLimited(response, result.wait);
        break;
    case SignInRefusal::Suspended:
        Log::event("[AuthRoutes] Sign-in refused: account suspended");
        replyError(response, 403, "the account is suspended");
        break;
    case SignInRefusal::WrongCredentials:
        Log::event("[AuthRoutes] Sign-in refused: wrong e-mail or password");
        replyError(response, 401, "wrong e-mail or password");
        break;
    }
}

void AuthRoutes::verify(const Request &request, Response &response) const
{
    if (!admitted(request, response))
        return;
    if (!parsedObject(request.body)) {
        replyError(response, 400, "the body must be a JSON object");
        return;
    }
    const auto token = RequestGuard::bearerToken(request);
    // A single-use token from the browser is exchanged for a session of the app.
    if (const auto accountId = token ? m_services.sessions.redeem(*token) : std::nullopt) {
        const auto account = m_services.accounts.find(*accountId);
        if (account && !account->suspended) {
            const IssuedSession session = m_services.sessions.issue(account->id);
            Log::event("[AuthRoutes] Browser sign-in completed for account " +
                       std::to_string(account->id));
            replyJson(response, 200,
                      loginResponse(m_services, *account, session.token, session.id,
                                    m_guard.isOwner(request)));
        } else {
            replyError(response, 403, "the account is suspended");
        }
        return;
    }
    const auto caller = m_guard.caller(request, response);
    if (!caller)
        return;
    replyJson(response, 200,
              loginResponse(m_services, caller->account, *token, caller->sessionId,
                            m_guard.isOwner(request)));
}

} // namespace quellora::server
