#pragma once

#include "admin/AdminStore.h"

#include <string>

namespace quellora::server {

/// Everything stored of the person of @p account as one JSON document, except password and session
/// tokens, of which only fingerprints exist.
std::string personRecord(AdminStore &store, const Account &account);

} // namespace quellora::server
