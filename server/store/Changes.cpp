#include "store/Changes.h"

#include "base/Text.h"

namespace quellora::server {
namespace {

const std::string accountPrefix = "account:";

} // namespace

std::string topics::account(std::int64_t id)
{
    return accountPrefix + std::to_string(id);
}

std::int64_t topics::accountOf(const std::string &topic)
{
    if (topic.rfind(accountPrefix, 0) != 0)
        return 0;
    return parseCount(topic.substr(accountPrefix.size())).value_or(0);
}

void publishChange(Database &database, const Clock &clock, const std::string &topic)
{
    database.transaction([&] {
        database.execute("INSERT INTO changes(topic, at) VALUES(?, ?)",
                         {topic, toSeconds(clock.now())});
        database.announce(topic);
    });
}

} // namespace quellora::server
