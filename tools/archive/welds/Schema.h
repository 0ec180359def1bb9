#pragma once

#include "archive/database/Database.h"

namespace TelvaneArchive
{

/// Version of the schema that this program writes.
constexpr std::int64_t kSchemaVersion = 7;
/// Oldest version that has all that a reader needs.
constexpr std::int64_t kOldestReadableVersion = 3;

/// Brings a database to a version, each step in one transaction. A database of a newer version is refused.
Status migrate(Database& database, std::int64_t version = kSchemaVersion);

/// \param[out] version  0 for a database without an archive
Status readSchemaVersion(Database& database, std::int64_t& version);

} // namespace TelvaneArchive
