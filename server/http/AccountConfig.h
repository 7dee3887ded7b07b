#pragma once

#include "http/Services.h"

#include <string>

namespace quellora::server {

/// JSON of the answer to sign-in and verification: token, session id and the account's present
/// configuration.
std::string loginResponse(Services &services, const Account &account, const std::string &token,
                          const std::string &sessionId);

} // namespace quellora::server
