#include "archive/reader/WeldColumnReader.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

namespace TelvaneArchive
{

namespace
{

/// \return the least and the largest whole number for which a condition holds; nothing if it is no such condition
std::optional<std::pair<std::int64_t, std::int64_t>> rangeOf(const Condition& condition)
{
    constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    const auto* const value = std::get_if<std::int64_t>(&condition.value);
    if (value == nullptr || *value == kLeast || *value == kMost) {
        return std::nullopt;
    }
    switch (condition.comparison) {
    case Condition::Comparison::Equal:
        return std::pair(*value, *value);
    case Condition::Comparison::Less:
        return std::pair(kLeast, *value - 1);
    case Condition::Comparison::LessOrEqual:
        return std::pair(kLeast, *value);
    case Condition::Comparison::Greater:
        return std::pair(*value + 1, kMost);
    case Condition::Comparison::GreaterOrEqual:
        return std::pair(*value, kMost);
    default:
        return std::nullopt;
    }
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
    return std::all_of(m_columns.begin(), m_columns.end(), &isInBlocks) &&
           std::all_of(m_filter.conditions.begin(), m_filter.conditions.end(),
                       [](const Condition& condition) { return isInBlocks(condition.column); });
}

Status WeldColumnReader::read(std::int64_t mostMissing, const TakeBlock& takeBlock, const TakeRow& takeRow,
                              bool& done)
{
    done = false;
    std::vector<Row> known;
    Status status =
        m_database.run("SELECT count(*) FROM sqlite_master WHERE name = 'weld_block'", {}, &known);
    if (!status || wholeOf(known[0][0]) == 0) {
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
    const std::int64_t ids = wholeOf(range[0][1]) / kBlockWelds - wholeOf(range[0][0]) / kBlockWelds + 1;
    if (blocks.empty() || ids - static_cast<std::int64_t>(blocks.size()) > mostMissing) {
        return status;
    }
    std::int64_t next = std::numeric_limits<std::int64_t>::min();
    for (const Row& row : blocks) {
        const std::int64_t number = wholeOf(row[0]);
        Block block;
        bool sound = false;
        status = status ? readBlock(number, block, sound) : status;
        if (!status || !sound) {
            continue; // its rows are read with those up to the next block
        }
        status = readRows(next, number * kBlockWelds, takeRow);
        next = (number + 1) * kBlockWelds;
        if (status) {
            takeBlock(block);
        }
    }
    done = true;
    return status ? readRows(next, std::numeric_limits<std::int64_t>::max(), takeRow) : status;
}

/// \param to  the first one that is not read
Status WeldColumnReader::readRows(std::int64_t from, std::int64_t to, const TakeRow& take)
{
    Row values;
    Sql statement = "SELECT id";
    for (const Column column : m_columns) {
        statement += ", " + sqlOf(column);
    }
    statement += " FROM weld NOT INDEXED"; // in the order of the ids, as they are on the disk
    appendWhere(m_filter, statement, values);
    statement += m_filter.conditions.empty() ? Sql(" WHERE id >= ") : Sql(" AND id >= ");
    values.emplace_back(from);
    statement.parameter(values.size());
    values.emplace_back(to);
    statement += " AND id < ";
    statement.parameter(values.size());
    return m_database.each(statement, values, take);
}

Status WeldColumnReader::readBlock(std::int64_t number, Block& block, bool& sound)
{
    Status status;
    sound = true;
    if (m_withIds) {
        status = readColumn(number, kBlockIds, block.ids, sound);
    }
    for (const Column name : m_columns) {
        BlockColumn& column = block.columns.emplace_back(name);
        status = status && sound ? readColumn(number, infoOf(name).name, column, sound) : status;
    }
    const std::size_t size = m_withIds ? block.ids.size() : block.columns.front().size();
    sound = sound && std::all_of(block.columns.begin(), block.columns.end(),
                                 [size](const BlockColumn& column) { return column.size() == size; });
    block.matching.assign(size, 1);
    for (const Condition& condition : m_filter.conditions) {
        BlockColumn column(condition.column);
        status = status && sound ? readColumn(number, infoOf(condition.column).name, column, sound) : status;
        sound = sound && column.size() == size;
        if (status && sound) {
            apply(condition, column, block.matching);
        }
    }
    return status;
}

Status WeldColumnReader::readColumn(std::int64_t number, const std::string& name, BlockColumn& column,
                                    bool& sound)
{
    std::vector<Row> rows;
    Status status =
        m_database.run("SELECT data FROM weld_block WHERE block = $1 AND name = $2", {number, name}, &rows);
    sound = status && !rows.empty() && column.decode(bytesOf(rows[0][0]));
    return status;
}

} // namespace TelvaneArchive
