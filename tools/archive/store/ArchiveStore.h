#pragma once

#include "archive/database/Database.h"
#include "archive/samples/SampleFile.h"
#include "archive/store/BlockMaker.h"
#include "archive/welds/WeldColumns.h"
#include "archive/welds/WeldMeasures.h"
#include "common/support/Clock.h"
#include "common/support/FileDescriptor.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TelvaneArchive
{

/// An event on the bus that belongs to a weld or to no weld.
struct Event
{
    std::int64_t weld = 0; ///< handle of a weld in ArchiveStore; 0 for none
    std::int64_t time = 0; ///< ns since the Unix epoch
    std::string module;
    std::string channel;
    std::string record; ///< JSON text
};

/// The one writer of an SQLite archive.
///
/// Everything waits in memory until commit() stores it in one transaction. If that fails, everything still waits, and
/// the next commit() tries again. Waiting samples are bounded: more are counted as not stored. On a full disk, commit()
/// stores the rows that fit and says so; the samples of welds that have ended are given up.
/// \par Threads  One.
class ArchiveStore
{
public:
    struct Settings
    {
        std::size_t maxWaiting = 500'000;      ///< samples that wait for the disk at most
        std::size_t ballast = 1024UL * 1024UL; ///< bytes to delete when the disk is full; 0 for none
        MeasureSettings measures;
    };

    struct Counters
    {
        std::uint64_t commits = 0;
        std::uint64_t welds = 0;        ///< closed
        std::uint64_t samples = 0;      ///< stored
        std::uint64_t bytes = 0;        ///< of stored samples
        std::uint64_t unstored = 0;     ///< samples that found no room
        std::uint64_t recovered = 0;    ///< welds of an earlier run that were closed
        std::uint64_t removedBytes = 0; ///< torn ends of sample files
    };

    /// What comes of judging, beside the verdict.
    struct Judgement
    {
        std::vector<Finding> findings;
        std::string record; ///< waits in the archive until it is published; empty for none
    };
    /// Judges a weld that ends: may set Column::Verdict, and findings and a record, which are stored with the row. It
    /// runs within commit(), when the samples are in the archive and \p weld has its metrics.
    using JudgeHook = std::function<void(Weld& weld, Judgement& judgement)>;
    /// Sets the judge before the welds of an earlier run are closed.
    using SetUp = std::function<Status(ArchiveStore& store)>;

    /// Most records that wait to be published; the oldest ones are dropped.
    static constexpr std::size_t kMaxUnpublished = 1000;

    ~ArchiveStore();
    ArchiveStore(const ArchiveStore&) = delete;
    ArchiveStore& operator=(const ArchiveStore&) = delete;

    /// Opens or creates an archive, and closes the welds that an earlier run left open.
    /// \param setUp  is called in between, and again if there was no room at first
    /// \return null with \p status set, for example if another process writes to the archive
    static std::unique_ptr<ArchiveStore> open(const std::string& path, const Settings& settings,
                                              Status& status, SetUp setUp = {});

    /// Begins a weld.
    /// \param weld  what is known at the start; Uid, StartNs and SamplePeriodUs are needed
    /// \param ending  "importing" for a weld that is deleted if its import is cut off
    /// \return the handle of the weld, not its id
    std::int64_t begin(Weld weld, const std::string& ending = "running");
    /// Adds a sample.
    /// \param missing  samples that are missing before it
    void add(std::int64_t handle, const Sample& sample, std::uint64_t missing);
    /// Changes columns of a weld that has not ended.
    Weld* find(std::int64_t handle);
    /// Ends a weld, whose metrics are computed by the next commit().
    void end(std::int64_t handle, const std::string& ending);
    void add(Event event);

    /// \return whether commit() has something to do
    bool isDirty() const;
    /// Stores everything that waits.
    Status commit();

    void setJudge(JudgeHook judge) { m_judge = std::move(judge); }

    /// \return ids of the welds that were closed since the last call
    std::vector<std::int64_t> takeClosed();
    /// \return whether the disk was full at the last commit
    bool isFull() const { return m_noRoom.code == Status::Code::Full; }

    const Counters& counters() const { return m_counters; }
    Database& database() { return *m_database; }
    const std::string& path() const { return m_path; }

    /// Reads the samples of a weld in order, chunk by chunk.
    /// \param[out] damaged  chunks that could not be read
    Status readSamples(std::int64_t id, const std::function<void(const std::vector<Sample>&)>& take,
                       std::uint64_t& damaged);

    /// What is kept for how long. 0 means without a limit.
    struct Retention
    {
        std::int64_t samplesAge = 0;   ///< ns
        std::int64_t samplesBytes = 0; ///< of all samples
        std::int64_t rowsAge = 0;      ///< ns; welds that are not OK stay
    };
    struct Retained
    {
        std::int64_t sampleWelds = 0; ///< welds whose samples were deleted
        std::int64_t bytes = 0;
        std::int64_t rows = 0; ///< welds that were deleted
    };
    /// Deletes what is too old or too much: samples first, oldest first.
    /// \param now  ns since the Unix epoch
    Status retain(const Retention& retention, std::int64_t now, Retained& retained);

    /// Stores a verdict in place of an earlier one.
    Status storeVerdict(std::int64_t id, const std::string& verdict, const std::vector<Finding>& findings,
                        std::int64_t now);

    /// A record of the judge that waits to be published.
    struct Unpublished
    {
        std::int64_t weld = 0;
        std::string record;
    };
    /// Reads the oldest ones.
    Status readUnpublished(std::size_t limit, std::vector<Unpublished>& records);
    /// Deletes one that was published.
    Status forgetUnpublished(std::int64_t weld);

    /// Makes one of the blocks that trends and lists are read from, if one is missing.
    /// \param[out] made  false if there is none to make
    Status makeBlock(bool& made) { return m_blocks.makeOne(*m_database, made); }
    /// Makes all of them.
    Status makeBlocks();
    /// \return whether no weld is under way or waits
    bool isIdle() const { return m_running.empty(); }

    /// Deletes welds with all that belongs to them.
    Status deleteWelds(const std::vector<std::int64_t>& ids);

private:
    struct Running
    {
        Weld weld;
        bool begun = false; ///< the row is in the database
        std::deque<Sample> waiting;
        std::uint32_t chunks = 0;
        std::string ending; ///< empty while it runs
        bool changed = false;
    };
    struct NewChunk
    {
        Running* running;
        std::size_t samples;
        std::int64_t firstNs;
        std::int64_t lastNs;
        SampleFile::Place place;
        std::string file;
    };

    ArchiveStore(std::string path, const Settings& settings) : m_path(std::move(path)), m_settings(settings)
    {}

    enum class Contents
    {
        Everything,
        Rows, ///< no samples
    };

    Status lock();
    Status prepare();
    Status prepareOnce();
    Status commitOnce(Contents contents);
    Status commitRows(const Status& noRoom);
    void emptyLog();
    Status beginWaiting();
    Status appendWaiting(std::vector<NewChunk>& chunks);
    Status appendChunks(Running& running, std::vector<NewChunk>& chunks);
    Status appendPiece(Running& running, const Sample* samples, std::size_t count, SampleFile& file,
                       std::vector<NewChunk>& chunks);
    Status indexChunks(const std::vector<NewChunk>& chunks);
    void forgetChunks(const std::vector<NewChunk>& chunks);
    Status insertEvents();
    Status closeEnded();
    Status closeWeld(Running& running);
    Status storeWeld(const Weld& weld);
    Status storeUnpublished(std::int64_t id, const std::string& record);
    Status storeFindings(std::int64_t id, const std::vector<Finding>& findings, std::int64_t now);
    Status recoverWelds();
    Status recoverWeld(Running& running);
    Status fileFor(const Weld& weld, SampleFile*& file);
    void dropSamplesOfEnded();
    Status deleteSamples(std::int64_t id);
    Status dropFromFile(const std::string& name, const std::vector<Row>& chunks);
    bool makeBallast();
    bool removeBallast();

    std::string m_path;
    Settings m_settings;
    SetUp m_setUp;
    JudgeHook m_judge;
    TelvaneTool::FileDescriptor m_lock;
    std::unique_ptr<Database> m_database;
    BlockMaker m_blocks;
    std::map<std::string, SampleFile> m_files; ///< by name
    std::map<std::int64_t, Running> m_running; ///< by handle
    std::vector<Event> m_events;
    std::vector<std::int64_t> m_closed;
    std::int64_t m_nextHandle = 1;
    std::size_t m_waiting = 0;
    Status m_noRoom; ///< Code::Full while the disk is full
    bool m_hasBallast = false;
    Counters m_counters;
};

/// \return the identity of the machine's boot, or an empty text
std::string bootId();
/// \return whether the kernel says that the clock is synchronised
bool clockIsSet();
/// \return local time minus UTC at a moment, in s
std::int64_t utcOffset(std::int64_t nanoseconds);
/// \return a new random identity
std::string newUid();

} // namespace TelvaneArchive
