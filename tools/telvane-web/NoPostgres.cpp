// Takes the place of the archive's access to PostgreSQL. The library for it brings those of Kerberos and LDAP, which would
// take 3 MB of the module's memory even where the archive is a file.

#include "archive/database/Database.h"

namespace TelvaneArchive
{

std::unique_ptr<Database> openPostgres(const std::string& /*location*/, Database::Access /*access*/,
                                       Status& status)
{
    status = Status::failed(Status::Code::Refused, "telvane-web only shows archives in SQLite files");
    return nullptr;
}

} // namespace TelvaneArchive
