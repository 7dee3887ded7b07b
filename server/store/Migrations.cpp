#include "store/Migrations.h"

#include <array>

namespace quellora::server {
namespace {

using Statements = std::vector<std::string>;

/// The first schema. SQLite files of it exist.
Statements first(const Dialect &dialect)
{
    return {
        std::string("CREATE TABLE accounts(id ") + dialect.key +
            ", email TEXT NOT NULL UNIQUE, password_hash TEXT NOT NULL, plan TEXT NOT NULL,"
            " token_cap BIGINT NOT NULL, suspended BIGINT NOT NULL DEFAULT 0,"
            " created_at BIGINT NOT NULL)",
        "CREATE TABLE sessions(id TEXT PRIMARY KEY, fingerprint TEXT NOT NULL UNIQUE,"
        " account_id BIGINT NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,"
        " kind TEXT NOT NULL, created_at BIGINT NOT NULL, expires_at BIGINT NOT NULL)",
        "CREATE TABLE usage(account_id BIGINT NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,"
        " period TEXT NOT NULL, input_tokens BIGINT NOT NULL, output_tokens BIGINT NOT NULL,"
        " queries BIGINT NOT NULL, PRIMARY KEY(account_id, period))",
        std::string("CREATE TABLE telemetry(id ") + dialect.key +
            ", account_id BIGINT NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,"
            " received_at BIGINT NOT NULL, record TEXT NOT NULL)",
    };
}

/// What instances share, and what an administrator works with.
Statements shared(const Dialect &dialect)
{
    const std::string key = dialect.key;
    const std::string account =
        "account_id BIGINT NOT NULL REFERENCES accounts(id) ON DELETE CASCADE";
    Statements statements = {
        // The name that the audit trail knows a person by.
        "ALTER TABLE accounts ADD COLUMN person TEXT NOT NULL DEFAULT ''",
        std::string("UPDATE accounts SET person = 'person-' || ") + dialect.randomKey,
        "CREATE UNIQUE INDEX accounts_person ON accounts(person)",
        "ALTER TABLE accounts ADD COLUMN last_seen_at BIGINT NOT NULL DEFAULT 0",
        "ALTER TABLE accounts ADD COLUMN oidc_issuer TEXT",
        "ALTER TABLE accounts ADD COLUMN oidc_subject TEXT",
        "CREATE UNIQUE INDEX accounts_oidc ON accounts(oidc_issuer, oidc_subject)",
        "CREATE INDEX sessions_account ON sessions(account_id)",
        "CREATE INDEX sessions_expiry ON sessions(expires_at)",
        "CREATE INDEX telemetry_account ON telemetry(account_id)",
        "CREATE TABLE usage_daily(" + account +
            ", day TEXT NOT NULL, model TEXT NOT NULL, input_tokens BIGINT NOT NULL,"
            " output_tokens BIGINT NOT NULL, queries BIGINT NOT NULL,"
            " PRIMARY KEY(account_id, day, model))",
        "CREATE INDEX usage_daily_day ON usage_daily(day)",
        "CREATE TABLE answers(id TEXT PRIMARY KEY, " + account +
            ", model TEXT NOT NULL, instance TEXT NOT NULL, state TEXT NOT NULL,"
            " period TEXT NOT NULL, day TEXT NOT NULL, started_at BIGINT NOT NULL,"
            " expires_at BIGINT NOT NULL, estimate BIGINT NOT NULL, reserved BIGINT NOT NULL,"
            " input_tokens BIGINT NOT NULL DEFAULT 0, output_tokens BIGINT NOT NULL DEFAULT 0)",
        "CREATE INDEX answers_account ON answers(account_id, state)",
        "CREATE INDEX answers_state ON answers(state, expires_at)",
        "CREATE TABLE rate_events(id " + key +
            ", scope TEXT NOT NULL, name TEXT NOT NULL, at BIGINT NOT NULL)",
        "CREATE INDEX rate_events_name ON rate_events(scope, name, at)",
        "CREATE INDEX rate_events_at ON rate_events(at)",
        "CREATE TABLE form_nonces(fingerprint TEXT PRIMARY KEY, scope TEXT NOT NULL,"
        " expires_at BIGINT NOT NULL)",
        "CREATE TABLE changes(id " + key + ", topic TEXT NOT NULL, at BIGINT NOT NULL)",
        "CREATE TABLE uploaded_logs(id " + key + ", " + account +
            ", received_at BIGINT NOT NULL, size BIGINT NOT NULL)",
        "CREATE INDEX uploaded_logs_account ON uploaded_logs(account_id)",
        "CREATE TABLE uploaded_log_parts(log_id BIGINT NOT NULL REFERENCES uploaded_logs(id)"
        " ON DELETE CASCADE, part BIGINT NOT NULL, content " +
            std::string(dialect.bytes) + " NOT NULL, PRIMARY KEY(log_id, part))",
        // A message without account is for all.
        "CREATE TABLE messages(id TEXT PRIMARY KEY,"
        " account_id BIGINT REFERENCES accounts(id) ON DELETE CASCADE, type TEXT NOT NULL,"
        " header TEXT NOT NULL, body TEXT NOT NULL, action_label TEXT, action_url TEXT,"
        " force_update_minutes BIGINT, created_at BIGINT NOT NULL, withdrawn_at BIGINT)",
        "CREATE TABLE settings(name TEXT PRIMARY KEY, value TEXT NOT NULL)",
        "CREATE TABLE audit(id " + key +
            ", at BIGINT NOT NULL, actor TEXT NOT NULL, action TEXT NOT NULL,"
            " subject TEXT NOT NULL, detail TEXT NOT NULL)",
    };
    statements.insert(statements.end(), dialect.appendOnlyAudit.begin(),
                      dialect.appendOnlyAudit.end());
    return statements;
}

/// Administrators with their sessions, invitations, and sign-ins at a team's provider.
Statements administration(const Dialect &dialect)
{
    const std::string administrator =
        "admin_id BIGINT NOT NULL REFERENCES admins(id) ON DELETE CASCADE";
    return {
        std::string("CREATE TABLE admins(id ") + dialect.key +
            ", email TEXT NOT NULL UNIQUE, name TEXT NOT NULL UNIQUE, password_hash TEXT NOT NULL,"
            " totp_secret TEXT NOT NULL, totp_pending TEXT NOT NULL DEFAULT '',"
            " totp_last_step BIGINT NOT NULL, created_at BIGINT NOT NULL)",
        "CREATE TABLE admin_recovery(fingerprint TEXT PRIMARY KEY, " + administrator + ")",
        "CREATE TABLE admin_sessions(fingerprint TEXT PRIMARY KEY, " + administrator +
            ", created_at BIGINT NOT NULL, seen_at BIGINT NOT NULL)",
        "CREATE TABLE invitations(fingerprint TEXT PRIMARY KEY,"
        " account_id BIGINT NOT NULL REFERENCES accounts(id) ON DELETE CASCADE,"
        " expires_at BIGINT NOT NULL)",
        "CREATE TABLE oidc_sign_ins(state TEXT PRIMARY KEY, browser TEXT NOT NULL,"
        " nonce TEXT NOT NULL, verifier TEXT NOT NULL, redirect TEXT NOT NULL,"
        " expires_at BIGINT NOT NULL)",
    };
}

/// The migrations in order; new ones are appended and landed ones stay as they are.
constexpr std::array<Statements (*)(const Dialect &), 3> migrations = {first, shared,
                                                                       administration};

} // namespace

std::int64_t newestSchema()
{
    return static_cast<std::int64_t>(migrations.size());
}

void migrate(Database &database)
{
    // The version is read under the lock, so that two processes starting at once do not both
    // create the tables.
    database.transaction([&] {
        database.lockKey("schema");
        const std::int64_t version = database.schemaVersion();
        if (version > newestSchema())
            throw DatabaseError("it was written by a newer version of this program");
        for (auto step = static_cast<std::size_t>(version); step < migrations.size(); ++step) {
            for (const std::string &statement : migrations.at(step)(database.dialect()))
                database.execute(statement);
        }
        if (version < newestSchema())
            database.setSchemaVersion(newestSchema());
    });
}

} // namespace quellora::server
