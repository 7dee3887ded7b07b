#include "store/StoreCopy.h"

#include "base/JsonAccess.h"
#include "base/Secrets.h"
#include "base/Text.h"
#include "store/Migrations.h"
#include "store/PrivateFile.h"

#include <sodium.h>

#include <algorithm>
#include <fstream>
#include <set>

namespace quellora::server {
namespace {

using nlohmann::json;

constexpr const char *formatName = "quellora-backup";
constexpr int formatVersion = 1;
const std::set<std::string> shortLived = {"rate_events", "form_nonces", "changes", "admin_sessions",
                                          "oidc_sign_ins"};
const std::set<std::string> secretColumns = {"fingerprint", "password_hash", "totp_secret", "csrf",
                                             "hash"};

struct Column
{
    std::string name;
    bool isBytes = false;
    bool isNumber = false;
};

struct Table
{
    std::string name;
    std::vector<Column> columns;

    bool has(const std::string &column) const
    {
        return std::any_of(columns.begin(), columns.end(),
                           [&](const Column &each) { return each.name == column; });
    }
    std::string select() const
    {
        std::string list;
        for (const Column &column : columns)
            list += (list.empty() ? "" : ", ") + column.name;
        return "SELECT " + list + " FROM " + name;
    }
};

/// The tables, each after those that it refers to.
std::vector<Table> tablesOf(Database &database)
{
    std::vector<Table> tables;
    database.query(database.dialect().tables, {}, [&](const Database::Row &row) {
        if (!shortLived.contains(row.text(0)))
            tables.push_back({row.text(0), {}});
    });
    for (Table &table : tables) {
        database.query(database.dialect().columns, {table.name}, [&](const Database::Row &row) {
            const std::string type = lowered(row.text(1));
            table.columns.push_back({row.text(0), type == "blob" || type == "bytea",
                                     type == "bigint" || type == "integer"});
        });
    }
    return tables;
}

using Cells = std::vector<Database::Value>;

Cells cellsOf(const Table &table, const Database::Row &row)
{
    Cells cells;
    int index = 0;
    for (const Column &column : table.columns) {
        if (row.isNull(index))
            cells.emplace_back();
        else if (column.isBytes)
            cells.emplace_back(Database::Bytes{row.bytes(index)});
        else if (column.isNumber)
            cells.emplace_back(row.integer(index));
        else
            cells.emplace_back(row.text(index));
        ++index;
    }
    return cells;
}

json jsonOf(const Database::Value &value)
{
    if (const auto *number = std::get_if<std::int64_t>(&value))
        return *number;
    if (const auto *text = std::get_if<std::string>(&value))
        return *text;
    if (const auto *bytes = std::get_if<Database::Bytes>(&value))
        return {{"base64", base64Encoded(bytes->bytes)}};
    return nullptr;
}

Database::Value valueOf(const json &value)
{
    if (value.is_number_integer())
        return value.get<std::int64_t>();
    if (value.is_string())
        return value.get<std::string>();
    if (value.is_null())
        return {};
    const auto encoded = textOf(value, "base64");
    const auto bytes = encoded ? base64Decoded(*encoded) : std::nullopt;
    if (!bytes)
        throw DatabaseError("the backup cannot be understood");
    return Database::Bytes{*bytes};
}

std::int64_t rowsIn(Database &database, const std::string &table)
{
    std::int64_t count = 0;
    database.query("SELECT count(*) FROM " + table, {},
                   [&](const Database::Row &row) { count = row.integer(0); });
    return count;
}

/// Fills an empty store within the transaction that is running.
class Filling
{
public:
    explicit Filling(Database &database) : m_database(database), m_tables(tablesOf(database))
    {
        for (const Table &table : m_tables) {
            if (rowsIn(database, table.name) > 0)
                throw DatabaseError("the store to be filled is not empty");
        }
    }

