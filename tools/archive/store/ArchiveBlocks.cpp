// Blocks hold columns of many welds each, so that trends and lists read a few pages in place of a million rows. They are
// made from the rows when nothing else is to do. The newest block is left out, and the oldest one if retention has begun
// with it: they would change all the time.

#include "archive/store/ArchiveStore.h"
#include "archive/welds/WeldBlock.h"

#include <set>

namespace TelvaneArchive
{

Status ArchiveStore::makeBlocks()
{
    bool made = false;
    Status status;
    do {
        status = makeBlock(made);
    } while (status && made);
    return status;
}

Status ArchiveStore::makeBlock(bool& made)
{
    made = false;
    std::vector<Row> rows;
    Status status =
        m_database->run("SELECT (SELECT min(id) FROM weld), (SELECT max(id) FROM weld)", {}, &rows);
    if (!status || isNull(rows[0][0])) {
        return status;
    }
    const std::int64_t first = wholeOf(rows[0][0]);
    const std::int64_t oldest = first / kBlockWelds + (first % kBlockWelds > 1 ? 1 : 0); // ids begin with 1
    const std::int64_t newest = wholeOf(rows[0][1]) / kBlockWelds;
    std::vector<Row> known;
    status = m_database->run("SELECT DISTINCT block FROM weld_block", {}, &known);
    std::set<std::int64_t> blocks;
    for (const Row& row : known) {
        blocks.insert(wholeOf(row[0]));
    }
    for (std::int64_t block = oldest; status && !made && block < newest; ++block) {
        rows.clear();
        // Ids may have large gaps.
        status = m_database->run("SELECT min(id) FROM weld WHERE id >= $1", {block * kBlockWelds}, &rows);
        block = status ? wholeOf(rows[0][0]) / kBlockWelds : newest;
        if (block < newest && blocks.count(block) == 0) {
            status = storeBlock(block, made);
        }
    }
    return status;
}

Status ArchiveStore::storeBlock(std::int64_t block, bool& made)
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
    Transaction transaction(*m_database);
    Status status = transaction.begun();
    status = status ? m_database->each(statement + " FROM weld WHERE id >= $1 AND id < $2 ORDER BY id",
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
        status = fits ? m_database->run("INSERT INTO weld_block (block, name, data) VALUES ($1, $2, $3)",
                                        {block, names[i], std::move(data)})
                      : status;
    }
    status = status && fits ? transaction.commit() : status;
    made = status && fits;
    return status;
}

} // namespace TelvaneArchive
