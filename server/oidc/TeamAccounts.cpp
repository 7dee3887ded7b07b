#include "oidc/TeamAccounts.h"

#include "base/Text.h"

#include <algorithm>

namespace quellora::server {
namespace {

bool isAllowed(const OidcSettings &settings, const std::string &email)
{
    const std::string domain = email.substr(email.find('@') + 1);
    return std::any_of(settings.allowedDomains.begin(), settings.allowedDomains.end(),
                       [&](const std::string &allowed) { return lowered(allowed) == domain; });
}

} // namespace

tl::expected<Account, std::string> teamAccount(AdminStore &store, const OidcSettings &settings,
                                               const IdTokenClaims &claims)
{
    tl::expected<Account, std::string> result = tl::make_unexpected(std::string());
    const auto refuse = [&](const char *why) { result = tl::make_unexpected(std::string(why)); };
    if (!isStorableText(claims.subject)) {
        refuse("Your provider names you in a way that cannot be stored.");
        return result;
    }
    store.database.transaction([&] {
        if (const auto known = store.accounts.findByOidc(settings.issuer, claims.subject)) {
            result = *known;
            return;
        }
        const auto email = normalizedEmail(claims.email);
        if (!email || !isStorableText(*email) || !claims.isEmailVerified) {
            refuse("Your provider has not verified your e-mail address.");
            return;
        }
        auto account = store.accounts.findByEmail(*email);
        const bool isInvited = account && account->isInvited;
        if (!isInvited && !isAllowed(settings, *email)) {
            refuse("Nobody has invited your e-mail address. Ask an administrator.");
            return;
        }
        if (account && !account->oidcSubject.empty()) {
            refuse("Your e-mail address belongs to another person of your provider. Ask an "
                   "administrator.");
            return;
        }
        if (!account)
            account = store.accounts.createInvited(*email, store.config.service.defaultPlan,
                                                   store.config.service.defaultTokenCap);
        if (!account || !store.accounts.setOidc(*email, settings.issuer, claims.subject)) {
            refuse("Please try again.");
            return;
        }
        store.audit.add(account->person, "first-team-sign-in", account->person);
        result = *store.accounts.find(account->id);
    });
    if (result && result->suspended)
        refuse("This account is suspended.");
    return result;
}

} // namespace quellora::server
