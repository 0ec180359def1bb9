#pragma once

#include "archive/database/Sql.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace TelvaneArchive
{

/// What became of an operation, with the reason in words if it failed.
struct Status
{
    enum class Code
    {
        Done,
        Full,    ///< no room on the disk
        Lost,    ///< the server is away or the connection broke; try again later
        Late,    ///< the server stopped a statement, which took longer than it may
        Damaged, ///< the file is not sound, or not a database
        Refused, ///< the database refused the statement, the user or the version
        Failed,  ///< anything else
    };

    Code code = Code::Done;
    std::string text;

    explicit operator bool() const { return code == Code::Done; }
    static Status failed(Code code, std::string text) { return {code, std::move(text)}; }
};

/// \return whether an error number means that there is no room on the disk
bool isNoRoom(int error);
/// \param what   such as the path of a file
/// \param error  errno
Status systemError(const std::string& what, int error);

/// A connection to SQLite or PostgreSQL. Statements are the same for both.
/// \par Threads  One at a time.
class Database
{
public:
    enum class Kind
    {
        Sqlite,
        Postgres,
    };
    enum class Access
    {
        ReadOnly,
        ReadWrite, ///< creates the file of an SQLite database
    };

    virtual ~Database() = default;
    virtual Kind kind() const = 0;

    /// Runs one statement.
    /// \param parameters  values of $1, $2, ...
    /// \param[out] rows   what the statement returns; null to ignore it
    virtual Status run(const Sql& statement, const Row& parameters = {},
                       std::vector<Row>* rows = nullptr) = 0;
    /// Runs one statement and passes each row on, for statements that return very many.
    virtual Status each(const Sql& statement, const Row& parameters,
                        const std::function<void(const Row& row)>& take);
};

/// Rolls back unless it was committed.
class Transaction
{
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    const Status& begun() const { return m_begun; }
    Status commit();

private:
    Database& m_database;
    Status m_begun;
    bool m_open;
};

/// \return whether a location means PostgreSQL: postgresql://... or postgres://...
bool isPostgresLocation(const std::string& location);

/// Opens a database.
/// \param location  path of an SQLite file, or postgresql://user@host/name
/// \param[out] status  why it failed
/// \return null if it failed
std::unique_ptr<Database> openDatabase(const std::string& location, Database::Access access, Status& status);

std::unique_ptr<Database> openSqlite(const std::string& path, Database::Access access, Status& status);
std::unique_ptr<Database> openPostgres(const std::string& location, Database::Access access, Status& status);

} // namespace TelvaneArchive
