// The order of writing keeps index and samples together whatever happens. The row of a weld is committed before its
// first chunk is written, so that a chunk always finds its weld. Chunks are written and synchronised before the
// transaction that names them, so that the index never names what is not there. A crash between the two leaves whole
// chunks without an index, which the next start adds, and at most one torn chunk, which it cuts off.
//
// Nothing is rewritten while a weld runs: its row is written at the start and at the end, chunks are only added.

#include "archive/store/ArchiveStore.h"

#include "archive/samples/SampleCodec.h"
#include "archive/welds/Schema.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

namespace TelvaneArchive
{

ArchiveStore::~ArchiveStore()
{
    m_database.reset(); // before the lock
}

std::unique_ptr<ArchiveStore> ArchiveStore::open(const std::string& path, const Settings& settings,
                                                 Status& status, SetUp setUp)
{
    std::unique_ptr<ArchiveStore> store(new ArchiveStore(path, settings));
    store->m_setUp = std::move(setUp);
    status = store->lock();
    status = status ? store->prepare() : status;
    if (!status) {
        return nullptr;
    }
    return store;
}

Status ArchiveStore::lock()
{
    const std::string path = m_path + ".lock";
    m_lock = TelvaneTool::FileDescriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!m_lock.isOpen()) {
        return systemError(path, errno);
    }
    if (flock(m_lock.get(), LOCK_EX | LOCK_NB) != 0) {
        return {Status::Code::Refused, "another process writes to this archive"};
    }
    return {};
}

Status ArchiveStore::prepare()
{
    Status status = prepareOnce();
    if (status.code == Status::Code::Full && removeBallast()) {
        status = prepareOnce();
    }
    if (status) {
        makeBallast();
    }
    return status;
}

Status ArchiveStore::prepareOnce()
{
    Status status;
    m_database.reset(); // one connection writes
    m_database = openSqlite(m_path, Database::Access::ReadWrite, status);
    status = status ? migrate(*m_database) : status;
    status = status && m_setUp ? m_setUp(*this) : status;
    return status ? recoverWelds() : status;
}

std::int64_t ArchiveStore::begin(Weld weld, const std::string& ending)
{
    const std::int64_t handle = m_nextHandle++;
    weld[Column::Ending] = ending;
    weld[Column::Samples] = std::int64_t{0};
    weld[Column::Missed] = std::int64_t{0};
    weld[Column::Unstored] = std::int64_t{0};
    weld[Column::BytesStored] = std::int64_t{0};
    m_running[handle].weld = std::move(weld);
    return handle;
}

void ArchiveStore::add(std::int64_t handle, const Sample& sample, std::uint64_t missing)
{
    const auto found = m_running.find(handle);
    if (found == m_running.end()) {
        return;
    }
    Running& running = found->second;
    Weld& weld = running.weld;
    weld[Column::Missed] = weld.whole(Column::Missed) + static_cast<std::int64_t>(missing);
    if (m_waiting >= m_settings.maxWaiting) {
        weld[Column::Unstored] = weld.whole(Column::Unstored) + 1;
        ++m_counters.unstored;
        return;
    }
    running.waiting.push_back(sample);
    ++m_waiting;
}

Weld* ArchiveStore::find(std::int64_t handle)
{
    const auto found = m_running.find(handle);
    if (found == m_running.end()) {
        return nullptr;
    }
    found->second.changed = true;
    return &found->second.weld;
}

void ArchiveStore::end(std::int64_t handle, const std::string& ending)
{
    const auto found = m_running.find(handle);
    if (found != m_running.end()) {
        found->second.ending = ending;
    }
}

void ArchiveStore::add(Event event)
{
    constexpr std::size_t kMaxEvents = 10'000;
    if (m_events.size() < kMaxEvents) {
        m_events.push_back(std::move(event));
    }
}

bool ArchiveStore::isDirty() const
{
    return !m_events.empty() || std::any_of(m_running.begin(), m_running.end(), [](const auto& entry) {
        const Running& running = entry.second;
        return !running.begun || !running.waiting.empty() || !running.ending.empty();
    });
}

Status ArchiveStore::commitOnce(Contents contents)
{
    Status status = beginWaiting();
    std::vector<NewChunk> chunks;
    if (status) {
        status = contents == Contents::Everything ? appendWaiting(chunks) : status;
        status = status ? indexChunks(chunks) : status;
        if (!status) {
            forgetChunks(chunks);
        }
    }
    status = status ? closeEnded() : status;
    m_counters.commits += status ? 1 : 0;
    return status;
}

Status ArchiveStore::beginWaiting()
{
    const bool none =
        std::all_of(m_running.begin(), m_running.end(), [](const auto& entry) { return entry.second.begun; });
    if (none) {
        return {};
    }
    Transaction transaction(*m_database);
    Status status = transaction.begun();
    std::vector<Running*> begun;
    for (auto& [handle, running] : m_running) {
        if (!status || running.begun) {
            continue;
        }
        Sql statement = "INSERT INTO weld (" + columnList() + ") VALUES (";
        for (std::size_t i = 1; i <= kColumns; ++i) {
            statement += i == 1 ? Sql("") : Sql(", ");
            statement.parameter(i);
        }
        statement += ") RETURNING id";
        std::vector<Row> rows;
        const auto& values = running.weld.values;
        status = m_database->run(statement, Row(values.begin(), values.end()), &rows);
        if (status && !rows.empty()) {
            running.weld.id = wholeOf(rows[0][0]);
            begun.push_back(&running);
        }
    }
    status = status ? transaction.commit() : status;
    for (Running* running : begun) {
        running->begun = static_cast<bool>(status);
    }
    return status;
}

