#pragma once

#include "base/Clock.h"
#include "base/Stop.h"
#include "config/Config.h"
#include "store/AnswerLedger.h"
#include "store/Database.h"

#include <thread>

namespace quellora::server {

/// Deletes what the configuration no longer keeps, when no other instance is doing it. Returns
/// whether this one did.
bool deleteOutdated(Database &database, const Clock &clock, const RetentionSettings &retention);

/// The store's recurring work on a thread of its own: every AnswerLedger::renewal it flushes the
/// store, renews the leases of this instance's answers and settles those of instances that died;
/// once an hour it deletes what is outdated.
class Housekeeping
{
public:
    Housekeeping(Database &database, const Clock &clock, AnswerLedger &answers,
                 RetentionSettings retention);
    ~Housekeeping();
    Housekeeping(const Housekeeping &) = delete;
    Housekeeping &operator=(const Housekeeping &) = delete;

private:
    void run();

    Database &m_database;
    const Clock &m_clock;
    AnswerLedger &m_answers;
    RetentionSettings m_retention;
    StopSource m_stop;
    std::thread m_thread;
};

} // namespace quellora::server
