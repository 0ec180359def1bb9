// Lists and counts of welds. What has an index is read by it. Other questions, such as two metrics or a part of a name,
// would read every row: they look at the columns in blocks, which takes a tenth of a second for a million welds, and read
// only the rows that they found.

#include "archive/reader/ArchiveReader.h"
#include "archive/reader/WeldColumnReader.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

namespace TelvaneArchive
{

namespace
{

/// \return the conditions of a query, with those that its other members mean
WeldFilter filterOf(const ArchiveReader::Query& query)
{
    WeldFilter filter = query.filter;
    if (query.beforeNs) {
        filter.add(Column::StartNs, Condition::Comparison::Less, *query.beforeNs);
    }
    if (query.order && *query.order != Column::StartNs) {
        filter.add(*query.order, Condition::Comparison::Known, {});
    }
    return filter;
}

/// \return whether a metric decides which welds match
bool isByMetric(const WeldFilter& filter)
{
    return std::any_of(filter.conditions.begin(), filter.conditions.end(),
                       [](const Condition& condition) { return isMetric(condition.column); });
}

/// \return whether the column has an index
bool hasIndex(Column column)
{
    switch (column) {
    case Column::Uid:
    case Column::StartNs:
    case Column::Program:
    case Column::PartNumber:
    case Column::PartSerial:
    case Column::Verdict:
        return true;
    default:
        return infoOf(column).use == ColumnUse::Computed && infoOf(column).type == ColumnType::Real;
    }
}

/// \return whether the welds for which a condition holds are next to each other in an index
bool isRangeOfIndex(const Condition& condition)
{
    switch (condition.comparison) {
    case Condition::Comparison::NotEqual:
    case Condition::Comparison::Like:
    case Condition::Comparison::Known:
        return false;
    default:
        return hasIndex(condition.column);
    }
}

Column orderOf(const ArchiveReader::Query& query)
{
    return query.order.value_or(Column::StartNs);
}

/// \return whether an index has the welds together, or in their order with few others in between
bool hasIndexFor(const WeldFilter& filter, const ArchiveReader::Query& query)
{
    const Column order = orderOf(query);
    std::set<Column> columns;
    for (const Condition& condition : filter.conditions) {
        const bool isOrder =
            condition.column == order && condition.comparison == Condition::Comparison::Known;
        if (!isOrder && !isRangeOfIndex(condition)) {
            return false;
        }
        if (condition.column != order) {
            columns.insert(condition.column);
        }
    }
    const auto isWithTime = [](Column column) {
        return column == Column::Program || column == Column::PartNumber || column == Column::Verdict;
    };
    if (order != Column::StartNs) {
        return columns.empty() && hasIndex(order);
    }
    const bool hasTime =
        std::any_of(filter.conditions.begin(), filter.conditions.end(),
                    [](const Condition& condition) { return condition.column == Column::StartNs; });
    return columns.size() <= 1 && (columns.empty() || !hasTime || isWithTime(*columns.begin()));
}

/// Finds the first welds by a column, then by their start and their id.
class FirstWelds
{
public:
    struct Entry
    {
        Value value;
        std::int64_t start;
        std::int64_t id;
    };

    FirstWelds(std::size_t limit, bool ascending) : m_limit(limit), m_ascending(ascending) {}

    void add(Entry entry)
    {
        if (m_last && !isBefore(entry, *m_last)) {
            return;
        }
        m_entries.push_back(std::move(entry));
        if (m_entries.size() >= 2 * m_limit + kSpare) {
            prune();
        }
    }
    void add(const BlockColumn& column, std::size_t i, std::int64_t start, std::int64_t id)
    {
        if (column.type() == ColumnType::Text) {
            add({column.isNull(i) ? Value() : Value(column.texts()[column.place(i)]), start, id});
        } else {
            add({column.value(i), start, id});
        }
    }

    /// \return ids in their order
    std::vector<std::int64_t> ids()
    {
        prune();
        std::sort(m_entries.begin(), m_entries.end(),
                  [this](const Entry& entry, const Entry& other) { return isBefore(entry, other); });
        std::vector<std::int64_t> ids;
        for (const Entry& entry : m_entries) {
            ids.push_back(entry.id);
        }
        return ids;
    }

private:
    static constexpr std::size_t kSpare = 1000;

