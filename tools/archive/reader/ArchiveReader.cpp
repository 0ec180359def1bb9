#include "archive/reader/ArchiveReader.h"

#include "archive/samples/SampleCodec.h"
#include "archive/samples/SampleFile.h"
#include "archive/welds/Schema.h"
#include "archive/welds/WeldMeasures.h"

#include <algorithm>
#include <limits>

namespace TelvaneArchive
{

namespace
{

Weld weldOf(const Row& row)
{
    Weld weld;
    weld.id = wholeOf(row[0]);
    std::copy(row.begin() + 1, row.end(), weld.values.begin());
    return weld;
}

std::int64_t firstMoment(const ArchiveReader::SampleRange& range, const SampleClock& clock)
{
    constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
    return range.fromNs == kLeast ? kLeast : TelvaneTool::addSaturated(clock.start(), range.fromNs);
}

std::int64_t lastMoment(const ArchiveReader::SampleRange& range, const SampleClock& clock)
{
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    return range.toNs == kMost ? kMost : TelvaneTool::addSaturated(clock.start(), range.toNs);
}

} // namespace

std::unique_ptr<ArchiveReader> ArchiveReader::open(const std::string& location, Status& status)
{
    std::unique_ptr<Database> database = openDatabase(location, Database::Access::ReadOnly, status);
    if (!database) {
        return nullptr;
    }
    std::int64_t version = 0;
    status = readSchemaVersion(*database, version);
    if (status && version == 0) {
        status = {Status::Code::Refused, "this is not an archive of welds"};
    }
    // A newer version may have more columns than this program knows, which does no harm to reading.
    if (status && version < kOldestReadableVersion) {
        status = {Status::Code::Refused, "the archive has version " + std::to_string(version) +
                                             " of the schema; telvane-archive brings it up to date"};
    }
    if (!status) {
        return nullptr;
    }
    return std::unique_ptr<ArchiveReader>(new ArchiveReader(std::move(database), location));
}

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

} // namespace

Sql ArchiveReader::statementOf(const Query& query, bool few, Row& values)
{
    Sql statement = "SELECT id, " + columnList() + " FROM weld";
    const WeldFilter filter = filterOf(query);
    const bool byMetric = isByMetric(filter);
    const Column order = query.order.value_or(Column::StartNs);
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
    // In the order of time, few matches are found by the index of a metric, many by going through the newest welds.
    bool few = false;
    const WeldFilter filter = filterOf(query);
    if (isByMetric(filter) && query.order.value_or(Column::StartNs) == Column::StartNs) {
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

Status ArchiveReader::weld(std::int64_t id, std::optional<Weld>& weld)
{
    std::vector<Row> rows;
    Status status = m_database->run("SELECT id, " + columnList() + " FROM weld WHERE id = $1", {id}, &rows);
    weld = rows.empty() ? std::nullopt : std::optional(weldOf(rows[0]));
    return status;
}

Status ArchiveReader::envelope(std::int64_t id, std::size_t parts, std::optional<Envelope>& envelope)
{
    envelope.reset();
    std::vector<Row> rows;
    Status status = m_database->run("SELECT data FROM envelope WHERE weld_id = $1 AND parts = $2",
                                    {id, static_cast<std::int64_t>(parts)}, &rows);
    if (!status || rows.empty()) {
        return status;
    }
    Envelope read;
    if (!decodeEnvelope(bytesOf(rows[0][0]), read)) {
        return {Status::Code::Damaged, "the envelope of weld " + std::to_string(id) + " is damaged"};
    }
    envelope = std::move(read);
    return status;
}

bool ArchiveReader::SampleRange::contains(std::int64_t time) const
{
    return time >= fromNs && (time < toNs || toNs == std::numeric_limits<std::int64_t>::max());
}

Status ArchiveReader::samples(std::int64_t id, const SampleRange& range, std::size_t limit,
                              SamplePosition& position, std::vector<Sample>& samples, std::uint64_t* damaged)
{
    std::optional<Weld> found;
    Status status = weld(id, found);
    if (!status || !found) {
        return status;
    }
    const SampleClock clock(found->whole(Column::StartNs), found->whole(Column::SamplePeriodUs));
    const std::size_t wanted = samples.size() + limit;
    while (status && samples.size() < wanted) {
        std::vector<Row> rows;
        status =
            m_database->run("SELECT number, file, place, size, data FROM chunk WHERE weld_id = $1 AND "
                            "number >= $2 AND last_ns >= $3 AND first_ns <= $4 ORDER BY number LIMIT 16",
                            {id, position.chunk, firstMoment(range, clock), lastMoment(range, clock)}, &rows);
        if (rows.empty()) {
            break;
        }
        for (auto row = rows.begin(); row != rows.end() && samples.size() < wanted; ++row) {
            std::vector<Sample> chunk;
            if (!readChunk(*row, chunk)) {
                chunk.clear();
                if (damaged != nullptr) {
                    ++*damaged;
                }
            }
            std::size_t next = wholeOf((*row)[0]) == position.chunk ? position.sample : 0;
            for (; next < chunk.size() && samples.size() < wanted; ++next) {
                Sample sample = chunk[next];
                sample.time = clock.sinceStart(sample);
                if (range.contains(sample.time)) {
                    samples.push_back(sample);
                }
            }
            const bool whole = next >= chunk.size();
            position = {wholeOf((*row)[0]) + (whole ? 1 : 0), whole ? 0 : next};
        }
    }
    return status;
}

bool ArchiveReader::readChunk(const Row& row, std::vector<Sample>& samples) const
{
    std::string bytes = bytesOf(row[4]);
    if (bytes.empty()) {
        readFilePart(sampleFolder(m_location) + "/" + textOf(row[1]), {wholeOf(row[2]), wholeOf(row[3])},
                     bytes);
    }
    ChunkHeader header;
    return decodeChunk(bytes, header, samples);
}

Status ArchiveReader::events(std::int64_t id, std::vector<Event>& events)
{
    std::vector<Row> rows;
    Status status = m_database->run(
        "SELECT time_ns, channel, record FROM event WHERE weld_id = $1 ORDER BY time_ns, id LIMIT 1000", {id},
        &rows);
    for (const Row& row : rows) {
        events.push_back({wholeOf(row[0]), textOf(row[1]), textOf(row[2])});
    }
    return status;
}

Status ArchiveReader::findings(std::int64_t id, std::vector<Finding>& findings)
{
    std::vector<Row> rows;
    Status status =
        m_database->run("SELECT judged_ns, level, metric, value, low, high, from_s, to_s, reference "
                        "FROM finding WHERE weld_id = $1 ORDER BY id LIMIT 1000",
                        {id}, &rows);
    for (const Row& row : rows) {
        findings.push_back({wholeOf(row[0]), textOf(row[1]), textOf(row[2]), numberOf(row[3]),
                            numberOf(row[4]), numberOf(row[5]), numberOf(row[6]), numberOf(row[7]),
                            textOf(row[8])});
    }
    return status;
}

} // namespace TelvaneArchive
