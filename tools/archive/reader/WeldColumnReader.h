#pragma once

#include "archive/database/Database.h"
#include "archive/reader/WeldFilter.h"
#include "archive/welds/WeldBlock.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace TelvaneArchive
{

/// Sees one state of the database in all its statements.
class Snapshot
{
public:
    explicit Snapshot(Database& database) : m_database(database), m_begun(database.run("BEGIN")) {}
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

/// Reads a few columns of all welds that match, from an SQLite archive: from blocks, and from the rows where there is no
/// block, which are the oldest and the newest welds, and those that were changed since.
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

    /// \return whether all columns that it needs are in blocks
    bool canReadBlocks() const;

    /// Reads the welds, in a Snapshot.
    /// \param mostMissing  most blocks that may be missing
    /// \param[out] done  false if more are, and nothing was read
    Status read(std::int64_t mostMissing, const TakeBlock& takeBlock, const TakeRow& takeRow, bool& done);

private:
    Status readBlock(std::int64_t number, Block& block, bool& sound);
    Status readColumn(std::int64_t number, const std::string& name, BlockColumn& column, bool& sound);
    Status readRows(std::int64_t from, std::int64_t to, const TakeRow& take);

    Database& m_database;
    const WeldFilter& m_filter;
    const std::vector<Column> m_columns;
    const bool m_withIds;
};

} // namespace TelvaneArchive
