#pragma once

#include "archive/reader/ArchiveReader.h"

#include <cstdint>
#include <string>
#include <vector>

namespace TelvaneArchive
{

/// What retention deletes of the welds of one month.
struct RetentionMonth
{
    std::string month;         ///< "2026-11", in UTC
    std::int64_t welds = 0;    ///< rows
    std::int64_t notOk = 0;    ///< rows of welds that are not OK, which stay
    std::int64_t bytes = 0;    ///< of the samples
    std::string samplesGoneBy; ///< "2027-11-30"; "now" for those above the size; empty: they stay
    std::string rowsGoneBy;    ///< empty: they stay
};

/// Limits as in ArchiveStore::Retention. 0 means without a limit.
struct RetentionLimits
{
    std::int64_t samplesAge = 0;   ///< ns
    std::int64_t samplesBytes = 0; ///< of all samples
    std::int64_t rowsAge = 0;      ///< ns
};

/// Says what is deleted when, by month, and deletes nothing. For SQLite archives.
Status planRetention(ArchiveReader& reader, const RetentionLimits& limits,
                     std::vector<RetentionMonth>& months);

} // namespace TelvaneArchive
