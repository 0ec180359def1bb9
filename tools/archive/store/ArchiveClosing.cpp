// Ending a weld: its samples are read back chunk by chunk, so that a weld of hours needs no more memory than one of
// seconds, and a weld that an earlier run left open is closed in the same way.

#include "archive/samples/Envelope.h"
#include "archive/samples/SampleCodec.h"
#include "archive/store/ArchiveStore.h"

#include <algorithm>

namespace TelvaneArchive
{

Status ArchiveStore::closeEnded()
{
    Status status;
    for (auto entry = m_running.begin(); entry != m_running.end() && status;) {
        Running& running = entry->second;
        if (running.ending.empty() || !running.waiting.empty()) {
            ++entry;
            continue;
        }
        status = closeWeld(running);
        if (status) {
            m_closed.push_back(running.weld.id);
            ++m_counters.welds;
            entry = m_running.erase(entry);
        }
    }
    return status;
}

Status ArchiveStore::closeWeld(Running& running)
{
    Weld weld = running.weld;
    const std::int64_t start = weld.whole(Column::StartNs);
    const SampleClock clock(start, weld.whole(Column::SamplePeriodUs));
    WeldMeasures measures(clock, m_settings.measures);
    std::int64_t last = start;
    std::int64_t lastNumber = -1;
    std::uint64_t damaged = 0;
    Status status = readSamples(
        weld.id,
        [&](const std::vector<Sample>& samples) {
            for (const Sample& sample : samples) {
                measures.add(sample);
                lastNumber = std::max<std::int64_t>(lastNumber, sample.number);
            }
            last = std::max(last, clock.rangeOf(samples.data(), samples.size()).second);
        },
        damaged);
    if (!status) {
        return status;
    }
    weld[Column::Ending] = running.ending;
    if (!weld.has(Column::EndNs)) {
        weld[Column::EndNs] = TelvaneTool::addSaturated(last, clock.period());
    }
    measures.finish(weld);
    // The row of a weld that was cut off does not have the count.
    const std::int64_t gaps = lastNumber + 1 - weld.whole(Column::Samples) - weld.whole(Column::Unstored);
    weld[Column::Missed] = std::max(weld.whole(Column::Missed), gaps);

    const std::int64_t end = TelvaneTool::addSaturated(last, clock.period());
    EnvelopeBuilder fine(start, end, kFineParts);
    EnvelopeBuilder coarse(start, end, kCoarseParts);
    status = readSamples(
        weld.id,
        [&](const std::vector<Sample>& samples) {
            for (Sample sample : samples) {
                sample.time = clock.momentOf(sample);
                fine.add(sample);
                coarse.add(sample);
            }
        },
        damaged);
    Judgement judgement;
    if (status && m_judge) {
        m_judge(weld, judgement);
    }
    Transaction transaction(*m_database);
    status = status ? transaction.begun() : status;
    for (const auto& [builder, parts] : {std::pair(&fine, kFineParts), std::pair(&coarse, kCoarseParts)}) {
        status = status && weld.whole(Column::Samples) > 0
                     ? m_database->run("INSERT INTO envelope (weld_id, parts, data) VALUES ($1, $2, $3) "
                                       "ON CONFLICT (weld_id, parts) DO UPDATE SET data = excluded.data",
                                       {weld.id, static_cast<std::int64_t>(parts),
                                        Blob{encodeEnvelope(builder->finish())}})
                     : status;
    }
    status = status ? storeWeld(weld) : status;
    status = status && !judgement.findings.empty()
                 ? storeFindings(weld.id, judgement.findings, TelvaneTool::realTimeNow())
                 : status;
    status = status && !judgement.record.empty() ? storeUnpublished(weld.id, judgement.record) : status;
    return status ? transaction.commit() : status;
}

Status ArchiveStore::storeWeld(const Weld& weld)
{
    Sql statement = "UPDATE weld SET ";
    Row values;
    for (const Column column : allColumns()) {
        values.push_back(weld[column]);
        statement += values.size() == 1 ? Sql("") : Sql(", ");
        statement += sqlOf(column) + " = ";
        statement.parameter(values.size());
    }
    values.emplace_back(weld.id);
    statement += " WHERE id = ";
    statement.parameter(values.size());
    return m_database->run(statement, values);
}

Status ArchiveStore::readSamples(std::int64_t id, const std::function<void(const std::vector<Sample>&)>& take,
                                 std::uint64_t& damaged)
{
    std::int64_t next = 0;
    for (;;) {
        // In pages: a statement that stays open would stop the checkpoint.
        std::vector<Row> rows;
        Status status = m_database->run("SELECT number, file, place, size FROM chunk WHERE weld_id = $1 AND "
                                        "number >= $2 ORDER BY number LIMIT 500",
                                        {id, next}, &rows);
        if (!status || rows.empty()) {
            return status;
        }
        for (const Row& row : rows) {
            next = wholeOf(row[0]) + 1;
            std::string bytes;
            ChunkHeader header;
            std::vector<Sample> samples;
            if (readFilePart(sampleFolder(m_path) + "/" + textOf(row[1]), {wholeOf(row[2]), wholeOf(row[3])},
                             bytes) &&
                decodeChunk(bytes, header, samples) && header.weld == id) {
                take(samples);
            } else {
                ++damaged;
            }
        }
    }
}

Status ArchiveStore::recoverWelds()
{
    std::vector<Row> rows;
    // An import that was cut off is done again from its file.
    Status status = m_database->run("DELETE FROM chunk WHERE weld_id IN (SELECT id FROM weld WHERE ending = "
                                    "'importing')");
    status = status ? m_database->run("DELETE FROM weld WHERE ending = 'importing'") : status;
    status = status ? m_database->run("SELECT id, " + columnList() + " FROM weld WHERE ending = 'running'",
                                      {}, &rows)
                    : status;
    for (const Row& row : rows) {
        Running running;
        running.weld.id = wholeOf(row[0]);
        std::copy(row.begin() + 1, row.end(), running.weld.values.begin());
        running.begun = true;
        running.ending = running.weld.text(Column::Boot) == bootId() ? "killed" : "power";
        status = status ? recoverWeld(running) : status;
        status = status ? closeWeld(running) : status;
        m_counters.recovered += status ? 1 : 0;
        if (status) {
            m_closed.push_back(running.weld.id);
        }
    }
    return status;
}

/// Indexes the chunks that were written and not committed.
Status ArchiveStore::recoverWeld(Running& running)
{
    SampleFile* file = nullptr;
    Status status = fileFor(running.weld, file);
    const std::string name = sampleFileName(running.weld.whole(Column::StartNs));
    std::vector<Row> rows;
    status = status ? m_database->run("SELECT coalesce(max(place + size), 0) FROM chunk WHERE file = $1",
                                      {name}, &rows)
                    : status;
    if (!status) {
        return status;
    }
    Transaction transaction(*m_database);
    Status indexed = transaction.begun();
    std::int64_t removed = 0;
    status = file->recover(
        wholeOf(rows[0][0]),
        [&](const SampleFile::Place& place, std::string_view chunk) {
            ChunkHeader header;
            std::vector<Sample> samples;
            decodeChunk(chunk, header, samples);
            std::vector<Row> found;
            // Chunks of other welds are those of samples that were deleted.
            indexed = indexed ? m_database->run("SELECT start_ns, sample_period_us FROM weld WHERE id = $1 "
                                                "AND ending = 'running'",
                                                {header.weld}, &found)
                              : indexed;
            if (!indexed || found.empty()) {
                return;
            }
            const SampleClock clock(wholeOf(found[0][0]), wholeOf(found[0][1]));
            const auto [first, last] = clock.rangeOf(samples.data(), samples.size());
            indexed = m_database->run("INSERT INTO chunk (weld_id, number, first_ns, last_ns, samples, file, "
                                      "place, size) VALUES ($1, $2, $3, $4, $5, $6, $7, $8) "
                                      "ON CONFLICT (weld_id, number) DO NOTHING",
                                      {header.weld, std::int64_t{header.number}, first, last,
                                       std::int64_t{header.samples}, name, place.offset, place.size});
        },
        removed);
    m_counters.removedBytes += static_cast<std::uint64_t>(removed);
    status = status ? indexed : status;
    status = status ? transaction.commit() : status;
    rows.clear();
    status = status
                 ? m_database->run("SELECT count(*), coalesce(sum(samples), 0), coalesce(sum(size), 0) FROM "
                                   "chunk WHERE weld_id = $1",
                                   {running.weld.id}, &rows)
                 : status;
    if (status) {
        running.chunks = static_cast<std::uint32_t>(wholeOf(rows[0][0]));
        running.weld[Column::Samples] = wholeOf(rows[0][1]);
        running.weld[Column::BytesStored] = wholeOf(rows[0][2]);
    }
    return status;
}

} // namespace TelvaneArchive