    void begin(const std::string &table, const std::vector<std::string> &columns)
    {
        const auto found = std::find_if(m_tables.begin(), m_tables.end(),
                                        [&](const Table &each) { return each.name == table; });
        const bool isKnown =
            found != m_tables.end() && !columns.empty() &&
            std::all_of(columns.begin(), columns.end(),
                        [&](const std::string &column) { return found->has(column); });
        if (!isKnown)
            throw DatabaseError("the store has no place for the table \"" + table + "\"");
        std::string names;
        std::string marks;
        for (const std::string &column : columns) {
            names += (names.empty() ? "" : ", ") + column;
            marks += marks.empty() ? "?" : ", ?";
        }
        m_columns = columns.size();
        m_insert = "INSERT INTO " + table + "(" + names + ") VALUES(" + marks + ")";
        m_count = &m_counts[table];
    }
    void add(const Cells &cells)
    {
        if (!m_count || cells.size() != m_columns)
            throw DatabaseError("the backup cannot be understood");
        m_database.execute(m_insert, cells);
        ++*m_count;
    }
    /// Compares the counts, and lets new rows get numbers after the copied ones.
    RowCounts finish()
    {
        for (const Table &table : m_tables) {
            if (rowsIn(m_database, table.name) != m_counts[table.name])
                throw DatabaseError("the table \"" + table.name + "\" was not copied completely");
            const bool isNumbered =
                std::any_of(table.columns.begin(), table.columns.end(), [](const Column &column) {
                    return column.name == "id" && column.isNumber;
                });
            if (isNumbered)
                m_database.continueNumbers(table.name);
        }
        return m_counts;
    }

private:
    Database &m_database;
    std::vector<Table> m_tables;
    RowCounts m_counts;
    std::string m_insert;
    std::size_t m_columns = 0;
    std::int64_t *m_count = nullptr;
};

/// The checksum over the lines of a backup.
class Checksum
{
public:
    Checksum()
    {
        initializeCrypto();
        crypto_generichash_init(&m_state, nullptr, 0, 32);
    }
    void add(const std::string &line)
    {
        const std::string whole = line + "\n";
        crypto_generichash_update(&m_state, reinterpret_cast<const unsigned char *>(whole.data()),
                                  whole.size());
    }
    std::string text()
    {
        unsigned char bytes[32];
        crypto_generichash_final(&m_state, bytes, sizeof bytes);
        return base64Encoded(std::string(reinterpret_cast<const char *>(bytes), sizeof bytes));
    }

private:
    crypto_generichash_state m_state{};
};

/// Reads the lines of a backup after checking that it is whole.
class BackupLines
{
public:
    explicit BackupLines(const std::filesystem::path &file) : m_file(file, std::ios::binary)
    {
        if (!m_file)
            throw DatabaseError("cannot read " + file.string());
        check(file);
        m_file.clear();
        m_file.seekg(0);
    }
    /// The next line, or nothing at the end.
    std::optional<json> next()
    {
        std::string line;
        if (!std::getline(m_file, line))
            return std::nullopt;
        return json::parse(line, nullptr, false);
    }

private:
    void check(const std::filesystem::path &file)
    {
        Checksum checksum;
        std::string line;
        std::string last;
        bool isFirst = true;
        while (std::getline(m_file, line)) {
            if (!isFirst)
                checksum.add(last);
            last = line;
            isFirst = false;
        }
        const auto end = parsedObject(last);
        if (!end || textOf(*end, "checksum") != checksum.text())
            throw DatabaseError(file.string() + " is no complete backup");
    }

    std::ifstream m_file;
};

/// A row for a person to read, without secrets.
json legible(const Table &table, const Database::Row &row)
{
    const Cells cells = cellsOf(table, row);
    json record = json::object();
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string &name = table.columns[i].name;
        const auto *number = std::get_if<std::int64_t>(&cells[i]);
        if (secretColumns.contains(name))
            continue;
        const bool isTime = number && (name == "at" || name.ends_with("_at"));
        // Messages are dated to the millisecond.
        const std::int64_t unit = table.name == "messages" ? 1000 : 1;
        if (isTime && *number == 0)
            record[name] = nullptr;
        else if (isTime)
            record[name] = isoTime(TimePoint(std::chrono::seconds(*number / unit)));
        else if (table.name == "telemetry" && name == "record")
            record[name] = json::parse(row.text(static_cast<int>(i)), nullptr, false);
        else
            record[name] = jsonOf(cells[i]);
    }
    return record;
}

} // namespace

