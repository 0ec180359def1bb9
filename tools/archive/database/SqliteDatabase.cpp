// One connection of a process writes and checkpoints; all others open the file for reading only. SQLite before
// 3.51.3 can damage a database in WAL mode if two connections write or checkpoint at the same moment, and Debian 12
// has 3.40.1. ArchiveLock keeps a second writer out.
//
// synchronous=FULL makes a commit survive a power cut; NORMAL would lose the last ones. The page size has to be set
// before the first table and before WAL.

#include "archive/database/Database.h"

#include <sqlite3.h>

#include <map>

namespace TelvaneArchive
{

namespace
{

constexpr int kBusyMilliseconds = 2000; ///< a reader waits this long while the writer checkpoints

Status::Code codeOf(int result, sqlite3* handle)
{
    switch (result & 0xff) {
    case SQLITE_FULL:
        return Status::Code::Full;
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN:
        // SQLite names no shortage when it extends or creates a file of the log.
        return handle != nullptr && isNoRoom(sqlite3_system_errno(handle)) ? Status::Code::Full
                                                                           : Status::Code::Failed;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return Status::Code::Damaged;
    case SQLITE_CONSTRAINT:
    case SQLITE_READONLY:
    case SQLITE_AUTH:
    case SQLITE_PERM:
    case SQLITE_ERROR:
        return Status::Code::Refused;
    default:
        return Status::Code::Failed;
    }
}

class SqliteDatabase : public Database
{
public:
    using Take = std::function<void(const Row& row)>;

    explicit SqliteDatabase(sqlite3* handle) : m_handle(handle) {}
    ~SqliteDatabase() override
    {
        for (const auto& [text, statement] : m_statements) {
            sqlite3_finalize(statement);
        }
        sqlite3_close(m_handle);
    }
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;

    Kind kind() const override { return Kind::Sqlite; }

    Status run(const Sql& sql, const Row& parameters, std::vector<Row>* rows) override
    {
        return each(
            sql, parameters, rows == nullptr ? Take() : [rows](const Row& row) { rows->push_back(row); });
    }

    Status each(const Sql& sql, const Row& parameters, const Take& take) override
    {
        sqlite3_stmt* statement = prepare(sql.text());
        if (statement == nullptr) {
            return lastError(sqlite3_errcode(m_handle));
        }
        for (std::size_t i = 0; i < parameters.size(); ++i) {
            const std::string name = "$" + std::to_string(i + 1);
            const int index = sqlite3_bind_parameter_index(statement, name.c_str());
            if (index != 0) {
                bind(statement, index, parameters[i]);
            }
        }
        Row row;
        int result = sqlite3_step(statement);
        for (; result == SQLITE_ROW; result = sqlite3_step(statement)) {
            if (take) {
                take(readRow(statement, row));
            }
        }
        Status status = result == SQLITE_DONE ? Status() : lastError(result);
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
        return status;
    }

private:
    sqlite3_stmt* prepare(const std::string& text)
    {
        const auto known = m_statements.find(text);
        if (known != m_statements.end()) {
            return known->second;
        }
        sqlite3_stmt* statement = nullptr;
        sqlite3_prepare_v2(m_handle, text.c_str(), -1, &statement, nullptr);
        if (statement != nullptr) {
            m_statements.emplace(text, statement);
        }
        return statement;
    }

    static void bind(sqlite3_stmt* statement, int index, const Value& value)
    {
        if (const auto* whole = std::get_if<std::int64_t>(&value)) {
            sqlite3_bind_int64(statement, index, *whole);
        } else if (const auto* number = std::get_if<double>(&value)) {
            sqlite3_bind_double(statement, index, *number);
        } else if (const auto* text = std::get_if<std::string>(&value)) {
            sqlite3_bind_text64(statement, index, text->data(), text->size(), SQLITE_STATIC, SQLITE_UTF8);
        } else if (const auto* blob = std::get_if<Blob>(&value)) {
            sqlite3_bind_blob64(statement, index, blob->bytes.data(), blob->bytes.size(), SQLITE_STATIC);
        } else {
            sqlite3_bind_null(statement, index);
        }
    }

    static const Row& readRow(sqlite3_stmt* statement, Row& row)
    {
        row.clear();
        const int columns = sqlite3_column_count(statement);
        for (int i = 0; i < columns; ++i) {
            const auto bytes = [statement, i](const void* data) {
                return data == nullptr
                           ? std::string()
                           : std::string(static_cast<const char*>(data),
                                         static_cast<std::size_t>(sqlite3_column_bytes(statement, i)));
            };
            switch (sqlite3_column_type(statement, i)) {
            case SQLITE_INTEGER:
                row.emplace_back(static_cast<std::int64_t>(sqlite3_column_int64(statement, i)));
                break;
            case SQLITE_FLOAT:
                row.emplace_back(sqlite3_column_double(statement, i));
                break;
            case SQLITE_TEXT:
                row.emplace_back(bytes(sqlite3_column_text(statement, i)));
                break;
            case SQLITE_BLOB:
                row.emplace_back(Blob{bytes(sqlite3_column_blob(statement, i))});
                break;
            default:
                row.emplace_back();
            }
        }
        return row;
    }

    Status lastError(int result) const { return {codeOf(result, m_handle), sqlite3_errmsg(m_handle)}; }

    sqlite3* m_handle;
    std::map<std::string, sqlite3_stmt*, std::less<>> m_statements;
};

/// Settings of a connection that writes. The page size comes first.
Status prepareForWriting(Database& database)
{
    static const Sql settings[] = {
        "PRAGMA page_size = 8192",         "PRAGMA journal_mode = WAL",
        "PRAGMA synchronous = FULL",       "PRAGMA journal_size_limit = 4194304",
        "PRAGMA wal_autocheckpoint = 500", "PRAGMA mmap_size = 0",
        "PRAGMA cache_size = -4096",
    };
    for (const Sql& setting : settings) {
        std::vector<Row> ignored;
        Status status = database.run(setting, {}, &ignored);
        if (!status) {
            return status;
        }
    }
    return {};
}

} // namespace

std::unique_ptr<Database> openSqlite(const std::string& path, Database::Access access, Status& status)
{
    const int flags = access == Database::Access::ReadOnly ? SQLITE_OPEN_READONLY
                                                           : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, nullptr);
    if (result != SQLITE_OK) {
        status = {codeOf(result, handle), handle != nullptr ? sqlite3_errmsg(handle) : "out of memory"};
        sqlite3_close(handle);
        return nullptr;
    }
    sqlite3_busy_timeout(handle, kBusyMilliseconds);
    sqlite3_extended_result_codes(handle, 1);
    auto database = std::make_unique<SqliteDatabase>(handle);
    std::vector<Row> ignored;
    database->run("PRAGMA case_sensitive_like = ON", {}, nullptr); // as in PostgreSQL
    status = access == Database::Access::ReadWrite
                 ? prepareForWriting(*database)
                 : database->run("SELECT count(*) FROM sqlite_master", {}, &ignored); // opens the file
    if (!status) {
        return nullptr;
    }
    return database;
}

} // namespace TelvaneArchive
