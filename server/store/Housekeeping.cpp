#include "store/Housekeeping.h"

#include "base/Log.h"
#include "store/Telemetry.h"

namespace quellora::server {
namespace {

using std::chrono::hours;

/// Longer than any window of a rate.
constexpr hours rateEvents(25);
constexpr hours changes(1);
constexpr hours deletion(1);

TimePoint daysAgo(const Clock &clock, int days)
{
    return days == 0 ? TimePoint() : clock.now() - hours(24) * days;
}

} // namespace

bool deleteOutdated(Database &database, const Clock &clock, const RetentionSettings &retention)
{
    bool isMine = false;
    database.transaction([&] {
        isMine = database.tryLockKey("housekeeping");
        if (!isMine)
            return;
        Telemetry(database, clock).trim(daysAgo(clock, retention.telemetryDays));
        database.execute("DELETE FROM uploaded_logs WHERE received_at < ?",
                         {toSeconds(daysAgo(clock, retention.logDays))});
        database.execute("DELETE FROM answers WHERE state <> 'running' AND expires_at < ?",
                         {toSeconds(daysAgo(clock, retention.answerDays))});
        database.execute("DELETE FROM sessions WHERE expires_at <= ?", {toSeconds(clock.now())});
        database.execute("DELETE FROM rate_events WHERE at < ?",
                         {toMilliseconds(clock.now() - rateEvents)});
        database.execute("DELETE FROM changes WHERE at < ?", {toSeconds(clock.now() - changes)});
    });
    return isMine;
}

Housekeeping::Housekeeping(Database &database, const Clock &clock, AnswerLedger &answers,
                           RetentionSettings retention)
    : m_database(database), m_clock(clock), m_answers(answers), m_retention(retention)
{
    m_thread = std::thread([this] { run(); });
}

Housekeeping::~Housekeeping()
{
    m_stop.requestStop();
    m_thread.join();
}

void Housekeeping::run()
{
    TimePoint deleted;
    bool isFailing = false;
    while (!m_stop.stopRequested()) {
        try {
            m_database.flush();
            m_answers.renew();
            const int expired = m_answers.expire();
            if (expired > 0)
                Log::event("[Housekeeping] Settled " + std::to_string(expired) +
                           " answers whose instance is gone");
            if (m_clock.now() - deleted >= deletion) {
                deleteOutdated(m_database, m_clock, m_retention);
                deleted = m_clock.now();
            }
            isFailing = false;
        } catch (const DatabaseError &problem) {
            if (!isFailing)
                Log::event(std::string("[Housekeeping] ERROR: ") + problem.what());
            isFailing = true;
        }
        m_stop.before(std::chrono::steady_clock::now() + AnswerLedger::renewal).waitForStop([] {
            return false;
        });
    }
}

} // namespace quellora::server
