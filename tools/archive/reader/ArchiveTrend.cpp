// SQLite would sort all welds by their group, which takes longer than reading them, so they are summed up here. Rows are
// read one by one, which is fine for a few thousand. Of many, the columns are read in blocks, and the rows only where
// there is no block: of the oldest and the newest welds, and of those that were changed since.

#include "archive/reader/ArchiveReader.h"

#include "archive/welds/WeldBlock.h"
#include "common/support/Clock.h"
#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <unordered_map>

namespace TelvaneArchive
{

namespace
{

using TrendPoint = ArchiveReader::TrendPoint;

constexpr std::size_t kMaxTrend = 5000;
constexpr std::int64_t kDay = 86'400 * TelvaneTool::kSecond;

/// One day or one part, by Welford's method.
class Group
{
public:
    void add(double value)
    {
        m_point.min = m_point.welds == 0 ? value : std::min(m_point.min, value);
        m_point.max = m_point.welds == 0 ? value : std::max(m_point.max, value);
        ++m_point.welds;
        const double difference = value - m_point.mean;
        m_point.mean += difference / static_cast<double>(m_point.welds);
        m_squares += difference * (value - m_point.mean);
    }
    TrendPoint point(std::string name) const
    {
        TrendPoint point = m_point;
        point.group = std::move(name);
        point.deviation = std::sqrt(m_squares / static_cast<double>(point.welds));
        return point;
    }

private:
    TrendPoint m_point;
    double m_squares = 0.0;
};

/// The first kMaxTrend groups by their keys.
template <class Key>
class Groups
{
public:
    /// \return a group, valid until prune()
    Group& operator[](const Key& key) { return m_last && *m_last < key ? m_beyond : m_groups[key]; }

    /// Forgets groups that cannot be among the first, if there are many. Part numbers may be different for each weld.
    void prune()
    {
        if (m_groups.size() <= 4 * kMaxTrend) {
            return;
        }
        m_last = firstKeys().back();
        for (auto group = m_groups.begin(); group != m_groups.end();) {
            group = *m_last < group->first ? m_groups.erase(group) : std::next(group);
        }
    }

    template <class Print>
    void addTo(std::vector<TrendPoint>& points, Print print) const
    {
        for (const Key& key : firstKeys()) {
            points.push_back(m_groups.at(key).point(print(key)));
        }
    }

private:
    std::vector<Key> firstKeys() const
    {
        std::vector<Key> keys;
        keys.reserve(m_groups.size());
        for (const auto& [key, group] : m_groups) {
            keys.push_back(key);
        }
        std::sort(keys.begin(), keys.end());
        if (keys.size() > kMaxTrend) {
            keys.resize(kMaxTrend);
        }
        return keys;
    }

    std::unordered_map<Key, Group> m_groups;
    std::optional<Key> m_last; ///< the last one of the first groups, if others were forgotten
    Group m_beyond;            ///< of all others
};

std::string printDay(std::int64_t day)
{
    return TelvaneTool::printMoment(TelvaneTool::multiplySaturated<TelvaneTool::Nanoseconds>(day, kDay))
        .substr(0, 10);
}

class Trend
{
public:
    Group& day(std::int64_t number) { return m_days[number]; }
    Group& part(const std::string& name) { return m_parts[name]; }
    /// Groups that were returned before are not valid after it.
    void prune()
    {
        m_days.prune();
        m_parts.prune();
    }

    void addTo(std::vector<TrendPoint>& points) const
    {
        m_days.addTo(points, &printDay);
        m_parts.addTo(points, [](const std::string& name) { return name; });
    }

private:
    Groups<std::int64_t> m_days;
    Groups<std::string> m_parts;
};

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

/// Reads a trend from an SQLite archive.
class TrendReader
{
public:
    TrendReader(Database& database, Column metric, const WeldFilter& filter, bool byPart)
        : m_database(database), m_metric(metric), m_filter(filter), m_byPart(byPart)
    {}

    Status readRows()
    {
        Row values;
        const Sql statement = ArchiveReader::statementOfTrend(m_metric, m_filter, m_byPart, values);
        return readRows(statement, values);
    }

    /// \return whether all columns that it needs are in blocks
    bool canReadBlocks() const
    {
        return isInBlocks(m_metric) &&
               std::all_of(m_filter.conditions.begin(), m_filter.conditions.end(),
                           [](const Condition& condition) { return isInBlocks(condition.column); });
    }

