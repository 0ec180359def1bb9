// SQLite would sort all welds by their group, which takes longer than reading them, so they are summed up here. Rows are
// read one by one, which is fine for a few thousand. Of many, the columns are read in blocks, and the rows only where
// there is no block: of the oldest and the newest welds, and of those that were changed since.

#include "archive/reader/ArchiveReader.h"

#include "archive/reader/WeldColumnReader.h"
#include "common/support/Clock.h"
#include "common/support/HumanReadable.h"
#include "common/support/Saturating.h"

#include <algorithm>
#include <cmath>
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

/// Adds welds to a trend. The metric is the second column, after the day or the part.
class TrendReader
{
public:
    explicit TrendReader(bool byPart) : m_byPart(byPart) {}

    void addRow(const Value& group, const Value& value)
    {
        if (!isNull(value)) {
            (m_byPart ? m_trend.part(textOf(group)) : m_trend.day(wholeOf(group) / kDay))
                .add(numberOf(value));
            m_trend.prune();
        }
    }
    void addBlock(const WeldColumnReader::Block& block);

    const Trend& trend() const { return m_trend; }

private:
    const bool m_byPart;
    Trend m_trend;
};

void TrendReader::addBlock(const WeldColumnReader::Block& block)
{
    m_trend.prune();
    const BlockColumn& groups = block.columns[0];
    const BlockColumn& values = block.columns[1];
    std::vector<Group*> parts(groups.texts().size());
    std::int64_t lastDay = 0;
    Group* lastGroup = nullptr;
    for (std::size_t i = 0; i < block.matching.size(); ++i) {
        if (block.matching[i] == 0 || values.isNull(i)) {
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

Sql ArchiveReader::statementOfTrend(Column metric, const WeldFilter& filter, bool byPart,
                                    std::optional<Column> index, Row& values)
{
    WeldFilter known = filter;
    known.add(metric, Condition::Comparison::Known, {});
    Sql statement = byPart ? Sql("SELECT part_number, ") : Sql("SELECT start_ns, ");
    statement += sqlOf(metric) + " FROM weld";
    appendWhere(known, statement, values, index);
    return statement;
}

Status ArchiveReader::trend(Column metric, const WeldFilter& filter, bool byPart,
                            std::vector<TrendPoint>& points, Source source)
{
    TrendReader reader(byPart);
    const Snapshot snapshot(*m_database);
    Status status = snapshot.begun();
    bool done = false;
    std::optional<Column> index;
    WeldColumnReader columns(*m_database, filter, {byPart ? Column::PartNumber : Column::StartNs, metric},
                             false);
    if (status && source != Source::Rows && columns.canReadBlocks()) {
        constexpr std::size_t kFew = 20'000;
        const bool always = source == Source::Blocks;
        bool few = false;
        status = always ? status : findFew(filter, kFew, few, index);
        if (status && !few) {
            status = columns.read(
                always, [&reader](const WeldColumnReader::Block& block) { reader.addBlock(block); },
                [&reader](const Row& row) { reader.addRow(row[1], row[2]); }, done);
        }
    }
    if (status && !done && m_database->kind() == Database::Kind::Postgres) {
        return trendByServer(metric, filter, byPart, points);
    }
    if (status && !done) {
        Row values;
        const Sql statement = statementOfTrend(metric, filter, byPart, index, values);
        status =
            m_database->each(statement, values, [&reader](const Row& row) { reader.addRow(row[0], row[1]); });
    }
    if (status) {
        reader.trend().addTo(points);
    }
    return status;
}

Status ArchiveReader::trendByServer(Column metric, const WeldFilter& filter, bool byPart,
                                    std::vector<TrendPoint>& points)
{
    // Not the name of the day, which takes longer than all the rest. The schema has statistics of this expression.
    const Sql group = byPart ? Sql("coalesce(part_number, '')") : Sql("start_ns / 86400000000000");
    const Sql value = "CAST(" + sqlOf(metric) + " AS DOUBLE PRECISION)";
    Sql statement = "SELECT " + group + " AS name, count(*), avg(" + value + "), min(" + value + "), max(" +
                    value + "), stddev_pop(" + value + ") FROM weld";
    Row values;
    WeldFilter known = filter;
    known.add(metric, Condition::Comparison::Known, {});
    appendWhere(known, statement, values);
    // In the order of the bytes, as in SQLite and in blocks.
    statement += " GROUP BY name ORDER BY " + (byPart ? group + " COLLATE \"C\"" : group) + " LIMIT ";
    values.emplace_back(static_cast<std::int64_t>(kMaxTrend));
    statement.parameter(values.size());
    std::vector<Row> rows;
    Status status = m_database->run(statement, values, &rows);
    for (const Row& row : rows) {
        points.push_back({byPart ? textOf(row[0]) : printDay(wholeOf(row[0])), wholeOf(row[1]),
                          numberOf(row[2]), numberOf(row[3]), numberOf(row[4]), numberOf(row[5])});
    }
    return status;
}

} // namespace TelvaneArchive
