#pragma once

#include "store/PostgresDatabase.h"

#include <filesystem>
#include <memory>
#include <string>

namespace quellora::server {

/// A PostgreSQL server of this test process alone, reached over a socket in a temporary folder. It
/// ends with the process, however that ends.
class PostgresCluster
{
public:
    /// The cluster of this process, started by the first call.
    static PostgresCluster &shared();

    PostgresCluster();
    ~PostgresCluster();
    PostgresCluster(const PostgresCluster &) = delete;
    PostgresCluster &operator=(const PostgresCluster &) = delete;

    /// Address of a new database without tables.
    std::string newDatabase();
    /// Breaks all connections with the databases, as a restart does.
    void dropConnections();

private:
    std::string url(const std::string &database) const;
    void run(const std::string &statement);

    std::filesystem::path m_directory;
    int m_lifeline = -1;
    int m_supervisor = -1;
    int m_created = 0;
};

} // namespace quellora::server
