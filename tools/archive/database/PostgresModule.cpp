// The access to PostgreSQL as a module, which programs load once they need it.

#include "archive/database/PostgresModule.h"

extern "C" __attribute__((visibility("default"))) TelvaneArchive::Database*
telvaneOpenPostgres(const std::string& location, TelvaneArchive::Database::Access access,
                    TelvaneArchive::Status& status)
{
    return TelvaneArchive::openPostgres(location, access, status).release();
}
