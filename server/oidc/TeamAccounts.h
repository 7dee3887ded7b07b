#pragma once

#include "admin/AdminStore.h"
#include "config/OidcSettings.h"
#include "oidc/IdToken.h"

#include <tl/expected.hpp>

#include <string>

namespace quellora::server {

/// The account of the person that the provider vouches for. A known subject is its account. An
/// unknown one becomes, by its verified address, the invited account, or with an address of an
/// allowed domain the existing account or a new one. The error is a sentence for the person.
tl::expected<Account, std::string> teamAccount(AdminStore &store, const OidcSettings &settings,
                                               const IdTokenClaims &claims);

} // namespace quellora::server
