#include "store/PostgresConnection.h"

#include <libpq-fe.h>
#include <poll.h>

#include <array>
#include <cstring>

namespace quellora::server {
namespace {

using Steady = std::chrono::steady_clock;
using Kind = DatabaseError::Kind;

// Numbers of the server's built-in types.
constexpr Oid bytesType = 17;
constexpr Oid integerType = 20;
constexpr Oid textType = 25;

/// The library's messages end with a line break and may have several lines.
std::string oneLine(const char *message)
{
    std::string text = message ? message : "";
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    for (char &character : text) {
        if (character == '\n')
            character = ' ';
    }
    return text;
}

/// @p sql with $1, $2 … for each "?" outside quotes.
std::string numbered(const std::string &sql)
{
    std::string text;
    text.reserve(sql.size() + 16);
    bool isQuoted = false;
    int next = 1;
    for (const char character : sql) {
        if (character == '\'')
            isQuoted = !isQuoted;
        if (character == '?' && !isQuoted)
            text += '$' + std::to_string(next++);
        else
            text += character;
    }
    return text;
}

/// The values of a statement as the library takes them.
struct Parameters
{
    explicit Parameters(const std::vector<Database::Value> &values)
    {
        numbers.reserve(values.size());
        for (const Database::Value &value : values) {
            if (const auto *number = std::get_if<std::int64_t>(&value)) {
                numbers.push_back(std::to_string(*number));
                add(integerType, numbers.back(), 0);
            } else if (const auto *text = std::get_if<std::string>(&value)) {
                if (!isStorableText(*text))
                    throw DatabaseError("a text is not valid UTF-8");
                add(textType, *text, 0);
            } else if (const auto *bytes = std::get_if<Database::Bytes>(&value)) {
                add(bytesType, bytes->bytes, 1);
            } else {
                types.push_back(0);
                contents.push_back(nullptr);
                lengths.push_back(0);
                formats.push_back(0);
            }
        }
    }

