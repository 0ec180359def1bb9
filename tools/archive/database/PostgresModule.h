#pragma once

#include "archive/database/Database.h"

namespace TelvaneArchive
{

/// What the module with the access to PostgreSQL exports under kOpenPostgres: openPostgres() without its owner.
using OpenPostgres = Database*(const std::string& location, Database::Access access, Status& status);
constexpr const char* kOpenPostgres = "telvaneOpenPostgres";

/// Loads the module, for programs that have it instead of PostgreSQL's library.
/// \return why it cannot be loaded; empty if it was
std::string loadPostgres();

} // namespace TelvaneArchive
