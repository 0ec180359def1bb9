#pragma once

#include "archive/database/Database.h"
#include "archive/reader/WeldFilter.h"
#include "archive/samples/Envelope.h"
#include "archive/samples/Sample.h"
#include "archive/welds/WeldColumns.h"
#include "common/support/Clock.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace TelvaneArchive
{

/// Reads an archive, in SQLite or PostgreSQL, while another process may write to it.
///
///     Status status;
///     auto reader = ArchiveReader::open("/var/lib/telvane-archive/welds.db", status);
///     if (!reader) { ... status.text says why ... }
///     std::vector<Weld> welds;
///     status = reader->list({}, welds);
///     for (const Weld& weld : welds) {
///         std::printf("%lld %.0f A\n", (long long)weld.id, weld.number(Column::MeanAmps));
///     }
///
/// Every call is bounded: lists and samples have a limit, so that no call returns more than a page can show.
/// \par Errors   Each function returns a Status. After Status::Code::Lost, open the archive again.
/// \par Threads  One at a time. Open one reader for each thread.
class ArchiveReader
{
public:
    /// What a trend or a list is read from. The result is the same.
    enum class Source
    {
        Best,
        Rows,
        Blocks, ///< columns of many welds each, as far as there are any
    };

    /// Which welds, and in which order.
    struct Query
    {
        WeldFilter filter;                    ///< see readWhere() for a filter from a text
        std::optional<Column> order;          ///< default: the start of the weld
        bool ascending = false;               ///< default: newest or largest first
        std::size_t limit = 100;              ///< at most kMaxList
        std::optional<std::int64_t> beforeNs; ///< only welds that started before; for paging
        std::optional<std::int64_t> afterId;  ///< only later ids, in their order; for reading all in pages
        Source source = Source::Best;
    };
    static constexpr std::size_t kMaxList = 10'000;

    /// A part of a weld, in ns since its start; by default all of it, whatever the stamps of its samples.
    struct SampleRange
    {
        std::int64_t fromNs = std::numeric_limits<std::int64_t>::min();
        std::int64_t toNs =
            std::numeric_limits<std::int64_t>::max(); ///< not part of it, except for the default

        bool contains(std::int64_t time) const;
    };

    /// Where reading the samples of a weld goes on. A new one is before the first sample.
    struct SamplePosition
    {
        std::int64_t chunk = 0; ///< stored chunk of the weld
        std::size_t sample = 0; ///< in the chunk
    };

    /// An event on the bus while a weld was under way.
    struct Event
    {
        std::int64_t time = 0; ///< ns since the Unix epoch
        std::string channel;
        std::string record; ///< JSON text
    };

    /// A metric over the welds of one day or one part.
    struct TrendPoint
    {
        std::string group; ///< "2026-11-22", or the part number
        std::int64_t welds = 0;
        double mean = 0.0;
        double min = 0.0;
        double max = 0.0;
        double deviation = 0.0;
    };

    /// \return the statement for a list, whose plan must use an index
    /// \param few  few welds match, so sorting them is fast
    static Sql statementOf(const Query& query, bool few, Row& values);

    /// Opens an archive.
    /// \param location  path of an SQLite archive, or postgresql://user@host/name
    /// \param[out] status  why it failed
    /// \param longestStatement  how long PostgreSQL may work on a statement, or wait for what others have locked, in whole
    ///        milliseconds; a call then fails with Status::Code::Late. 0 for no limit. SQLite has none.
    /// \return null if it failed
    static std::unique_ptr<ArchiveReader> open(const std::string& location, Status& status,
                                               TelvaneTool::Nanoseconds longestStatement = 0);

    /// Lists welds with all their columns.
    Status list(const Query& query, std::vector<Weld>& welds);

    /// \param[out] count  number of welds that match, at most \p limit
    Status count(const WeldFilter& filter, std::size_t limit, std::int64_t& count);

    /// \param[out] weld  empty if there is no such weld
    Status weld(std::int64_t id, std::optional<Weld>& weld);

    /// Reads the envelope of a weld that has ended.
    /// \param parts  kFineParts or kCoarseParts
    /// \param[out] envelope  empty if there is none
    Status envelope(std::int64_t id, std::size_t parts, std::optional<Envelope>& envelope);

    /// Reads samples of a weld in the order in which they arrived, also of a weld that is under way up to the last
    /// commit.
    ///
    /// Stamps are no place to go on from: samples may share one, and stamps may go back. To read page by page, call again
    /// with the same position until there are fewer samples than \p limit.
    /// \param limit  most samples to append
    /// \param[in,out] position  the first sample to read; afterwards the one after the last
    /// \param[out] samples  samples are appended; their `time` is ns since the start of the weld
    /// \param[out] damaged  is increased for each stored chunk that could not be read; null to ignore it
    Status samples(std::int64_t id, const SampleRange& range, std::size_t limit, SamplePosition& position,
                   std::vector<Sample>& samples, std::uint64_t* damaged = nullptr);

    Status events(std::int64_t id, std::vector<Event>& events);
    Status findings(std::int64_t id, std::vector<Finding>& findings);

    /// Summarises a metric by day (UTC) or by part number, in order.
    /// \param byPart  false for by day
    Status trend(Column metric, const WeldFilter& filter, bool byPart, std::vector<TrendPoint>& points,
                 Source source = Source::Best);

    /// \return the statement for the start or the part, and the value, of all welds
    /// \param index  the column by which the welds are found; empty for the database to choose
    static Sql statementOfTrend(Column metric, const WeldFilter& filter, bool byPart,
                                std::optional<Column> index, Row& values);

    Database& database() { return *m_database; }

private:
    ArchiveReader(std::unique_ptr<Database> database, std::string location)
        : m_database(std::move(database)), m_location(std::move(location))
    {}

    /// \param row  the id, and all columns
    static Weld weldOf(const Row& row);
    /// \param row  number, file, place, size and data of the chunk
    bool readChunk(const Row& row, std::vector<Sample>& samples) const;
    Status listByColumns(const Query& query, const WeldFilter& filter, std::vector<Weld>& welds, bool& done);
    /// Appends welds in the order of \p ids, as far as they exist.
    Status readWelds(const std::vector<std::int64_t>& ids, std::vector<Weld>& welds);
    /// Looks for an index that leaves few welds to read.
    /// \param[out] few  false if there is none
    /// \param[out] index  its column; empty if there are only few welds
    Status findFew(const WeldFilter& filter, std::size_t limit, bool& few, std::optional<Column>& index);
    Status trendByServer(Column metric, const WeldFilter& filter, bool byPart,
                         std::vector<TrendPoint>& points);

    std::unique_ptr<Database> m_database;
    std::string m_location;
};

} // namespace TelvaneArchive
