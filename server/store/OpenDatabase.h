#pragma once

#include "config/Config.h"
#include "store/Database.h"

#include <memory>

namespace quellora::server {

/// Opens the store that the configuration names and migrates it. Throws a DatabaseError.
std::unique_ptr<Database> openDatabase(const Config &config);
/// The store's address for logs and messages, without password.
std::string describeDatabase(const Config &config);

} // namespace quellora::server
