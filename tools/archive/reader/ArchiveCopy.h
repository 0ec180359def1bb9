#pragma once

#include "archive/reader/ArchiveReader.h"

#include <string>

namespace TelvaneArchive
{

/// Copies an SQLite archive while another process may write to it.
///
/// The copy has all that was committed when it began. Its database is one closed file without a log, so it can be opened
/// from a folder that cannot be written to. It appears under its name when it is complete. Verdicts that wait for the
/// bus count as published in it: only the archive itself publishes them.
/// \param from     path of the archive
/// \param to       path of the copy, which must not exist
/// \param samples  whether the sample files are copied as well
Status copyArchive(ArchiveReader& reader, const std::string& from, const std::string& to, bool samples);

} // namespace TelvaneArchive
