#pragma once

#include "archive/database/Database.h"

#include <cstdint>
#include <set>

namespace TelvaneArchive
{

/// Makes blocks of the rows: columns of many welds each, so that trends and lists read a few pages in place of a million
/// rows. To be called when nothing else is to do.
class BlockMaker
{
public:
    /// \param[out] made  false if there was no block to make
    Status makeOne(Database& database, bool& made);

private:
    Status store(Database& database, std::int64_t block, bool& made);
    static Status lock(Database& database, std::int64_t block, bool& locked);

    std::set<std::int64_t> m_unfit; ///< blocks with values that a column should not have; not tried again
};

} // namespace TelvaneArchive