    bool isBefore(const Entry& entry, const Entry& other) const
    {
        const int order = compareValues(entry.value, other.value);
        if (order != 0) {
            return m_ascending ? order < 0 : order > 0;
        }
        const auto key = std::pair(entry.start, entry.id);
        const auto otherKey = std::pair(other.start, other.id);
        return m_ascending ? key < otherKey : otherKey < key;
    }

    void prune()
    {
        if (m_entries.size() > m_limit && m_limit > 0) {
            const auto last = m_entries.begin() + static_cast<std::ptrdiff_t>(m_limit) - 1;
            std::nth_element(
                m_entries.begin(), last, m_entries.end(),
                [this](const Entry& entry, const Entry& other) { return isBefore(entry, other); });
            m_last = *last;
        }
        m_entries.resize(std::min(m_entries.size(), m_limit));
    }

    const std::size_t m_limit;
    const bool m_ascending;
    std::vector<Entry> m_entries;
    std::optional<Entry> m_last; ///< what comes later cannot be among the first
};

} // namespace

Sql ArchiveReader::statementOf(const Query& query, bool few, Row& values)
{
    Sql statement = "SELECT id, " + columnList() + " FROM weld";
    const WeldFilter filter = filterOf(query);
    const bool byMetric = isByMetric(filter);
    const Column order = orderOf(query);
    const bool avoid = byMetric && !few && order == Column::StartNs;
    appendWhere(filter, statement, values, avoid ? MetricIndexes::Avoid : MetricIndexes::Use);
    if (query.afterId) {
        values.emplace_back(*query.afterId);
        statement += filter.conditions.empty() ? Sql(" WHERE id > ") : Sql(" AND id > ");
        statement.parameter(values.size()) += " ORDER BY id LIMIT ";
    } else {
        // Few matches are sorted. Otherwise SQLite would go through all welds in order of time to spare the sorting.
        statement += byMetric && few ? Sql(" ORDER BY +") : Sql(" ORDER BY ");
        statement += sqlOf(order);
        // The order of the indexes, which spares the sorting.
        const bool time = order == Column::StartNs;
        statement +=
            query.ascending
                ? (time ? Sql(" ASC, id ASC LIMIT ") : Sql(" ASC, start_ns ASC, id ASC LIMIT "))
                : (time ? Sql(" DESC, id DESC LIMIT ") : Sql(" DESC, start_ns DESC, id DESC LIMIT "));
    }
    values.emplace_back(static_cast<std::int64_t>(std::min(query.limit, kMaxList)));
    statement.parameter(values.size());
    return statement;
}

Status ArchiveReader::list(const Query& query, std::vector<Weld>& welds)
{
    const WeldFilter filter = filterOf(query);
    if (query.source != Source::Rows && !query.afterId && !hasIndexFor(filter, query)) {
        bool done = false;
        Status status = listByColumns(query, filter, welds, done);
        if (!status || done) {
            return status;
        }
    }
    // In the order of time, few matches are found by the index of a metric, many by going through the newest welds.
    bool few = false;
    if (isByMetric(filter) && orderOf(query) == Column::StartNs) {
        constexpr std::int64_t kFew = 5000;
        std::int64_t matches = 0;
        Status counted = count(filter, static_cast<std::size_t>(kFew), matches);
        if (!counted) {
            return counted;
        }
        few = matches < kFew;
    }
    Row values;
    const Sql statement = statementOf(query, few, values);
    std::vector<Row> rows;
    Status status = m_database->run(statement, values, &rows);
    for (const Row& row : rows) {
        welds.push_back(weldOf(row));
    }
    return status;
}

Status ArchiveReader::listByColumns(const Query& query, const WeldFilter& filter, std::vector<Weld>& welds,
                                    bool& done)
{
    constexpr std::size_t kFew = 5000;
    done = false;
    const Column order = orderOf(query);
    WeldColumnReader columns(*m_database, filter, {Column::StartNs, order}, true);
    const bool isSqlite = m_database->kind() == Database::Kind::Sqlite;
    const bool hasOrder =
        isSqlite || infoOf(order).type != ColumnType::Text; // PostgreSQL may have another one
    if (!columns.canReadBlocks() || !hasOrder) {
        return {};
    }
    FirstWelds first(std::min(query.limit, kMaxList), query.ascending);
    const auto takeRow = [&first](const Row& row) {
        first.add({row[2], wholeOf(row[1]), wholeOf(row[0])});
    };
    const Snapshot snapshot(*m_database);
    Status status = snapshot.begun();
    const bool always = query.source == Source::Blocks;
    std::optional<Column> index;
    bool few = false;
    status = status && !always ? findFew(filter, kFew, few, index) : status;
    if (status && index) {
        Row values;
        Sql statement = "SELECT id, start_ns, " + sqlOf(order) + " FROM weld";
        appendWhere(filter, statement, values, isSqlite ? index : std::nullopt);
        status = m_database->each(statement, values, takeRow);
        done = static_cast<bool>(status);
    } else if (status && !few) {
        const auto takeBlock = [&first](const WeldColumnReader::Block& block) {
            for (std::size_t i = 0; i < block.matching.size(); ++i) {
                if (block.matching[i] != 0) {
                    first.add(block.columns[1], i, block.columns[0].whole(i), block.ids.whole(i));
                }
            }
        };
        status = columns.read(always, takeBlock, takeRow, done);
    }
    return status && done ? readWelds(first.ids(), welds) : status;
}

Status ArchiveReader::readWelds(const std::vector<std::int64_t>& ids, std::vector<Weld>& welds)
{
    // So many by one statement: a server may be far away.
    constexpr std::size_t kAtOnce = 100;
    Sql statement = "SELECT id, " + columnList() + " FROM weld WHERE id IN (";
    for (std::size_t number = 1; number <= kAtOnce; ++number) {
        statement += number == 1 ? Sql("") : Sql(", ");
        statement.parameter(number);
    }
    statement += ")";
    Status status;
    for (std::size_t next = 0; next < ids.size() && status; next += kAtOnce) {
        Row values;
        for (std::size_t i = next; values.size() < kAtOnce; ++i) {
            values.emplace_back(ids[std::min(i, ids.size() - 1)]);
        }
        std::unordered_map<std::int64_t, Weld> found;
        status = m_database->each(statement, values,
                                  [&found](const Row& row) { found.emplace(wholeOf(row[0]), weldOf(row)); });
        for (std::size_t i = next; i < std::min(next + kAtOnce, ids.size()); ++i) {
            if (const auto weld = found.find(ids[i]); weld != found.end()) {
                welds.push_back(std::move(weld->second));
            }
        }
    }
    return status;
}

Status ArchiveReader::count(const WeldFilter& filter, std::size_t limit, std::int64_t& count)
{
    Sql statement = "SELECT count(*) FROM (SELECT 1 FROM weld";
    Row values;
    appendWhere(filter, statement, values);
    values.emplace_back(static_cast<std::int64_t>(limit));
    statement += " LIMIT ";
    statement.parameter(values.size()) += ") AS found";
    std::vector<Row> rows;
    Status status = m_database->run(statement, values, &rows);
    count = status ? wholeOf(rows[0][0]) : 0;
    return status;
}

Status ArchiveReader::findFew(const WeldFilter& filter, std::size_t limit, bool& few,
                              std::optional<Column>& index)
{
    index.reset();
    few = false;
    std::int64_t welds = 0;
    Status status;
    if (m_database->kind() == Database::Kind::Sqlite) { // PostgreSQL would read rows to count them
        status = count({}, limit, welds);
        few = status && welds < static_cast<std::int64_t>(limit);
    }
    for (auto condition = filter.conditions.begin(); condition != filter.conditions.end() && status && !few;
         ++condition) {
        WeldFilter range;
        std::copy_if(filter.conditions.begin(), filter.conditions.end(), std::back_inserter(range.conditions),
                     [column = condition->column](const Condition& other) {
                         return other.column == column && isRangeOfIndex(other);
                     });
        if (!range.conditions.empty()) {
            status = count(range, limit, welds);
            few = status && welds < static_cast<std::int64_t>(limit);
            index = few ? std::optional(condition->column) : std::nullopt;
        }
    }
    return status;
}

} // namespace TelvaneArchive
