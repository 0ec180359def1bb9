// The newest block is left out, and the oldest one if retention has begun with it: they would change all the time.

#include "archive/store/BlockMaker.h"

#include "archive/welds/WeldBlock.h"

#include <algorithm>
#include <vector>

namespace TelvaneArchive
{

Status BlockMaker::makeOne(Database& database, bool& made)
{
    made = false;
    std::vector<Row> rows;
    Status status = database.run("SELECT (SELECT min(id) FROM weld), (SELECT max(id) FROM weld)", {}, &rows);
    if (!status || isNull(rows[0][0])) {
        return status;
    }
    const std::int64_t first = wholeOf(rows[0][0]);
    const std::int64_t oldest = std::max<std::int64_t>(
        first / kBlockWelds + (first % kBlockWelds > 1 ? 1 : 0), 0); // ids begin with 1
    const std::int64_t newest = wholeOf(rows[0][1]) / kBlockWelds;
    std::vector<Row> known;
    status = database.run("SELECT DISTINCT block FROM weld_block", {}, &known);
    std::set<std::int64_t> blocks = m_unfit;
    for (const Row& row : known) {
        blocks.insert(wholeOf(row[0]));
    }
    for (std::int64_t block = oldest; status && !made && block < newest; ++block) {
        if (blocks.count(block) != 0) {
            continue;
        }
        rows.clear();
        // Ids may have large gaps.
        status = database.run("SELECT min(id) FROM weld WHERE id >= $1", {block * kBlockWelds}, &rows);
        const bool found = status && !isNull(rows[0][0]); // others may have deleted the rest
        block = found ? wholeOf(rows[0][0]) / kBlockWelds : newest;
        if (block < newest && blocks.count(block) == 0) {
            status = store(database, block, made);
        }
    }
    return status;
}

Status BlockMaker::store(Database& database, std::int64_t block, bool& made)
{
    Sql statement = "SELECT id";
    std::vector<std::string> names = {kBlockIds};
    std::vector<BlockColumn> columns = {BlockColumn(ColumnType::Whole)};
    for (const Column column : blockColumns()) {
        statement += ", " + sqlOf(column);
        names.emplace_back(infoOf(column).name);
        columns.emplace_back(column);
    }
    bool fits = true;
    Transaction transaction(database);
    Status status = transaction.begun();
    bool locked = false;
    status = status ? lock(database, block, locked) : status;
    if (!status || !locked) {
        return status;
    }
    status = status ? database.each(statement + " FROM weld WHERE id >= $1 AND id < $2 ORDER BY id",
                                    {block * kBlockWelds, (block + 1) * kBlockWelds},
                                    [&columns, &fits](const Row& row) {
                                        for (std::size_t i = 0; i < columns.size(); ++i) {
                                            fits = columns[i].add(row[i]) && fits;
                                        }
                                    })
                    : status;
    for (std::size_t i = 0; i < columns.size() && status && fits; ++i) {
        Blob data{columns[i].encode()};
        fits = !data.bytes.empty();
        status = fits ? database.run("INSERT INTO weld_block (block, name, data) VALUES ($1, $2, $3) "
                                     "ON CONFLICT (block, name) DO NOTHING",
                                     {block, names[i], std::move(data)})
                      : status;
    }
    status = status && fits ? transaction.commit() : status;
    made = status && fits;
    if (status && !fits) {
        m_unfit.insert(block);
    }
    return status;
}

/// Keeps others from changing the welds of a block before the transaction ends.
/// \param[out] locked  false if others are changing them now
Status BlockMaker::lock(Database& database, std::int64_t block, bool& locked)
{
    locked = database.kind() == Database::Kind::Sqlite; // one process writes
    if (locked) {
        return {};
    }
    std::vector<Row> rows;
    Status status = database.run("SELECT pg_try_advisory_xact_lock(CAST($1 AS INTEGER), CAST($2 AS INTEGER))",
                                 {kBlockLock, block % 1'000'000'000}, &rows);
    locked = status && wholeOf(rows[0][0]) != 0;
    return status;
}

} // namespace TelvaneArchive
