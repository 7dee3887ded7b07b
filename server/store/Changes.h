#pragma once

#include "base/Clock.h"
#include "store/Database.h"

#include <string>

namespace quellora::server {

/// What a change can be about. ChangeFeed tells all instances.
namespace topics {
/// The account of that id was suspended, deleted, signed out or given another allowance.
std::string account(std::int64_t id);
/// The account's id in such a topic, or 0.
std::int64_t accountOf(const std::string &topic);
constexpr const char *messages = "messages";
constexpr const char *settings = "settings";
} // namespace topics

/// Records within the transaction that is running, or in one of its own, that something changed
/// which instances may remember or are acting on.
void publishChange(Database &database, const Clock &clock, const std::string &topic);

} // namespace quellora::server