    /// \param mostMissing  most blocks that may be missing
    /// \param[out] done  false if more are
    Status readBlocks(std::int64_t mostMissing, bool& done);

    const Trend& trend() const { return m_trend; }

private:
    Status readRows(const Sql& statement, const Row& values)
    {
        return m_database.each(statement, values, [this](const Row& row) {
            Group& group = m_byPart ? m_trend.part(textOf(row[0])) : m_trend.day(wholeOf(row[0]));
            group.add(numberOf(row[1]));
            m_trend.prune();
        });
    }
    Status readRowsBetween(std::int64_t from, std::int64_t to);
    Status readBlock(std::int64_t block, bool& sound);
    Status readColumn(std::int64_t block, BlockColumn& column, Column name, bool& sound);
    void addBlock(const BlockColumn& groups, const BlockColumn& values, const std::vector<char>& matching);

    Database& m_database;
    const Column m_metric;
    const WeldFilter& m_filter;
    const bool m_byPart;
    Trend m_trend;
};

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
    for (std::size_t i = 0; i < matching.size(); ++i) {
        matching[i] = matching[i] != 0 && holds(condition, column.value(i)) ? 1 : 0;
    }
}

Status TrendReader::readBlocks(std::int64_t mostMissing, bool& done)
{
    done = false;
    const Snapshot snapshot(m_database);
    Status status = snapshot.begun();
    std::vector<Row> range;
    status = status
                 ? m_database.run("SELECT (SELECT min(id) FROM weld), (SELECT max(id) FROM weld)", {}, &range)
                 : status;
    std::vector<Row> known;
    status = status
                 ? m_database.run("SELECT count(*) FROM sqlite_master WHERE name = 'weld_block'", {}, &known)
                 : status;
    if (!status || wholeOf(known[0][0]) == 0) {
        return status; // an archive of an older version
    }
    std::vector<Row> blocks;
    status =
        status ? m_database.run("SELECT DISTINCT block FROM weld_block ORDER BY block", {}, &blocks) : status;
    if (!status) {
        return status;
    }
    const std::int64_t ids = wholeOf(range[0][1]) / kBlockWelds - wholeOf(range[0][0]) / kBlockWelds + 1;
    if (blocks.empty() || ids - static_cast<std::int64_t>(blocks.size()) > mostMissing) {
        return status;
    }
    std::int64_t next = std::numeric_limits<std::int64_t>::min();
    for (const Row& row : blocks) {
        const std::int64_t block = wholeOf(row[0]);
        bool sound = false;
        status = status ? readBlock(block, sound) : status;
        if (!status || !sound) {
            continue; // its rows are read with those up to the next block
        }
        status = readRowsBetween(next, block * kBlockWelds);
        next = (block + 1) * kBlockWelds;
    }
    done = true;
    return status ? readRowsBetween(next, std::numeric_limits<std::int64_t>::max()) : status;
}

/// \param to  the first one that is not read
Status TrendReader::readRowsBetween(std::int64_t from, std::int64_t to)
{
    Row values;
    // In the order of the ids, as they are on the disk.
    Sql statement = m_byPart ? Sql("SELECT part_number, ") : Sql("SELECT start_ns / 86400000000000, ");
    statement += sqlOf(m_metric) + " FROM weld NOT INDEXED";
    WeldFilter known = m_filter;
    known.add(m_metric, Condition::Comparison::Known, {});
    appendWhere(known, statement, values);
    values.emplace_back(from);
    statement += " AND id >= ";
    statement.parameter(values.size());
    values.emplace_back(to);
    statement += " AND id < ";
    statement.parameter(values.size());
    return readRows(statement, values);
}

Status TrendReader::readBlock(std::int64_t block, bool& sound)
{
    const Column group = m_byPart ? Column::PartNumber : Column::StartNs;
    BlockColumn groups(group);
    BlockColumn values(m_metric);
    sound = true;
    Status status = readColumn(block, groups, group, sound);
    status = status && sound ? readColumn(block, values, m_metric, sound) : status;
    sound = sound && groups.size() == values.size();
    std::vector<char> matching(values.size(), 1);
    for (const Condition& condition : m_filter.conditions) {
        BlockColumn column(condition.column);
        status = status && sound ? readColumn(block, column, condition.column, sound) : status;
        sound = sound && column.size() == matching.size();
        if (status && sound) {
            apply(condition, column, matching);
        }
    }
    if (status && sound) {
        addBlock(groups, values, matching);
    }
    return status;
}

Status TrendReader::readColumn(std::int64_t block, BlockColumn& column, Column name, bool& sound)
{
    std::vector<Row> rows;
    Status status = m_database.run("SELECT data FROM weld_block WHERE block = $1 AND name = $2",
                                   {block, std::string(infoOf(name).name)}, &rows);
    sound = status && !rows.empty() && column.decode(bytesOf(rows[0][0]));
    return status;
}

void TrendReader::addBlock(const BlockColumn& groups, const BlockColumn& values,
                           const std::vector<char>& matching)
{
    m_trend.prune();
    std::vector<Group*> parts(groups.texts().size());
    std::int64_t lastDay = 0;
    Group* lastGroup = nullptr;
    for (std::size_t i = 0; i < matching.size(); ++i) {
        if (matching[i] == 0 || values.isNull(i)) {
            continue;
        }
        if (m_byPart) {
            Group*& part = parts[groups.place(i)];
            part = part != nullptr ? part : &m_trend.part(groups.texts()[groups.place(i)]);
            lastGroup = part;
        } else if (const std::int64_t day = (groups.isNull(i) ? 0 : groups.whole(i)) / kDay;
                   lastGroup == nullptr || day != lastDay) {
            lastDay = day;
            lastGroup = &m_trend.day(day);
        }
        lastGroup->add(values.type() == ColumnType::Whole ? static_cast<double>(values.whole(i))
                                                          : values.number(i));
    }
}

} // namespace

