#pragma once

#include "http/Services.h"

#include <string>

namespace quellora::server {

/// The reply to sign-in and verification as JSON: token, session id and the account's current
/// configuration. @p isOwner: whether the asker may connect models.
std::string loginResponse(Services &services, const Account &account, const std::string &token,
                          const std::string &sessionId, bool isOwner);

} // namespace quellora::server
