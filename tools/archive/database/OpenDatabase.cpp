// In a file of its own: a program that has another openPostgres() does not link PostgreSQL's library.

#include "archive/database/Database.h"

namespace TelvaneArchive
{

bool isPostgresLocation(const std::string& location)
{
    return location.rfind("postgresql://", 0) == 0 || location.rfind("postgres://", 0) == 0;
}

std::unique_ptr<Database> openDatabase(const std::string& location, Database::Access access, Status& status)
{
    return isPostgresLocation(location) ? openPostgres(location, access, status)
                                        : openSqlite(location, access, status);
}

} // namespace TelvaneArchive
