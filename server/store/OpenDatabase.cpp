#include "store/OpenDatabase.h"

#include "store/PostgresDatabase.h"
#include "store/SqliteDatabase.h"

namespace quellora::server {

std::unique_ptr<Database> openDatabase(const Config &config)
{
    if (config.postgres.url.empty())
        return std::make_unique<SqliteDatabase>(config.dataFile);
    try {
        return std::make_unique<PostgresDatabase>(config.postgres);
    } catch (const DatabaseError &problem) {
        throw DatabaseError("cannot use " + describeDatabase(config) + ": " + problem.what(),
                            problem.kind());
    }
}

std::string describeDatabase(const Config &config)
{
    if (config.postgres.url.empty())
        return "data file " + config.dataFile.string();
    return "database " + describePostgres(config.postgres.url).value_or("of PostgreSQL");
}

} // namespace quellora::server
