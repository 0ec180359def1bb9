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

std::int64_t firstMoment(const ArchiveReader::SampleRange& range, const SampleClock& clock)
{
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    return range.fromNs == kMin ? kMin : TelvaneTool::addSaturated(clock.start(), range.fromNs);
}

std::int64_t lastMoment(const ArchiveReader::SampleRange& range, const SampleClock& clock)
{
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    return range.toNs == kMax ? kMax : TelvaneTool::addSaturated(clock.start(), range.toNs);
}

} // namespace

std::unique_ptr<ArchiveReader> ArchiveReader::open(const std::string& location, Status& status,
                                                   TelvaneTool::Nanoseconds longestStatement)
{
    std::unique_ptr<Database> database = openDatabase(location, Database::Access::ReadOnly, status);
    if (!database) {
        return nullptr;
    }
    if (longestStatement != 0 && database->kind() == Database::Kind::Postgres) {
        status = database->run("SELECT set_config('statement_timeout', $1, false)",
                               {std::to_string(longestStatement / TelvaneTool::kMillisecond)});
    }
    std::int64_t version = 0;
    status = status ? readSchemaVersion(*database, version) : status;
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

Weld ArchiveReader::weldOf(const Row& row)
{
    Weld weld;
    weld.id = wholeOf(row[0]);
    std::copy(row.begin() + 1, row.end(), weld.values.begin());
    return weld;
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
        m_database->run("SELECT level, metric, value, low, high, from_s, to_s, reference, judged_ns "
                        "FROM finding WHERE weld_id = $1 ORDER BY id LIMIT 1000",
                        {id}, &rows);
    for (const Row& row : rows) {
        findings.push_back({textOf(row[0]), textOf(row[1]), numberOf(row[2]), numberOf(row[3]),
                            numberOf(row[4]), numberOf(row[5]), numberOf(row[6]), textOf(row[7]),
                            wholeOf(row[8])});
    }
    return status;
}

} // namespace TelvaneArchive
