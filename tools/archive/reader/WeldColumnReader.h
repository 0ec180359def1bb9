#pragma once

#include "archive/database/Database.h"
#include "archive/reader/WeldFilter.h"
#include "archive/welds/WeldBlock.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace TelvaneArchive
{

/// Sees one state of the database in all its statements.
class Snapshot
{
public:
    explicit Snapshot(Database& database)
        : m_database(database),
          m_begun(database.kind() == Database::Kind::Sqlite
                      ? database.run("BEGIN")
                      : database.run("BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY"))
    {}
    ~Snapshot()
    {
        if (m_begun) {
            m_database.run("ROLLBACK");
        }
    }
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;

    const Status& begun() const { return m_begun; }

private:
    Database& m_database;
    Status m_begun;
};

/// Reads a few columns of all welds that match: from blocks, and from the rows where there is no block, which are the oldest
/// and the newest welds, and those that were changed since.
class WeldColumnReader
{
public:
    struct Block
    {
        std::vector<BlockColumn> columns; ///< those that were asked for
        BlockColumn ids{ColumnType::Whole};
        std::vector<char> matching; ///< not 0 for each weld that matches
    };
    using TakeBlock = std::function<void(const Block& block)>;
    using TakeRow = std::function<void(const Row& row)>; ///< the id, and the columns that were asked for

    /// \param withIds  whether Block::ids is needed
    WeldColumnReader(Database& database, const WeldFilter& filter, std::vector<Column> columns, bool withIds)
        : m_database(database), m_filter(filter), m_columns(std::move(columns)), m_withIds(withIds)
    {}

    /// \return whether blocks have all columns that it needs, and compare them as the database does
    bool canReadBlocks() const;

    /// Reads the welds, in a Snapshot.
    /// \param always     even if many blocks are missing
    /// \param[out] done  false if too many are, and nothing was read
    Status read(bool always, const TakeBlock& takeBlock, const TakeRow& takeRow, bool& done);

private:
    using Parts = std::map<std::string, BlockColumn>; ///< columns of a block by name

    Status findBlocks(bool& found);
    Status countMissing(std::int64_t first, std::int64_t last, const std::vector<Row>& blocks,
                        std::int64_t max, std::int64_t& missing);
    Status readBlocks(const TakeBlock& take, std::vector<std::int64_t>& sound);
    bool join(Parts& parts, Block& block) const;
    Status readRows(std::int64_t from, std::int64_t to, const TakeRow& take);

    Database& m_database;
    const WeldFilter& m_filter;
    const std::vector<Column> m_columns;
    const bool m_withIds;
};

} // namespace TelvaneArchive