RowCounts backUp(Database &database, const std::filesystem::path &file)
{
    RowCounts counts;
    database.snapshot([&] {
        counts.clear();
        PrivateFile output(file);
        Checksum checksum;
        const auto write = [&](const json &line) {
            const std::string text = compactJson(line);
            checksum.add(text);
            output.write(text + "\n");
        };
        write({{"format", formatName},
               {"version", formatVersion},
               {"schema", database.schemaVersion()}});
        for (const Table &table : tablesOf(database)) {
            json columns = json::array();
            for (const Column &column : table.columns)
                columns.push_back(column.name);
            write({{"table", table.name}, {"columns", columns}});
            database.scan(table.select(), [&](const Database::Row &row) {
                json cells = json::array();
                for (const Database::Value &cell : cellsOf(table, row))
                    cells.push_back(jsonOf(cell));
                write(cells);
                ++counts[table.name];
            });
        }
        output.write(compactJson({{"checksum", checksum.text()}}) + "\n");
        output.finish();
    });
    return counts;
}

RowCounts restore(Database &database, const std::filesystem::path &file)
{
    RowCounts counts;
    database.transaction([&] {
        BackupLines lines(file);
        const json head = lines.next().value_or(json());
        if (textOf(head, "format") != formatName || countOf(head, "version") != formatVersion)
            throw DatabaseError(file.string() + " is no backup that this version can read");
        if (countOf(head, "schema").value_or(newestSchema() + 1) > newestSchema())
            throw DatabaseError(file.string() + " was written by a newer version of this program");
        Filling filling(database);
        while (const auto line = lines.next()) {
            if (line->is_array()) {
                Cells cells;
                for (const json &cell : *line)
                    cells.push_back(valueOf(cell));
                filling.add(cells);
            } else if (const auto table = textOf(*line, "table")) {
                std::vector<std::string> columns;
                for (const json &column : memberOf(*line, "columns"))
                    columns.push_back(column.is_string() ? column.get<std::string>() : "");
                filling.begin(*table, columns);
            }
        }
        counts = filling.finish();
    });
    return counts;
}

RowCounts copyStore(Database &from, Database &to)
{
    RowCounts counts;
    from.snapshot([&] {
        to.transaction([&] {
            Filling filling(to);
            RowCounts read;
            for (const Table &table : tablesOf(from)) {
                std::vector<std::string> columns;
                for (const Column &column : table.columns)
                    columns.push_back(column.name);
                filling.begin(table.name, columns);
                from.scan(table.select(), [&](const Database::Row &row) {
                    filling.add(cellsOf(table, row));
                    ++read[table.name];
                });
            }
            counts = filling.finish();
            for (const auto &[table, rows] : counts) {
                if (rows != read[table])
                    throw DatabaseError("the table \"" + table + "\" was not copied completely");
            }
        });
    });
    return counts;
}

std::string personRecord(Database &database, std::int64_t accountId)
{
    json person = json::object();
    database.snapshot([&] {
        person = json::object();
        const auto add = [&](const Table &table, const std::string &condition,
                             const Cells &values) {
            json rows = json::array();
            database.query(table.select() + " WHERE " + condition, values,
                           [&](const Database::Row &row) { rows.push_back(legible(table, row)); });
            person[table.name] = rows;
        };
        for (const Table &table : tablesOf(database)) {
            if (table.name == "accounts")
                add(table, "id = ?", {accountId});
            else if (table.name == "audit")
                add(table,
                    "subject = (SELECT person FROM accounts WHERE id = ?) OR"
                    " actor = (SELECT person FROM accounts WHERE id = ?) ORDER BY id",
                    {accountId, accountId});
            else if (table.has("account_id"))
                add(table, "account_id = ?", {accountId});
            else if (table.has("email") && table.name != "admins")
                add(table, "email = (SELECT email FROM accounts WHERE id = ?)", {accountId});
        }
        for (json &log : person["uploaded_logs"]) {
            std::string text;
            database.query("SELECT content FROM uploaded_log_parts WHERE log_id = ? ORDER BY part",
                           {log["id"].get<std::int64_t>()},
                           [&](const Database::Row &row) { text += row.bytes(0); });
            log["text"] = text;
        }
    });
    return person.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace quellora::server
