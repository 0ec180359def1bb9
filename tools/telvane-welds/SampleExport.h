#pragma once

#include "archive/reader/ArchiveReader.h"

#include <string>

namespace TelvaneArchive
{

/// Writes all samples of a weld as CSV, in the order in which they were published.
/// \param path  file to write
/// \return an exit code
int writeSamples(ArchiveReader& reader, const Weld& weld, const std::string& path);

} // namespace TelvaneArchive
