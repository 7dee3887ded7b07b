#include "store/ChangeFeed.h"

#include "base/Log.h"
#include "store/PostgresDatabase.h"

#include <fcntl.h>
#include <unistd.h>

#include <optional>
#include <vector>

namespace quellora::server {
namespace {

/// How far back changes are looked for. Longer than a transaction may take.
constexpr std::chrono::seconds window(120);

} // namespace

/// The connection that listens, made again when it was lost.
class ChangeFeed::Listener
{
public:
    explicit Listener(const PostgresSettings &settings) : m_settings(settings) {}

    void wait(int wakeDescriptor)
    {
        try {
            if (!m_connection) {
                const std::string &url =
                    m_settings.directUrl.empty() ? m_settings.url : m_settings.directUrl;
                m_connection.emplace(url, m_settings);
                m_connection->command(std::string("LISTEN ") + PostgresDatabase::channel);
                if (m_wasLost)
                    Log::event("[ChangeFeed] Listening again");
                m_wasLost = false;
            }
            m_connection->waitForAnnouncement(pause, wakeDescriptor);
        } catch (const DatabaseError &problem) {
            if (!m_wasLost)
                Log::event(std::string("[ChangeFeed] WARNING: Cannot listen for changes: ") +
                           problem.what());
            m_wasLost = true;
            m_connection.reset();
            std::this_thread::sleep_for(pause);
        }
    }

private:
    const PostgresSettings &m_settings;
    std::optional<PostgresConnection> m_connection;
    bool m_wasLost = false;
};

ChangeFeed::ChangeFeed(Database &database, const Clock &clock, PostgresSettings postgres,
                       OnChange onChange)
    : m_database(database)
    , m_clock(clock)
    , m_postgres(std::move(postgres))
    , m_onChange(std::move(onChange))
{
    if (::pipe(m_wake) != 0)
        throw DatabaseError("cannot watch for changes");
    for (const int end : m_wake)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    look(true);
    m_thread = std::thread([this] { run(); });
}

ChangeFeed::~ChangeFeed()
{
    m_stop.requestStop();
    // Closing this end makes the other one readable.
    ::close(m_wake[1]);
    m_thread.join();
    ::close(m_wake[0]);
}

void ChangeFeed::run()
{
    Listener listener(m_postgres);
    bool isFailing = false;
    while (!m_stop.stopRequested()) {
        if (m_database.isShared())
            listener.wait(m_wake[0]);
        else
            m_stop.before(std::chrono::steady_clock::now() + pause).waitForStop([] {
                return false;
            });
        if (m_stop.stopRequested())
            return;
        try {
            look(false);
            isFailing = false;
        } catch (const DatabaseError &problem) {
            if (!isFailing)
                Log::event(std::string("[ChangeFeed] ERROR: Cannot look for changes: ") +
                           problem.what());
            isFailing = true;
        }
    }
}

void ChangeFeed::look(bool isFirst)
{
    std::set<std::int64_t> recent;
    std::vector<std::pair<std::int64_t, std::string>> fresh;
    m_database.query("SELECT id, topic FROM changes WHERE at >= ? ORDER BY id",
                     {toSeconds(m_clock.now() - window)}, [&](const Database::Row &row) {
                         if (isFirst || m_seen.contains(row.integer(0)))
                             recent.insert(row.integer(0));
                         else
                             fresh.emplace_back(row.integer(0), row.text(1));
                     });
    m_seen = std::move(recent);
    // What fails is told again by the next look.
    for (const auto &[id, topic] : fresh) {
        m_onChange(topic);
        m_seen.insert(id);
    }
}

} // namespace quellora::server
