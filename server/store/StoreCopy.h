#pragma once

#include "store/Database.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <ostream>
#include <string>

namespace quellora::server {

/// Rows per table.
using RowCounts = std::map<std::string, std::int64_t>;

/// Copies whole stores. What lives for minutes only (rates, form tokens, notices of changes) is
/// left out. All functions throw a DatabaseError, and what they write is complete or not there at
/// all.

/// Writes one state of the store to @p file (mode 0600), which must not exist; the store may be in
/// use. The format is the same for both kinds of store.
RowCounts backUp(Database &database, const std::filesystem::path &file);
/// Fills the empty store from a backup of this or an older version.
RowCounts restore(Database &database, const std::filesystem::path &file);
/// Copies one store into another, which must be empty, and compares the counts.
RowCounts copyStore(Database &from, Database &to);

/// Everything about one account as JSON, by table, without secrets. Times are written as text, and
/// a log's pieces as one.
std::string personRecord(Database &database, std::int64_t accountId);

} // namespace quellora::server