    std::vector<std::string> numbers;
    std::vector<Oid> types;
    std::vector<const char *> contents;
    std::vector<int> lengths;
    std::vector<int> formats;

private:
    void add(Oid type, const std::string &content, int format)
    {
        types.push_back(type);
        contents.push_back(content.data());
        lengths.push_back(static_cast<int>(content.size()));
        formats.push_back(format);
    }
};

/// Whether a reply says that the server cannot do the work in its present state: it is a replica,
/// or full. Nothing was done.
bool meansElsewhere(const std::string &state)
{
    return state == "25006" || state == "53300" || state == "57P03";
}

/// Whether a reply is the last on this connection: the server or the pooler is stopping, or the
/// transaction was silent for too long.
bool meansEnd(const std::string &state)
{
    return state.empty() || state.rfind("08", 0) == 0 || state.rfind("57P", 0) == 0 ||
           state == "25P03";
}

/// Whether the server undid the work so that others could go on; doing it again helps.
bool meansRepeat(const std::string &state)
{
    return state == "40001" || state == "40P01";
}

} // namespace

std::optional<std::string> describePostgres(const std::string &url)
{
    // The library's own message would repeat the URL with its password.
    PQconninfoOption *options = PQconninfoParse(url.c_str(), nullptr);
    if (!options)
        return std::nullopt;
    std::string user;
    std::string host;
    std::string port;
    std::string database;
    for (const PQconninfoOption *option = options; option->keyword; ++option) {
        const std::string keyword = option->keyword;
        const std::string value = option->val ? option->val : "";
        if (keyword == "user")
            user = value;
        else if (keyword == "host")
            host = value;
        else if (keyword == "port")
            port = value;
        else if (keyword == "dbname")
            database = value;
    }
    PQconninfoFree(options);
    return (user.empty() ? "" : user + "@") + host + (port.empty() ? "" : ":" + port) + "/" +
           database;
}

PostgresConnection::PostgresConnection(const std::string &url, const PostgresSettings &settings)
    : m_statement(settings.statement)
{
    if (!describePostgres(url))
        throw DatabaseError("the address of the PostgreSQL server cannot be understood");
    const std::string connect = std::to_string(settings.connect.count());
    // A server whose machine is gone does not answer the system's probes either.
    const std::string silence = std::to_string(m_statement.count());
    const std::array<const char *, 9> names = {"fallback_application_name",
                                               "client_encoding",
                                               "connect_timeout",
                                               "keepalives_idle",
                                               "keepalives_interval",
                                               "keepalives_count",
                                               "tcp_user_timeout",
                                               "dbname",
                                               nullptr};
    const std::array<const char *, 9> values = {
        "quellora-backend", "UTF8",      connect.c_str(), "10", "5", "3",
        silence.c_str(),    url.c_str(), nullptr};
    m_connection = PQconnectdbParams(names.data(), values.data(), 1);
    if (!m_connection || PQstatus(m_connection) != CONNECTION_OK ||
        PQsetnonblocking(m_connection, 1) != 0) {
        const std::string reason = oneLine(m_connection ? PQerrorMessage(m_connection) : "");
        PQfinish(m_connection);
        throw DatabaseError("PostgreSQL cannot be reached: " + reason, Kind::Unavailable);
    }
    // Notices go to standard error otherwise.
    PQsetNoticeProcessor(
        m_connection, [](void *, const char *) {}, nullptr);
}

PostgresConnection::~PostgresConnection()
{
    PQfinish(m_connection);
}

void PostgresConnection::breakOff(const std::string &reason, Kind kind)
{
    m_isBroken = true;
    throw DatabaseError(reason, kind);
}

bool PostgresConnection::isStale()
{
    pollfd descriptor = {PQsocket(m_connection), POLLIN, 0};
    // A server says nothing to a connection without work, but that it is ending.
    return m_isBroken || ::poll(&descriptor, 1, 0) > 0 || PQstatus(m_connection) != CONNECTION_OK;
}

PostgresConnection::Result PostgresConnection::run(const std::string &sql,
                                                   const std::vector<Database::Value> &values)
{
    const Parameters parameters(values);
    if (PQsendQueryParams(m_connection, numbered(sql).c_str(), static_cast<int>(values.size()),
                          parameters.types.data(), parameters.contents.data(),
                          parameters.lengths.data(), parameters.formats.data(), 0) == 0)
        breakOff(oneLine(PQerrorMessage(m_connection)), Kind::Uncertain);
    return finish();
}

bool PostgresConnection::command(const std::string &statements)
{
    if (PQsendQuery(m_connection, statements.c_str()) == 0)
        breakOff(oneLine(PQerrorMessage(m_connection)), Kind::Uncertain);
    const Result result = finish();
    return statements != "COMMIT" || std::strcmp(PQcmdStatus(result.get()), "COMMIT") == 0;
}

PostgresConnection::Result PostgresConnection::finish()
{
    const auto deadline = Steady::now() + m_statement;
    Result last(nullptr, PQclear);
    std::string problem;
    std::string state;
    for (;;) {
        const int unsent = PQflush(m_connection);
        if (unsent < 0 || PQconsumeInput(m_connection) == 0)
            breakOff(oneLine(PQerrorMessage(m_connection)), Kind::Uncertain);
        if (unsent > 0 || PQisBusy(m_connection) != 0) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Steady::now());
            if (left.count() <= 0)
                breakOff("a statement took too long", Kind::Uncertain);
            pollfd descriptor = {PQsocket(m_connection),
                                 static_cast<short>(POLLIN | (unsent > 0 ? POLLOUT : 0)), 0};
            ::poll(&descriptor, 1, static_cast<int>(left.count()) + 1);
            continue;
        }
        Result result(PQgetResult(m_connection), PQclear);
        if (!result)
            break;
        const ExecStatusType status = PQresultStatus(result.get());
        if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK && problem.empty()) {
            const char *code = PQresultErrorField(result.get(), PG_DIAG_SQLSTATE);
            // The primary message alone: the details repeat stored values.
            const char *text = PQresultErrorField(result.get(), PG_DIAG_MESSAGE_PRIMARY);
            problem = text ? oneLine(text) : "the connection was lost";
            state = code ? code : "";
            m_isBroken = m_isBroken || meansElsewhere(state) || meansEnd(state);
        }
        last = std::move(result);
    }
    // A pooler may pass on what another client of its connection listens for.
    while (PGnotify *note = PQnotifies(m_connection))
        PQfreemem(note);
    if (problem.empty())
        return last;
    if (m_isBroken)
        throw DatabaseError(problem, meansElsewhere(state) ? Kind::Unavailable : Kind::Uncertain);
    // 57014: the server's own time limit; 55P03: that of waiting for a lock.
    throw DatabaseError(problem, meansRepeat(state) || state == "57014" || state == "55P03"
                                     ? Kind::Unavailable
                                     : Kind::Failed);
}

std::optional<std::string>
PostgresConnection::waitForAnnouncement(std::chrono::milliseconds timeout, int wakeDescriptor)
{
    const auto taken = [this]() -> std::optional<std::string> {
        PGnotify *note = PQnotifies(m_connection);
        if (!note)
            return std::nullopt;
        std::string text = note->extra ? note->extra : "";
        PQfreemem(note);
        return text;
    };
    if (auto text = taken())
        return text;
    std::array<pollfd, 2> descriptors = {
        {{PQsocket(m_connection), POLLIN, 0}, {wakeDescriptor, POLLIN, 0}}};
    ::poll(descriptors.data(), descriptors.size(), static_cast<int>(timeout.count()));
    if (descriptors[0].revents != 0 &&
        (PQconsumeInput(m_connection) == 0 || PQstatus(m_connection) != CONNECTION_OK))
        breakOff("the listening connection was lost", Kind::Unavailable);
    return taken();
}

} // namespace quellora::server
