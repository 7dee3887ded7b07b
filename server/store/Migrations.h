#pragma once

#include "store/Database.h"

namespace quellora::server {

/// The schema that this program writes.
std::int64_t newestSchema();

/// Applies the numbered migrations that @p database lacks, all or none, one process at a time.
/// Throws a DatabaseError when a newer version of the program wrote it.
///
/// Instances of the previous version keep running on a migrated store while they are replaced, so a
/// migration adds; what it no longer needs is removed by a later one.
void migrate(Database &database);

} // namespace quellora::server