Sql ArchiveReader::statementOfTrend(Column metric, const WeldFilter& filter, bool byPart, Row& values)
{
    WeldFilter known = filter;
    known.add(metric, Condition::Comparison::Known, {});
    Sql statement = byPart ? Sql("SELECT part_number, ") : Sql("SELECT start_ns / 86400000000000, ");
    statement += sqlOf(metric) + " FROM weld";
    appendWhere(known, statement, values);
    return statement;
}

Status ArchiveReader::trend(Column metric, const WeldFilter& filter, bool byPart,
                            std::vector<TrendPoint>& points, TrendSource source)
{
    if (m_database->kind() == Database::Kind::Postgres) {
        return trendByServer(metric, filter, byPart, points);
    }
    TrendReader reader(*m_database, metric, filter, byPart);
    Status status;
    bool done = false;
    std::int64_t welds = 0;
    constexpr std::int64_t kFew = 20'000;
    constexpr std::int64_t kMostMissing = 4;
    if (source == TrendSource::Blocks) {
        status = reader.readBlocks(std::numeric_limits<std::int64_t>::max(), done);
    } else if (source == TrendSource::Best && reader.canReadBlocks()) {
        status = count(filter, static_cast<std::size_t>(kFew), welds);
        status = status && welds >= kFew ? reader.readBlocks(kMostMissing, done) : status;
    }
    status = status && !done ? reader.readRows() : status;
    if (status) {
        reader.trend().addTo(points);
    }
    return status;
}

Status ArchiveReader::trendByServer(Column metric, const WeldFilter& filter, bool byPart,
                                    std::vector<TrendPoint>& points)
{
    const Sql group =
        byPart ? Sql("coalesce(part_number, '')")
               : Sql("to_char(to_timestamp(start_ns / 1000000000) AT TIME ZONE 'UTC', 'YYYY-MM-DD')");
    const Sql value = "CAST(" + sqlOf(metric) + " AS DOUBLE PRECISION)";
    Sql statement = "SELECT " + group + " AS name, count(*), avg(" + value + "), min(" + value + "), max(" +
                    value + "), avg(" + value + " * " + value + ") FROM weld";
    Row values;
    WeldFilter known = filter;
    known.add(metric, Condition::Comparison::Known, {});
    appendWhere(known, statement, values);
    statement += " GROUP BY name ORDER BY name LIMIT ";
    values.emplace_back(static_cast<std::int64_t>(kMaxTrend));
    statement.parameter(values.size());
    std::vector<Row> rows;
    Status status = m_database->run(statement, values, &rows);
    for (const Row& row : rows) {
        const double mean = numberOf(row[2]);
        const double variance = std::max(0.0, numberOf(row[5]) - mean * mean);
        points.push_back(
            {textOf(row[0]), wholeOf(row[1]), mean, numberOf(row[3]), numberOf(row[4]), std::sqrt(variance)});
    }
    return status;
}

} // namespace TelvaneArchive
