#include "archive/reader/WeldColumnReader.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <set>
#include <utility>

namespace TelvaneArchive
{

namespace
{

/// \return the least and the largest whole number for which a condition holds; nothing if it is no such condition
std::optional<std::pair<std::int64_t, std::int64_t>> rangeOf(const Condition& condition)
{
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    const auto* const value = std::get_if<std::int64_t>(&condition.value);
    if (value == nullptr || *value == kMin || *value == kMax) {
        return std::nullopt;
    }
    switch (condition.comparison) {
    case Condition::Comparison::Equal:
        return std::pair(*value, *value);
    case Condition::Comparison::Less:
        return std::pair(kMin, *value - 1);
    case Condition::Comparison::LessOrEqual:
        return std::pair(kMin, *value);
    case Condition::Comparison::Greater:
        return std::pair(*value + 1, kMax);
    case Condition::Comparison::GreaterOrEqual:
        return std::pair(*value, kMax);
    default:
        return std::nullopt;
    }
}

bool isByOrderOfTexts(const Condition& condition)
{
    return infoOf(condition.column).type == ColumnType::Text &&
           condition.comparison >= Condition::Comparison::Less &&
           condition.comparison <= Condition::Comparison::GreaterOrEqual;
}

/// \return whether a number is on the right side of another one
bool holdsFor(Condition::Comparison comparison, double number, double other)
{
    switch (comparison) {
    case Condition::Comparison::NotEqual:
        return number != other;
    case Condition::Comparison::Less:
        return number < other;
    case Condition::Comparison::LessOrEqual:
        return number <= other;
    case Condition::Comparison::Greater:
        return number > other;
    case Condition::Comparison::GreaterOrEqual:
        return number >= other;
    default:
        return number == other;
    }
}

/// \param[in,out] matching  is set to 0 where the condition does not hold
void apply(const Condition& condition, const BlockColumn& column, std::vector<char>& matching)
{
    if (column.type() == ColumnType::Text) {
        std::vector<char> holding;
        for (const std::string& text : column.texts()) {
            holding.push_back(holds(condition, holding.empty() ? Value() : Value(text)) ? 1 : 0);
        }
        for (std::size_t i = 0; i < matching.size(); ++i) {
            matching[i] = matching[i] != 0 && holding[column.place(i)] != 0 ? 1 : 0;
        }
        return;
    }
    if (const auto range = rangeOf(condition); range && column.type() == ColumnType::Whole) {
        for (std::size_t i = 0; i < matching.size(); ++i) {
            const std::int64_t whole = column.whole(i);
            const bool inside = whole >= range->first && whole <= range->second && !column.isNull(i);
            matching[i] = matching[i] != 0 && inside ? 1 : 0;
        }
        return;
    }
    const bool isPlain = condition.comparison <= Condition::Comparison::GreaterOrEqual;
    const double other = numberOf(condition.value);
    for (std::size_t i = 0; i < matching.size(); ++i) {
        if (matching[i] != 0) {
            const bool holding =
                column.type() == ColumnType::Real && isPlain
                    ? !column.isNull(i) && holdsFor(condition.comparison, column.number(i), other)
                    : holds(condition, column.value(i));
            matching[i] = holding ? 1 : 0;
        }
    }
}

} // namespace

bool WeldColumnReader::canReadBlocks() const
{
    // PostgreSQL may have another order of texts.
    const bool hasOrderOfTexts = m_database.kind() == Database::Kind::Sqlite;
    return std::all_of(m_columns.begin(), m_columns.end(), &isInBlocks) &&
           std::all_of(m_filter.conditions.begin(), m_filter.conditions.end(),
                       [hasOrderOfTexts](const Condition& condition) {
                           return isInBlocks(condition.column) &&
                                  (hasOrderOfTexts || !isByOrderOfTexts(condition));
                       });
}

Status WeldColumnReader::findBlocks(bool& found)
{
    std::vector<Row> rows;
    Status status = m_database.run(m_database.kind() == Database::Kind::Sqlite
                                       ? Sql("SELECT count(*) FROM sqlite_master WHERE name = 'weld_block'")
                                       : Sql("SELECT coalesce(has_table_privilege(to_regclass('weld_block'), "
                                             "'SELECT'), false)"),
                                   {}, &rows);
    found = status && wholeOf(rows[0][0]) != 0;
    return status;
}

Status WeldColumnReader::read(bool always, const TakeBlock& takeBlock, const TakeRow& takeRow, bool& done)
{
    constexpr std::int64_t kMaxMissing = 4;
    const std::int64_t maxMissing = always ? std::numeric_limits<std::int64_t>::max() : kMaxMissing;
    done = false;
    bool found = false;
    Status status = findBlocks(found);
    if (!found) {
        return status; // an archive of an older version
    }
    std::vector<Row> range;
    status = m_database.run("SELECT (SELECT min(id) FROM weld), (SELECT max(id) FROM weld)", {}, &range);
    std::vector<Row> blocks;
    // Blocks of an older version have fewer columns.
    status =
        status ? m_database.run("SELECT block FROM weld_block WHERE name = $1 ORDER BY block",
                                {std::string(m_withIds ? kBlockIds : infoOf(m_columns.back()).name)}, &blocks)
               : status;
    if (!status) {
        return status;
    }
    std::int64_t missing = 0;
    status = countMissing(wholeOf(range[0][0]) / kBlockWelds, wholeOf(range[0][1]) / kBlockWelds, blocks,
                          maxMissing, missing);
    if (!status || blocks.empty() || missing > maxMissing) {
        return status;
    }
    std::vector<std::int64_t> sound;
    status = readBlocks(takeBlock, sound);
    // The rows of all others.
    std::int64_t next = std::numeric_limits<std::int64_t>::min();
    for (const std::int64_t number : sound) {
        status = status ? readRows(next, number * kBlockWelds, takeRow) : status;
        next = (number + 1) * kBlockWelds;
    }
    done = true;
    return status ? readRows(next, std::numeric_limits<std::int64_t>::max(), takeRow) : status;
}

/// Counts the blocks that have welds and are missing. Ids may have large gaps, for example if retention has left a few old
/// welds that are not ok.
/// \param blocks  the known ones, in order
/// \param max     where it may stop counting
Status WeldColumnReader::countMissing(std::int64_t first, std::int64_t last, const std::vector<Row>& blocks,
                                      std::int64_t max, std::int64_t& missing)
{
    missing = last - first + 1 - static_cast<std::int64_t>(blocks.size());
    if (missing <= max) {
        return {};
    }
    missing = 0;
    Status status;
    std::int64_t next = first;
    for (std::size_t i = 0; i <= blocks.size() && status && missing <= max; ++i) {
        const std::int64_t end = i < blocks.size() ? wholeOf(blocks[i][0]) : last + 1;
        while (status && next < end && missing <= max) {
            std::vector<Row> rows;
            status = m_database.run("SELECT min(id) FROM weld WHERE id >= $1 AND id < $2",
                                    {next * kBlockWelds, end * kBlockWelds}, &rows);
            const bool found = status && !isNull(rows[0][0]);
            missing += found ? 1 : 0;
            next = found ? wholeOf(rows[0][0]) / kBlockWelds + 1 : end;
        }
        next = std::max(next, end + 1);
    }
    return status;
}

/// \param to  the first one that is not read
Status WeldColumnReader::readRows(std::int64_t from, std::int64_t to, const TakeRow& take)
{
    if (from >= to) {
        return {};
    }
    Row values;
    Sql statement = "SELECT id";
    for (const Column column : m_columns) {
        statement += ", " + sqlOf(column);
    }
    // In the order of the ids, as they are on the disk.
    statement +=
        m_database.kind() == Database::Kind::Sqlite ? Sql(" FROM weld NOT INDEXED") : Sql(" FROM weld");
    appendWhere(m_filter, statement, values);
    statement += m_filter.conditions.empty() ? Sql(" WHERE id >= ") : Sql(" AND id >= ");
    values.emplace_back(from);
    statement.parameter(values.size());
    values.emplace_back(to);
    statement += " AND id < ";
    statement.parameter(values.size());
    return m_database.each(statement, values, take);
}

/// Reads all blocks by one statement: a server may be far away.
/// \param[out] sound  the blocks that were read
Status WeldColumnReader::readBlocks(const TakeBlock& take, std::vector<std::int64_t>& sound)
{
    std::set<std::string> names;
    if (m_withIds) {
        names.emplace(kBlockIds);
    }
    for (const Column column : m_columns) {
        names.emplace(infoOf(column).name);
    }
    for (const Condition& condition : m_filter.conditions) {
        names.emplace(infoOf(condition.column).name);
    }
    Sql statement = "SELECT block, name, data FROM weld_block WHERE name IN (";
    Row values;
    for (const std::string& name : names) {
        statement += values.empty() ? Sql("") : Sql(", ");
        values.emplace_back(name);
        statement.parameter(values.size());
    }
    std::int64_t number = 0;
    Parts parts;
    const auto takeRow = [&](const Row& row) {
        if (wholeOf(row[0]) != number) {
            parts.clear();
            number = wholeOf(row[0]);
        }
        const std::optional<Column> column = findColumn(textOf(row[1]));
        BlockColumn part(column ? infoOf(*column).type : ColumnType::Whole); // the ids
        if (part.decode(bytesOf(row[2]))) {
            parts.insert_or_assign(textOf(row[1]), std::move(part));
        }
        Block block;
        if (parts.size() == names.size() && join(parts, block)) {
            sound.push_back(number);
            take(block);
        }
    };
    return m_database.each(statement + ") ORDER BY block", values, takeRow);
}

/// Moves the columns into a block.
/// \return false if they have different numbers of welds
bool WeldColumnReader::join(Parts& parts, Block& block) const
{
    const std::size_t size = parts.begin()->second.size();
    if (!std::all_of(parts.begin(), parts.end(),
                     [size](const auto& part) { return part.second.size() == size; })) {
        return false;
    }
    block.matching.assign(size, 1);
    for (const Condition& condition : m_filter.conditions) {
        apply(condition, parts.at(infoOf(condition.column).name), block.matching);
    }
    for (auto column = m_columns.begin(); column != m_columns.end(); ++column) {
        BlockColumn& part = parts.at(infoOf(*column).name);
        const bool again = std::count(column + 1, m_columns.end(), *column) != 0;
        block.columns.push_back(again ? part : std::move(part));
    }
    if (m_withIds) {
        block.ids = std::move(parts.at(kBlockIds));
    }
    return true;
}

} // namespace TelvaneArchive
