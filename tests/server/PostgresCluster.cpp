#include "PostgresCluster.h"

#include <fcntl.h>
#include <libpq-fe.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <thread>

namespace quellora::server {
namespace {

/// Creates the cluster in $1 and serves it until standard input ends. The server's programs refuse
/// to run as root.
constexpr const char *supervisor = R"sh(
set -eu
directory=$1
as=
if [ "$(id -u)" = 0 ]; then
    chown postgres "$directory"
    as='setpriv --reuid=postgres --regid=postgres --clear-groups'
fi
bin=$(dirname "$(command -v initdb || ls -d /usr/lib/postgresql/*/bin/initdb | tail -n 1)")
cd "$directory"
$as "$bin/initdb" -D "$directory/data" -A trust -U quellora -E UTF8 --locale=C --no-sync >"$directory/initdb.log" 2>&1
$as "$bin/postgres" -D "$directory/data" -k "$directory" -c listen_addresses= -c fsync=off \
    -c max_connections=200 </dev/null >"$directory/postgres.log" 2>&1 &
server=$!
cat >"$directory/ended" || true
$as "$bin/pg_ctl" stop -W -m immediate -D "$directory/data" >/dev/null 2>&1
wait $server || true
)sh";

} // namespace

PostgresCluster &PostgresCluster::shared()
{
    static PostgresCluster cluster;
    return cluster;
}

PostgresCluster::PostgresCluster()
{
    std::string pattern = "/tmp/quellora-postgres-XXXXXX";
    m_directory = ::mkdtemp(pattern.data());
    int ends[2];
    if (::pipe(ends) != 0)
        std::abort();
    // No other child may hold the lifeline.
    ::fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    m_supervisor = ::fork();
    if (m_supervisor == 0) {
        ::dup2(ends[0], 0);
        ::close(ends[0]);
        // Signals for the test's process group are not for the server.
        ::setsid();
        ::execl("/bin/sh", "sh", "-c", supervisor, "sh", m_directory.c_str(), nullptr);
        std::_Exit(127);
    }
    ::close(ends[0]);
    m_lifeline = ends[1];
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (PQping(url("postgres").c_str()) != PQPING_OK) {
        if (std::chrono::steady_clock::now() > deadline) {
            for (const char *name : {"initdb.log", "postgres.log"})
                std::cerr << std::ifstream(m_directory / name).rdbuf();
            std::cerr << "PostgreSQL did not start in " << m_directory << std::endl;
            std::abort();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

PostgresCluster::~PostgresCluster()
{
    ::close(m_lifeline);
    ::waitpid(m_supervisor, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(m_directory, ignored);
}

std::string PostgresCluster::url(const std::string &database) const
{
    return "postgresql://quellora@/" + database + "?host=" + m_directory.string();
}

void PostgresCluster::run(const std::string &statement)
{
    PostgresSettings settings;
    settings.statement = std::chrono::seconds(60);
    PostgresConnection(url("postgres"), settings).command(statement);
}

std::string PostgresCluster::newDatabase()
{
    // A schema behaves like a database of its own and is made much faster.
    const std::string name = "t" + std::to_string(++m_created);
    run("CREATE SCHEMA " + name);
    return url("postgres") + "&options=-csearch_path%3D" + name;
}

void PostgresCluster::dropConnections()
{
    run("SELECT pg_terminate_backend(pid, 10000) FROM pg_stat_activity"
        " WHERE backend_type = 'client backend' AND pid <> pg_backend_pid()");
}

} // namespace quellora::server