Status ArchiveStore::fileFor(const Weld& weld, SampleFile*& file)
{
    const std::string name = sampleFileName(weld.whole(Column::StartNs));
    file = &m_files[name];
    return file->isOpen() ? Status() : file->open(sampleFolder(m_path) + "/" + name);
}

Status ArchiveStore::appendWaiting(std::vector<NewChunk>& chunks)
{
    Status status;
    for (auto& [handle, running] : m_running) {
        if (status && !running.waiting.empty()) {
            status = appendChunks(running, chunks);
        }
    }
    for (auto& [name, file] : m_files) {
        status = status && file.isOpen() ? file.sync() : status;
    }
    return status;
}

Status ArchiveStore::appendChunks(Running& running, std::vector<NewChunk>& chunks)
{
    SampleFile* file = nullptr;
    Status status = fileFor(running.weld, file);
    const std::vector<Sample> samples(running.waiting.begin(), running.waiting.end());
    for (std::size_t done = 0; status && done < samples.size();) {
        const std::size_t count = std::min(samples.size() - done, kMaxChunkSamples);
        status = appendPiece(running, samples.data() + done, count, *file, chunks);
        done += count;
    }
    return status;
}

Status ArchiveStore::appendPiece(Running& running, const Sample* samples, std::size_t count, SampleFile& file,
                                 std::vector<NewChunk>& chunks)
{
    const std::string chunk = encodeChunk(samples, count, running.weld.id, running.chunks);
    if (chunk.empty()) {
        const std::size_t half = count / 2;
        Status status = appendPiece(running, samples, half, file, chunks);
        return status ? appendPiece(running, samples + half, count - half, file, chunks) : status;
    }
    SampleFile::Place place;
    Status status = file.append(chunk, place);
    if (status) {
        ++running.chunks;
        const SampleClock clock(running.weld.whole(Column::StartNs),
                                running.weld.whole(Column::SamplePeriodUs));
        const auto [first, last] = clock.rangeOf(samples, count);
        chunks.push_back(
            {&running, count, first, last, place, sampleFileName(running.weld.whole(Column::StartNs))});
    }
    return status;
}

Status ArchiveStore::indexChunks(const std::vector<NewChunk>& chunks)
{
    if (chunks.empty() && m_events.empty()) {
        return {};
    }
    Transaction transaction(*m_database);
    Status status = transaction.begun();
    std::map<Running*, std::uint32_t> numbers;
    for (const NewChunk& chunk : chunks) {
        ++numbers[chunk.running];
    }
    for (auto& [running, count] : numbers) {
        count = running->chunks - count;
    }
    for (const NewChunk& chunk : chunks) {
        status =
            status ? m_database->run("INSERT INTO chunk (weld_id, number, first_ns, last_ns, samples, file, "
                                     "place, size) VALUES ($1, $2, $3, $4, $5, $6, $7, $8)",
                                     {chunk.running->weld.id, std::int64_t{numbers[chunk.running]++},
                                      chunk.firstNs, chunk.lastNs, static_cast<std::int64_t>(chunk.samples),
                                      chunk.file, chunk.place.offset, chunk.place.size})
                   : status;
    }
    status = status ? insertEvents() : status;
    status = status ? transaction.commit() : status;
    if (!status) {
        return status;
    }
    m_events.clear();
    for (const NewChunk& chunk : chunks) {
        Running& running = *chunk.running;
        running.waiting.erase(running.waiting.begin(),
                              running.waiting.begin() + static_cast<std::ptrdiff_t>(chunk.samples));
        m_waiting -= chunk.samples;
        Weld& weld = running.weld;
        weld[Column::Samples] = weld.whole(Column::Samples) + static_cast<std::int64_t>(chunk.samples);
        weld[Column::BytesStored] = weld.whole(Column::BytesStored) + chunk.place.size;
        m_counters.samples += chunk.samples;
        m_counters.bytes += static_cast<std::uint64_t>(chunk.place.size);
    }
    return status;
}

/// The samples still wait, so what was written of them goes.
void ArchiveStore::forgetChunks(const std::vector<NewChunk>& chunks)
{
    for (const NewChunk& chunk : chunks) {
        --chunk.running->chunks;
    }
    for (auto& [name, file] : m_files) {
        for (const NewChunk& chunk : chunks) {
            if (chunk.file == name && file.isOpen()) {
                file.shorten(chunk.place.offset);
                break;
            }
        }
    }
}

Status ArchiveStore::insertEvents()
{
    Status status;
    for (const Event& event : m_events) {
        const auto running = m_running.find(event.weld);
        const Value weld = running != m_running.end() ? Value(running->second.weld.id) : Value();
        status =
            status ? m_database->run("INSERT INTO event (uid, weld_id, module, time_ns, channel, record) "
                                     "VALUES ($1, $2, $3, $4, $5, $6)",
                                     {newUid(), weld, event.module, event.time, event.channel, event.record})
                   : status;
    }
    return status;
}

std::vector<std::int64_t> ArchiveStore::takeClosed()
{
    return std::exchange(m_closed, {});
}

Status ArchiveStore::makeBlocks()
{
    bool made = false;
    Status status;
    do {
        status = makeBlock(made);
    } while (status && made);
    return status;
}

} // namespace TelvaneArchive
